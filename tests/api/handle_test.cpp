// Handles that name one connection for good, and what the trace says when another thread ended it.
#include "gateway_fixture.h"

#include <fcntl.h>

#include <set>

using namespace apitest;
using testing::HasSubstr;
using testing::Not;

namespace {

class HandleTest : public GatewayTest
{
protected:
    template <class Call>
    static std::string traceOf(int level, Call call)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(STAPI_OK, setAPITraceLevel(level));
        call();
        EXPECT_EQ(STAPI_OK, setAPITraceLevel(0));
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(HandleTest, AnEndedConnectionIsRefusedHoweverManyFollow)
{
    start();
    std::set<RIX_GatewayToken_t> ended;
    for (int round = 0; round < 60; round++) {
        std::vector<RIX_GatewayToken_t> open(20);
        for (RIX_GatewayToken_t &token : open) {
            ASSERT_EQ(STAPI_OK, connect());
            token = gateway;
            ASSERT_EQ(0u, ended.count(token)) << "after " << ended.size();
        }
        ended.insert(open.begin(), open.end());
        for (RIX_GatewayToken_t &token : open)
            ASSERT_EQ(STAPI_OK, closeGatewayConnection(&token));
    }
    ASSERT_EQ(STAPI_OK, connect());
    for (RIX_GatewayToken_t late : ended) {
        RIX_ResultSetToken_t none = nullptr;
        ASSERT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, getStats(late, &none));
        ASSERT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&late));
    }
    EXPECT_EQ("RIXGWTOK", std::string(gateway->eyecatcher, 8));
    EXPECT_FALSE(readStats(ask(kStats)).empty());
}

TEST_F(HandleTest, TheTextOfARefusedQueryIsShownUnlessItWentWithItsConnection)
{
    open();
    const RIX_GatewayToken_t ended = gateway;
    char *text = nullptr;
    ASSERT_EQ(STAPI_OK, getIdQuery(ask(kIds), &text));
    ASSERT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    RIX_ResultSetToken_t none = nullptr;
    EXPECT_THAT(traceOf(3, [&] { EXPECT_EQ(-101, getStatIdsByStatGroupId(ended, "Requests:Workers", &none)); }),
                HasSubstr("query=Requests:Workers,"));
    EXPECT_THAT(traceOf(3, [&] { EXPECT_EQ(-101, getStatIdsByStatGroupId(ended, text, &none)); }),
                HasSubstr("query=NULL,"));
}

TEST_F(HandleTest, AConnectionClosedWhileInUseIsNoDamageToTheList)
{
    rixgwsim::Options options = smallOptions();
    options.wholeReply = [](int flow, const rixgwsim::Bytes &) {
        EXPECT_TRUE(flow != 6 || closeAllGatewayConnections() == STAPI_OK) << "on the simulator's thread";
        return std::optional<rixgwsim::Bytes>();
    };
    start(options);
    const std::string trace = traceOf(4, [&] {
        ASSERT_EQ(STAPI_OK, connect());
        RIX_ResultSetToken_t none = nullptr;
        EXPECT_NE(STAPI_OK, getStats(gateway, &none));
    });
    EXPECT_THAT(trace, HasSubstr("[2034]"));
    EXPECT_THAT(trace, Not(HasSubstr("corrupt")));
    EXPECT_THAT(trace, Not(testing::ContainsRegex("\\[2012\\].*rc=-101")));
}

// In a child, which may lose its standard streams.
TEST_F(HandleTest, NoSocketBecomesAStandardStream)
{
    start();
    EXPECT_EQ(0, inChild([&] {
                  for (int desc = 0; desc <= 2; desc++)
                      close(desc);
                  if (connect() != STAPI_OK) return -1;
                  int wrong = gateway->socketDescriptor <= 2;
                  for (int desc = 0; desc <= 2; desc++)
                      wrong += fcntl(desc, F_GETFD) != -1;
                  return -wrong - (closeGatewayConnection(&gateway) != STAPI_OK);
              }));
}

} // namespace
