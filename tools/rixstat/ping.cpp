// ping: how long connecting with its greeting takes, and a small question.
#include "codes.h"
#include "commands.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "schedule.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace rixstat {
namespace {

using Clock = Schedule::Clock;
using Times = std::vector<double>; // milliseconds

double since(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Row summary(const std::string &step, Times times)
{
    Row row;
    row[fieldStep] = step;
    row[fieldCount] = std::to_string(times.size());
    if (times.empty()) return row;
    std::sort(times.begin(), times.end());
    const double count = static_cast<double>(times.size());
    row[fieldLeast] = fixed(times.front(), 3);
    row[fieldMean] = fixed(std::accumulate(times.begin(), times.end(), 0.0) / count, 3);
    // The smallest time that 99 of 100 do not exceed.
    row[fieldP99] = fixed(times[static_cast<size_t>(std::ceil(count * 0.99)) - 1], 3);
    row[fieldMost] = fixed(times.back(), 3);
    return row;
}

void round(const Settings &settings, Times &connecting, Times &asking)
{
    Session session(settings);
    const Clock::time_point start = Clock::now();
    session.open();
    connecting.push_back(since(start));
    const Clock::time_point opened = Clock::now();
    session.ask(Content::groups, {});
    asking.push_back(since(opened));
    session.close();
}

} // namespace

// What has been measured is shown also when the viewer is interrupted or the gateway fails.
ExitStatus runPing(const Viewer &viewer)
{
    const Settings &settings = viewer.settings;
    Times connecting, asking;
    const auto result = [&] {
        Presenter presenter(viewer);
        return presenter.text(presenter.arranged({summary("connect", connecting), summary("query", asking)}));
    };
    result(); // complains of the command line before anything is asked
    Schedule schedule(settings.interval);
    try {
        for (int done = 0; done != settings.count; ++done) {
            if (done > 0 && pauseUntil(schedule.next()) == Pause::readerGone) break;
            round(settings, connecting, asking);
            setLastWords(result());
        }
    } catch (const Failure &) {
        if (!connecting.empty()) print(result());
        throw;
    }
    print(result());
    return exitGood;
}

} // namespace rixstat
