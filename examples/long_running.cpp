// Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
// does not answer. Gateways may fall silent, stop and start again at any time.
//
//     long_running STATISTIC SECONDS ROUNDS HOST:PORT ...
//
// Each gateway has a thread of its own, so that one that is silent holds up no other.
#include <rixstats.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Sample
{
    double value;
    Clock::time_point time;
};

void say(const std::string &line)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cout << line << std::endl;
}

class Watch
{
public:
    Watch(std::string gateway, std::string wanted) : name(std::move(gateway)), statistic(std::move(wanted))
    {
        connection.time_limit(std::chrono::seconds(1));
    }

    void run(Seconds interval, int rounds)
    {
        const auto step = std::chrono::duration_cast<Clock::duration>(interval);
        Clock::time_point then = Clock::now();
        for (int round = 0; round < rounds; ++round, std::this_thread::sleep_until(then += step)) {
            if (left > 0)
                --left;
            else
                look();
        }
    }

private:
    void look()
    {
        std::error_code failure = connection.is_open() ? std::error_code() : open();
        double value = 0;
        if (!failure) failure = ask(value);
        if (!failure) return report({value, Clock::now()});
        say(name + ": " + failure.message() + ", step " + std::to_string(rixstats::last_failure().step));
        // The next look but some begins with a new connection.
        connection.close();
        before.reset();
        left = pause;
        pause = std::min(2 * pause, 32);
    }

    std::error_code open()
    {
        const std::size_t colon = name.rfind(':');
        const int port = colon == std::string::npos ? 2980 : std::atoi(name.c_str() + colon + 1);
        return connection.open(name.substr(0, colon), port);
    }

    std::error_code ask(double &value)
    {
        auto answer = connection.statistics_by_id(statistic);
        for (const rixstats::statistic &stat : answer)
            if (stat.present()) value = std::atof(std::string(stat.value).c_str());
        return answer.status();
    }

    void report(const Sample &now)
    {
        // A counter falls when its gateway has been started again.
        if (!before || now.value < before->value)
            say(name + ": " + statistic + " = " + std::to_string(now.value));
        else
            say(name + ": " + statistic + " " +
                std::to_string((now.value - before->value) / Seconds(now.time - before->time).count()) + "/s");
        before = now;
        pause = 1;
    }

    const std::string name; // HOST:PORT
    const std::string statistic;
    rixstats::connection connection;
    std::optional<Sample> before;
    int pause = 1; // rounds for which the gateway is left alone after its next failure
    int left = 0;  // rounds of them that are still to come
};

void watch(const std::string &gateway, const char *statistic, Seconds interval, int rounds)
{
    Watch(gateway, statistic).run(interval, rounds);
} // closes the connection, and does not wait for a gateway that is silent

} // namespace

int main(int argc, char **argv)
{
    if (argc < 5) {
        std::cerr << "usage: long_running STATISTIC SECONDS ROUNDS HOST:PORT ...\n";
        return 2;
    }
    std::vector<std::thread> threads;
    for (int i = 4; i < argc; ++i)
        threads.emplace_back(watch, argv[i], argv[1], Seconds(std::atof(argv[2])), std::atoi(argv[3]));
    for (std::thread &thread : threads)
        thread.join();
    return EXIT_SUCCESS;
}
