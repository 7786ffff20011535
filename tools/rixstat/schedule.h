// The times at which something is to be done again, without drift: each is a multiple of the interval after the start.
#ifndef RIXSTAT_SCHEDULE_H
#define RIXSTAT_SCHEDULE_H

#include <chrono>

namespace rixstat {

class Schedule
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Schedule(double seconds, Clock::time_point start = Clock::now())
        : interval(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))), latest(start)
    {
    }

    // The next time that is still to come; those that were missed are left out.
    Clock::time_point next(Clock::time_point now = Clock::now())
    {
        const Clock::duration late = now - latest;
        latest += interval * (late / interval + 1);
        return latest;
    }

private:
    const Clock::duration interval;
    Clock::time_point latest;
};

} // namespace rixstat

#endif // RIXSTAT_SCHEDULE_H
