// The viewer's schedule.
#include "../../tools/rixstat/schedule.h"

#include <gtest/gtest.h>

namespace {

TEST(Schedule, KeepsToMultiplesOfTheIntervalAndLeavesOutWhatWasMissed)
{
    using std::chrono::milliseconds;
    const rixstat::Schedule::Clock::time_point start{milliseconds(777)};
    rixstat::Schedule schedule(0.5, start);
    const auto next = [&](int now) { return (schedule.next(start + milliseconds(now)) - start) / milliseconds(1); };
    const std::pair<int, int> rows[] = {{0, 500}, {730, 1000}, {1000, 1500}, {1999, 2000}, {4001, 4500}, {4499, 5000}};
    for (const auto &[now, expected] : rows)
        EXPECT_EQ(expected, next(now)) << now;
}

} // namespace
