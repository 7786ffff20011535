// Replies that a Java virtual machine wrote, through the exported calls: their content item by item.
#include "gateway_fixture.h"

#include <nlohmann/json.hpp>

namespace {

using namespace apitest;

class GenuineReplies : public GatewayTest
{
protected:
    // Has the simulated gateway answer every query, or every call at all, with the call data of a file.
    void serve(const std::filesystem::path &file, bool queriesOnly)
    {
        std::ifstream data(file, std::ios::binary);
        const rixgwsim::Bytes callData{std::istreambuf_iterator<char>(data), {}};
        rixgwsim::Options options;
        options.callData = [callData, queriesOnly](const rixgwsim::Request &request) {
            return queriesOnly && request.action.empty() ? std::nullopt : std::optional(callData);
        };
        open(std::move(options));
    }

    static Walk contentOf(const nlohmann::json &reply)
    {
        Walk items;
        for (const auto &response : reply["responses"]) {
            const std::string head = response["element"].get<std::string>() + "(" + response["code"].dump() + ")";
            if (response["code"] < 0) items.push_back(head);
            for (const auto &id : response.value("ids", nlohmann::json::array()))
                items.push_back(head + " " + id.get<std::string>());
            for (const auto &stat : response.value("stats", nlohmann::json::array()))
                items.push_back(head + " " + stat["id"].get<std::string>() + "=" + stat["value"].get<std::string>());
            const bool none = response.value("ids", nlohmann::json::array()).empty() &&
                              response.value("stats", nlohmann::json::array()).empty();
            if (response["code"] >= 0 && none) items.push_back(head + (reply["category"] == "RIXIDSET" ? " " : " ="));
        }
        return items;
    }
};

TEST_F(GenuineReplies, GiveTheirContentItemByItem)
{
    int replies = 0;
    for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA_DIR "/streams")) {
        if (entry.path().extension() != ".json" || entry.path().stem() == "attr-version") continue;
        SCOPED_TRACE(entry.path().stem());
        std::ifstream content(entry.path());
        const nlohmann::json reply = nlohmann::json::parse(content);
        serve(std::filesystem::path(entry.path()).replace_extension(".bin"), true);
        RIX_ResultSetToken_t rs = nullptr;
        if (reply["category"] == "RIXIDSET") {
            ASSERT_EQ(STAPI_OK, getStatIds(gateway, &rs));
            EXPECT_EQ(contentOf(reply), readIds(rs));
        } else {
            ASSERT_EQ(STAPI_OK, getStats(gateway, &rs));
            EXPECT_EQ(contentOf(reply), readStats(rs));
        }
        replies++;
    }
    EXPECT_EQ(25, replies);
}

TEST_F(GenuineReplies, GiveTheProtocolVersion)
{
    serve(TEST_DATA_DIR "/streams/attr-version.bin", false);
    EXPECT_STREQ("2_0", version);
}

} // namespace
