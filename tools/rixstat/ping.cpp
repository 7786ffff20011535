// ping: how long connecting with its greeting takes, and a small question.
#include "codes.h"
#include "commands.h"
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

void round(const Viewer &viewer, Listening listening, Times &connecting, Times &asking)
{
    Session session(viewer.guard, viewer.tap, viewer.settings, listening);
    const Clock::time_point start = Clock::now();
    session.open();
    connecting.push_back(since(start));
    const Clock::time_point opened = Clock::now();
    session.ask(Content::groups, {});
    asking.push_back(since(opened));
    session.beginClose();
    session.endClose();
}

void repeat(const Viewer &viewer, Times &connecting, Times &asking)
{
    Schedule schedule(viewer.settings.interval);
    for (int done = 0; done != viewer.settings.count; ++done) {
        if (done > 0 && viewer.guard.pauseUntil(schedule.next()) == Guard::Pause::readerGone) return;
        round(viewer, Listening::brief, connecting, asking);
    }
}

// To listen for the reason of a refusal takes time that must not be measured, so the failed round is made once more.
[[noreturn]] void explainAgain(const Viewer &viewer, const Failure &failure)
{
    Times unused;
    if (failure.cause == Cause::broken) round(viewer, Listening::thorough, unused, unused);
    throw failure;
}

} // namespace

// What has been measured is shown also when the viewer is interrupted or the gateway fails.
ExitStatus runPing(const Viewer &viewer)
{
    Presenter presenter(viewer);
    Times connecting, asking;
    const auto showSummary = [&] {
        print(presenter.text(presenter.arranged({summary("connect", connecting), summary("query", asking)})));
    };
    try {
        repeat(viewer, connecting, asking);
    } catch (const Failure &failure) {
        if (!connecting.empty()) showSummary();
        explainAgain(viewer, failure);
    } catch (const Interrupted &) {
        if (!connecting.empty()) showSummary();
        throw;
    }
    showSummary();
    return exitGood;
}

} // namespace rixstat
