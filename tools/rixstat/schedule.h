// The times at which something is to be done again, without drift: each is a multiple of the interval after the start.
#ifndef RIXSTAT_SCHEDULE_H
#define RIXSTAT_SCHEDULE_H

#include <chrono>

namespace rixstat {

class Schedule
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Schedule(double seconds)
        : interval(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
          latest(Clock::now())
    {
    }

    // The next time that is still to come; those that were missed are left out.
    Clock::time_point next()
    {
        const Clock::duration late = Clock::now() - latest;
        latest += interval * (late / interval + 1);
        return latest;
    }

private:
    const Clock::duration interval;
    Clock::time_point latest;
};

} // namespace rixstat

#endif // RIXSTAT_SCHEDULE_H
