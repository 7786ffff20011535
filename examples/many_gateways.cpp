// Asks many gateways at once, a thread for each, and prints one line a gateway: many_gateways HOST:PORT ...
//
// A connection belongs to the thread that opened it, so each thread opens, asks and closes its own; what it found out
// leaves the thread as a value.
#include <rixstats.hpp>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Report
{
    std::string gateway;
    std::error_code failure;
    std::size_t statistics = 0;
    std::string groups; // "Requests 12, Workers 7"
};

std::error_code ask(rixstats::connection &connection, Report &report)
{
    std::string groups;
    auto ids = connection.group_ids();
    if (std::error_code failure = ids.id_query(groups)) return failure;
    auto answer = connection.statistics_in_groups(groups); // from here on `ids` is history
    for (const auto &group : answer.groups()) {
        std::size_t count = 0;
        for (const rixstats::statistic &statistic : group)
            count += statistic.value.empty() ? 0 : 1;
        report.statistics += count;
        report.groups += (report.groups.empty() ? "" : ", ") + std::string(group.element()) + " " +
                         (group.failed() ? "failed" : std::to_string(count));
    }
    return answer.status();
}

void visit(Report &report)
{
    const std::size_t colon = report.gateway.rfind(':');
    const std::string host = report.gateway.substr(0, colon);
    const int port = colon == std::string::npos ? 2980 : std::atoi(report.gateway.c_str() + colon + 1);
    rixstats::connection connection;
    connection.time_limit(std::chrono::seconds(5)); // a gateway that is silent must not hold up the others' report
    report.failure = connection.open(host, port);
    if (!report.failure) report.failure = ask(connection, report);
} // closes the connection, and does not wait for a gateway that is silent

} // namespace

int main(int argc, char **argv)
{
    std::vector<Report> reports;
    for (int i = 1; i < argc; ++i)
        reports.push_back({argv[i], {}, 0, {}});

    std::vector<std::thread> threads;
    threads.reserve(reports.size());
    for (Report &report : reports)
        threads.emplace_back(visit, std::ref(report));
    for (std::thread &thread : threads)
        thread.join();

    int status = argc > 1 ? EXIT_SUCCESS : 2;
    for (const Report &report : reports) {
        if (report.failure) status = EXIT_FAILURE;
        std::cout << report.gateway << ": ";
        if (report.failure)
            std::cout << report.failure.message() << '\n';
        else
            std::cout << report.statistics << " statistics (" << report.groups << ")\n";
    }
    return status;
}
