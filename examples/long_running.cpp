// Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
// does not answer. Gateways may fall silent, stop and start again at any time.
//
//     long_running STATISTIC SECONDS ROUNDS HOST:PORT ...
//
// Each gateway has a thread of its own, so that one that is silent holds up no other. One that could not be opened is
// left alone for 1, 2, 4 ... rounds; times that it has made its thread miss are left out.
#include <rixstats.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Gateway
{
    std::string name; // HOST:PORT
    std::string host;
    int port;
};

struct Sample
{
    double value;
    Clock::time_point time;
};

// False unless the whole text is a number.
template <typename Number>
bool to_number(std::string_view text, Number &number)
{
    const char *const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

std::string fixed(double number, int decimals)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << number;
    return text.str();
}

std::string step_name(int step)
{
    static const char *const names[] = {"none",      "resolve", "socket", "connect", "handshake",
                                        "authorise", "version", "query",  "parse",   "close"};
    return step >= 0 && step <= RIX_STEP_CLOSE ? names[step] : "unknown"; // later versions may add some
}

void say(const std::string &line)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cout << line << std::endl;
}

class Watch
{
public:
    Watch(Gateway watched, std::string wanted) : gateway(std::move(watched)), statistic(std::move(wanted))
    {
        connection.time_limit(std::chrono::seconds(1));
    }

    void run(Seconds interval, int rounds)
    {
        const auto step = std::chrono::duration_cast<Clock::duration>(interval);
        Clock::time_point then = Clock::now();
        for (int round = 0; round < rounds; ++round) {
            if (round > 0) std::this_thread::sleep_until(then += step * ((Clock::now() - then) / step + 1));
            if (left > 0)
                --left;
            else
                look();
        }
    }

private:
    void look()
    {
        std::error_code failure;
        if (!connection.is_open()) failure = connection.open(gateway.host, gateway.port);
        if (!failure) failure = ask();
        if (failure)
            give_up(failure);
        else
            pause = 1;
    }

    // After a failure the gateway is left alone for `pause` rounds; then it gets a new connection.
    void give_up(std::error_code failure)
    {
        say(gateway.name + ": " + failure.message() + ", step " + step_name(rixstats::last_failure().step));
        connection.close();
        before.reset();
        left = pause;
        pause = std::min(2 * pause, 32);
    }

    std::error_code ask()
    {
        auto answer = connection.statistics_by_id(statistic);
        for (const rixstats::statistic &stat : answer)
            report(stat);
        return answer.status();
    }

    void report(const rixstats::statistic &stat)
    {
        Sample now = {0, Clock::now()};
        if (!stat.present())
            say(gateway.name + ": the gateway has no " + statistic + " (code " + std::to_string(stat.element_code) +
                ")");
        else if (!to_number(stat.value, now.value))
            say(gateway.name + ": " + statistic + " = " + std::string(stat.value) + " is no number");
        else
            report(now);
    }

    void report(const Sample &now)
    {
        // A counter falls when its gateway has been started again.
        if (!before || now.value < before->value)
            say(gateway.name + ": " + statistic + " = " + fixed(now.value, 0));
        else
            say(gateway.name + ": " + statistic + " " +
                fixed((now.value - before->value) / Seconds(now.time - before->time).count(), 2) + "/s");
        before = now;
    }

    const Gateway gateway;
    const std::string statistic;
    rixstats::connection connection;
    std::optional<Sample> before;
    int pause = 1; // rounds for which the gateway is left alone after its next failure
    int left = 0;  // rounds of them that are still to come
};

struct Task
{
    std::string statistic;
    Seconds interval;
    int rounds;
    std::vector<Gateway> gateways;
};

bool to_task(const std::vector<std::string> &arguments, Task &task)
{
    double seconds = 0;
    if (arguments.size() < 4 || arguments[0].empty()) return false;
    if (!to_number(arguments[1], seconds) || !(seconds >= 0.001 && seconds <= 86400)) return false;
    if (!to_number(arguments[2], task.rounds) || task.rounds < 1) return false;
    task.statistic = arguments[0];
    task.interval = Seconds(seconds);
    for (std::size_t i = 3; i < arguments.size(); ++i) {
        const std::string &name = arguments[i];
        const std::size_t colon = name.rfind(':');
        int port = 0;
        if (colon == std::string::npos || colon == 0 || !to_number(name.substr(colon + 1), port)) return false;
        if (port < 1 || port > 65535) return false;
        task.gateways.push_back({name, name.substr(0, colon), port});
    }
    return true;
}

void watch(const Gateway &gateway, const Task &task)
{
    Watch(gateway, task.statistic).run(task.interval, task.rounds);
} // closes the connection, and does not wait for a gateway that is silent

} // namespace

int main(int argc, char **argv)
{
    Task task;
    if (!to_task(std::vector<std::string>(argv + 1, argv + argc), task)) {
        std::cerr << "usage: long_running STATISTIC SECONDS ROUNDS HOST:PORT ...\n";
        return 2;
    }
    std::vector<std::thread> threads;
    for (const Gateway &gateway : task.gateways)
        threads.emplace_back([&] { watch(gateway, task); });
    for (std::thread &thread : threads)
        thread.join();
    return EXIT_SUCCESS;
}
