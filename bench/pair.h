// How every figure is taken: a piece of work and its yardstick run in turn, block by block, so that whatever else the
// machine does meets both alike. Of the blocks the medians count.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

namespace rixbench {

constexpr double kBlockSeconds =
    0.0005; // well below a turn of whoever else wants the core: most blocks are undisturbed
constexpr int kLeastCalls = 2;

inline double threadSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

struct Cost
{
    double seconds;    // that passed in a block
    double cpuSeconds; // of them, those of this thread
};

// The call before the block brings back to the caches what the other side has driven out.
template <class Work>
Cost costOf(Work &work, int calls)
{
    work();
    const double cpuStart = threadSeconds();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i)
        work();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    return {passed.count(), threadSeconds() - cpuStart};
}

template <class Work>
int callsInBlock(Work &work)
{
    int calls = kLeastCalls;
    while (costOf(work, calls).seconds < kBlockSeconds)
        calls *= 2;
    return calls;
}

inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Reports the nanoseconds of a call on both sides, and the median of the ratios of neighbouring blocks; all of it also
// in CPU time, which does not count what others take from the core: the better figure for work that never waits.
template <class Ours, class Yardstick>
void comparePair(benchmark::State &state, Ours ours, Yardstick yardstick)
{
    const int oursCalls = callsInBlock(ours), yardstickCalls = callsInBlock(yardstick);
    std::vector<double> oursTimes, oursCpu, yardstickTimes, yardstickCpu, ratios, cpuRatios;
    bool oursFirst = false;
    for (auto _ : state) {
        oursFirst = !oursFirst;
        Cost mine = {}, other = {};
        if (oursFirst) mine = costOf(ours, oursCalls);
        other = costOf(yardstick, yardstickCalls);
        if (!oursFirst) mine = costOf(ours, oursCalls);
        state.SetIterationTime(mine.seconds + other.seconds);
        oursTimes.push_back(mine.seconds / oursCalls * 1e9);
        oursCpu.push_back(mine.cpuSeconds / oursCalls * 1e9);
        yardstickTimes.push_back(other.seconds / yardstickCalls * 1e9);
        yardstickCpu.push_back(other.cpuSeconds / yardstickCalls * 1e9);
        ratios.push_back(oursTimes.back() / yardstickTimes.back());
        cpuRatios.push_back(oursCpu.back() / yardstickCpu.back());
    }
    state.counters["ours"] = median(oursTimes);
    state.counters["ours_cpu"] = median(oursCpu);
    state.counters["yardstick"] = median(yardstickTimes);
    state.counters["yardstick_cpu"] = median(yardstickCpu);
    state.counters["ratio"] = median(ratios);
    state.counters["ratio_cpu"] = median(cpuRatios);
}

} // namespace rixbench
