// The C++ wrapper against a simulated gateway whose catalogue and scenario bindings_test.py writes; it is compiled with
// exceptions and without.
//
//     wrapper_test codes    prints name and message of each code that it is given on standard input
//     wrapper_test PORT     prints each expectation that is not met
#include <rixstats.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

int failures = 0;

void check(bool met, const char *expectation, int line)
{
    if (!met) std::fprintf(stderr, "wrapper_test.cpp:%d: not met: %s\n", line, expectation);
    failures += met ? 0 : 1;
}
#define CHECK(expectation) check(expectation, #expectation, __LINE__)

static_assert(!std::is_copy_constructible_v<rixstats::connection> &&
              !std::is_copy_constructible_v<rixstats::result_set>);
static_assert(std::is_nothrow_move_constructible_v<rixstats::connection>);
static_assert(std::is_nothrow_move_assignable_v<rixstats::result_set>);

// What algorithms ask of an input iterator beyond what the tests below do with it.
template <typename Iterator, typename Value = typename Iterator::value_type>
constexpr bool gives_its_value_on_the_way = std::is_convertible_v<decltype(*std::declval<Iterator &>()++), Value>;
static_assert(gives_its_value_on_the_way<rixstats::item_iterator<rixstats::statistic>>);
static_assert(gives_its_value_on_the_way<rixstats::group_iterator<rixstats::identifier>>);

template <typename Items>
std::string joined(Items &&items)
{
    std::string all;
    for (const auto &item : items)
        all += std::string(item.id) + " ";
    return all;
}

template <typename Answer>
std::string groupsOf(Answer &&answer)
{
    std::string all;
    for (const auto &group : answer.groups())
        all +=
            std::string(group.element()) + "=" + (group.failed() ? std::to_string(group.code()) : joined(group)) + ";";
    return all;
}

template <typename Function>
void inThread(Function function)
{
    std::thread(function).join();
}

void openingFails()
{
    rixstats::connection gateway;
    CHECK(gateway.open(0) == STAPI_BAD_PORT && gateway.open(nullptr, 1) == STAPI_NULL_HOSTNAME && !gateway.is_open());
    CHECK(gateway.open("127.0.0.1", 1) == std::errc::connection_refused);
    CHECK(gateway.statistics().status() == STAPI_NULL_GATEWAY_TOKEN && joined(gateway.ids()).empty());
}

void answersAreRanges(rixstats::connection &gateway)
{
    CHECK(gateway.protocol_version() == "2_0");
    auto groups = gateway.group_ids();
    CHECK(joined(groups) == "Requests Empty Workers " && joined(groups) == "Requests Empty Workers "); // starts over
    CHECK(std::count_if(groups.begin(), groups.end(), [](const auto &group) { return group.present(); }) == 3);
    CHECK(joined(gateway.ids_in_groups("Workers")) == "Workers_Busy ");
    CHECK(joined(gateway.ids()) == "Requests_Received Requests_Refused Workers_Busy ");

    auto some = gateway.statistics_in_groups("Requests:Requests:Nobody:Empty:Workers");
    const std::string requests = "Requests=Requests_Received Requests_Refused ;";
    CHECK(groupsOf(some) == requests + requests + "Nobody=-1;Empty=;Workers=Workers_Busy ;");
    const auto skipping = some.groups();
    CHECK(std::distance(skipping.begin(), skipping.end()) == 5);
    CHECK(std::count_if(some.begin(), some.end(), [](const auto &s) { return s.failed(); }) == 1 && !some.status());

    std::string query;
    CHECK(!some.id_query(query) && query.find("Requests_Refused:") != std::string::npos);
    auto named = gateway.statistics_by_id(query);
    auto place = named.begin();
    CHECK((*place++).id == "Requests_Received" && place->id == "Requests_Refused" && place->value == "2");
}

void copiesLiveOn(rixstats::connection &gateway)
{
    rixstats::result_set copy;
    CHECK(!copy && copy.statistics().status() == STAPI_NULL_RESULT_SET_TOKEN);
    CHECK(!gateway.group_ids().copy_to(copy) && !gateway.statistics().copy_to(copy)); // replaces the first
    CHECK(joined(gateway.group_ids()) == "Requests Empty Workers "); // fills the connection's result set anew
    rixstats::result_set kept = std::move(copy);
    inThread([&kept] { CHECK(joined(kept.statistics()) == "Requests_Received Requests_Refused Workers_Busy "); });
    auto ids = kept.ids();
    CHECK(joined(ids).empty() && ids.status() == STAPI_UNRECOGNISED_CONTENT);
}

void failuresAreTold(rixstats::connection &gateway, int port)
{
    inThread([&gateway] { CHECK(gateway.statistics().status() == STAPI_WRONG_THREAD); });
    auto ids = gateway.ids();
    inThread([&ids] { CHECK(joined(ids).empty() && ids.status() == STAPI_WRONG_THREAD); });
    rixstats::connection &itself = gateway;
    gateway = std::move(itself);
    CHECK(gateway.is_open());

    rixstats::connection other;
    CHECK(!other.open(port)); // the second connection of the scenario
    auto refused = other.statistics();
    rixstats::result_set copy;
    CHECK(refused.status() == STAPI_GATEWAY_EXCHANGE_FAILED && joined(refused).empty() && !other.is_open());
    CHECK(refused.copy_to(copy) == STAPI_GATEWAY_EXCHANGE_FAILED && !copy);
    CHECK(!other.open("127.0.0.1", port) && !other.statistics().status());
    gateway = std::move(other); // closes the first one
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is left behind is promised to be closed
    CHECK(!other.is_open() && gateway.is_open() && !gateway.statistics().status());
}

// The fourth connection of the scenario is silent when it is asked, the fifth one when it is told good-bye.
void silentGatewayHoldsNobodyUp(int port)
{
    using std::chrono::milliseconds;
    rixstats::connection gateway;
    CHECK(gateway.time_limit(milliseconds(-1)) == STAPI_BAD_TIME_LIMIT && gateway.time_limit() == milliseconds(0));
    CHECK(!gateway.time_limit(std::chrono::hours(1000)) && !gateway.open(port));
    CHECK(!gateway.time_limit(milliseconds(200)));
    const std::error_code failure = gateway.statistics().status();
    CHECK(failure == std::errc::timed_out && failure == STAPI_TIME_LIMIT_REACHED && !gateway.is_open());
    CHECK(rixstats::last_failure().step == RIX_STEP_QUERY);
    {
        rixstats::connection left;
        CHECK(!left.open(port));
    } // does not wait, as the alarm would tell
    rixstats::connection closed;
    CHECK(!closed.open(port));
    RIX_GatewayToken_t handle = closed.handle();
    CHECK(closeGatewayConnection(&handle) == STAPI_OK && closed.is_open());
    CHECK(closed.open(0) == STAPI_BAD_PORT && !closed.is_open());
    int limit = -1;
    CHECK(rixGetTimeLimit(&limit) == STAPI_OK && limit == 0);
}

void childLeavesTheConnectionAlone(rixstats::connection &gateway)
{
    const pid_t child = fork();
    if (child == 0) {
        gateway.close();
        _exit(0);
    }
    CHECK(waitpid(child, nullptr, 0) == child && !gateway.statistics().status());
}

void printCodes()
{
    for (int code = 0; std::cin >> code;)
        std::cout << rixstats::code_name(code) << '\t' << rixstats::error(code).message() << '\n';
}

} // namespace

int main(int, char **argv)
{
    if (argv[1] == std::string("codes")) {
        printCodes();
        return EXIT_SUCCESS;
    }
    const int port = std::atoi(argv[1]);
    alarm(300); // ends a test that waits for ever
    openingFails();
    rixstats::connection gateway;
    CHECK(!gateway.open(port));
    answersAreRanges(gateway);
    copiesLiveOn(gateway);
    failuresAreTold(gateway, port);
    silentGatewayHoldsNobodyUp(port);
    childLeavesTheConnectionAlone(gateway);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
