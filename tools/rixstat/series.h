// What statistics did from one sample to the next: change, rate per second, the values of late. Nobody tells what is a
// counter, so it shows in what a statistic does.
#ifndef RIXSTAT_SERIES_H
#define RIXSTAT_SERIES_H

#include "document.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace rixstat {

class Series
{
public:
    using Clock = std::chrono::steady_clock;

    // Fills change, rate, trend and note of a sample's rows, which were answered at that time.
    void follow(std::vector<Row> &rows, Clock::time_point when);
    // The next sample has nothing before it: who knows what has been restarted in between.
    void forget() { histories.clear(); }

private:
    struct History
    {
        std::string value;
        Clock::time_point when;
        // A value that has fallen by less than half, or below zero, was no counter. One that falls to less than half,
        // and has never done otherwise, is taken for a counter that was restarted.
        bool gauge = false;
        std::vector<double> values; // of late
        std::vector<double> rates;
        Row told; // for a statistic that is in a sample twice
    };

    static void compare(History &history, Row &row, Clock::time_point when);
    static std::string trendOf(const History &history, bool utf8);

    std::map<std::string, History> histories; // by element and id
};

// A line of small bars, one for each number, the latest last. The lowest bar stands for base, the highest for the
// largest of the numbers.
std::string sparkline(const std::vector<double> &numbers, double base, bool utf8);

} // namespace rixstat

#endif // RIXSTAT_SERIES_H
