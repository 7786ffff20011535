// A connection is of the process that opened it, also behind a second fork, and however often the process id has been asked
// for before: each process notices that it is another one.
#include "gateway_fixture.h"

#include <atomic>

namespace {

using namespace apitest;

class ForkTest : public GatewayTest
{
protected:
    struct Opened
    {
        RIX_GatewayToken_t token;
        RIX_ResultSetToken_t resultSet;
    };
    struct Pair
    {
        Opened ids, stats;
    };

    Opened openAndAsk(const Query &query)
    {
        if (connect() != STAPI_OK) throw std::runtime_error("cannot open a connection");
        return {gateway, ask(query)};
    }
    Pair openPair() { return {openAndAsk(kIds), openAndAsk(kStats)}; }

    // The queries and steps of a walk that do not have the given result.
    static int countUnlike(int expected, const Pair &pair)
    {
        int count = 0;
        RIX_IdData_t id;
        RIX_StatData_t stat;
        for (const auto read : {getFirstId, getNextId})
            count += read(pair.ids.resultSet, &id) != expected;
        for (const auto read : {getFirstStat, getNextStat})
            count += read(pair.stats.resultSet, &stat) != expected;
        for (const Opened &opened : {pair.ids, pair.stats})
            for (const Query &query : kQueries) {
                RIX_ResultSetToken_t resultSet = nullptr;
                count += query.ask(opened.token, "Workers", &resultSet) != expected;
                count += (resultSet != nullptr) != (expected == STAPI_OK);
            }
        // The queries have left results of the other kind.
        askAgain(pair.ids, kIds, expected, &count);
        askAgain(pair.stats, kStats, expected, &count);
        return count;
    }

private:
    static void askAgain(const Opened &connection, const Query &query, int expected, int *count)
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        *count += query.ask(connection.token, "", &resultSet) != expected;
    }
};

TEST_F(ForkTest, NeitherAChildNorItsChildMayUseAConnectionThatWasOpenedBefore)
{
    start();
    const Pair ours = openPair();
    EXPECT_EQ(0, countUnlike(STAPI_OK, ours));
    const int wrong = inChild([&] {
        int count = countUnlike(STAPI_WRONG_PROCESS, ours);
        const Pair childs = openPair();
        count += countUnlike(STAPI_OK, childs) + countUnlike(STAPI_WRONG_PROCESS, ours);
        count -=
            inChild([&] { return -countUnlike(STAPI_WRONG_PROCESS, ours) - countUnlike(STAPI_WRONG_PROCESS, childs); });
        count += countUnlike(STAPI_OK, childs); // another process has not taken them over
        for (RIX_GatewayToken_t token : {childs.ids.token, childs.stats.token})
            count += closeGatewayConnection(&token) != STAPI_OK;
        return -count;
    });
    EXPECT_EQ(0, wrong) << "calls in a child and its child";
    EXPECT_EQ(0, countUnlike(STAPI_OK, ours)) << "the parent's own";
}

// Its requests would come between those of the parent, and a socket that it shut down would be shut in both.
TEST_F(ForkTest, AChildClosesWhatItInheritedWithoutAWordToTheGateway)
{
    start();
    const Pair ours = openPair();
    const std::size_t requests = simulator->requests().size();
    const int wrong = inChild([&] {
        const std::ptrdiff_t before = countDescriptors();
        RIX_GatewayToken_t token = ours.ids.token;
        int count = closeGatewayConnection(&token) != STAPI_OK || token != nullptr;
        count += closeAllGatewayConnections() != STAPI_OK;
        return -count - static_cast<int>(countDescriptors() != before - 2);
    });
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(requests, simulator->requests().size());
    EXPECT_EQ(0, countUnlike(STAPI_OK, ours)) << "the parent's own";
}

// Also while other threads query, close and trace. (Not while they open: the C library's resolver has locks of its own.)
TEST_F(ForkTest, AChildForkedAtAnyMomentOpensItsOwnAndClosesAll)
{
    start();
    const int port = simulator->port();
    const auto opened = [port] {
        RIX_GatewayToken_t token = nullptr;
        char *text = nullptr;
        EXPECT_EQ(STAPI_OK, openGatewayConnection(port, &token, &text));
        return token;
    };
    std::atomic<int> ready{0}, failures{0};
    std::atomic<bool> end{false};
    std::vector<std::thread> users;
    for (int i = 0; i < 4; i++)
        users.emplace_back([&] {
            RIX_GatewayToken_t tokens[50];
            for (RIX_GatewayToken_t &token : tokens)
                token = opened();
            for (++ready; ready < 5;)
                std::this_thread::yield();
            for (RIX_GatewayToken_t &token : tokens) {
                RIX_ResultSetToken_t stats = nullptr;
                for (int query = 0; query < 10 && !end; query++)
                    failures += getStats(token, &stats) != STAPI_OK;
                failures += closeGatewayConnection(&token) != STAPI_OK;
            }
        });
    while (ready < 4)
        std::this_thread::yield();
    EXPECT_EQ(STAPI_OK, setAPITraceFile("/dev/null"));
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(4));
    ++ready;
    for (int i = 0; i < 40; i++)
        EXPECT_EQ(0, inChild([&] {
                      alarm(20); // ends a child that waits for a lock
                      RIX_ResultSetToken_t stats = nullptr;
                      int count = dumpState() != STAPI_OK;
                      count += getStats(opened(), &stats) != STAPI_OK;
                      count += closeAllGatewayConnections() != STAPI_OK;
                      return -count;
                  }));
    end = true;
    for (std::thread &user : users)
        user.join();
    EXPECT_EQ(0, failures) << "the parent's threads are disturbed by nothing";
}

} // namespace
