#include "query.h"

#include "codes.h"

#include <algorithm>

namespace rixstat {
namespace {

std::string joined(const std::vector<std::string> &ids)
{
    std::string text;
    for (const std::string &id : ids)
        text += (text.empty() ? "" : ":") + id;
    return text;
}

// How to ask for each content: the call for all, the call for some (none where the question takes no ids).
struct Question
{
    const char *step;
    int (*all)(RIX_GatewayToken_t, RIX_ResultSetToken_t *);
    int (*some)(RIX_GatewayToken_t, const char *, RIX_ResultSetToken_t *);
};

const Question &questionFor(Content content)
{
    static constexpr Question groups = {"asking for the resource groups", getResourceGroupIds, nullptr};
    static constexpr Question ids = {"asking for statistic ids", getStatIds, getStatIdsByStatGroupId};
    static constexpr Question values = {"asking for statistics", getStats, getStatsByStatId};
    return content == Content::groups ? groups : content == Content::ids ? ids : values;
}

std::string copyOf(const char *text, int length)
{
    return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

Item itemOf(const RIX_IdData_t &record)
{
    return {copyOf(record.queryElementPtr, record.queryElementLen), record.queryElementRC,
            copyOf(record.idPtr, record.idLen), ""};
}

Item itemOf(const RIX_StatData_t &record)
{
    return {copyOf(record.queryElementPtr, record.queryElementLen), record.queryElementRC,
            copyOf(record.statIdPtr, record.statIdLen), copyOf(record.statValuePtr, record.statValueLen)};
}

template <typename Record>
using ItemCall = int (*)(RIX_ResultSetToken_t, Record *);

template <typename Record>
std::vector<Item> walk(RIX_ResultSetToken_t results, ItemCall<Record> first, ItemCall<Record> next)
{
    std::vector<Item> items;
    Record record = {}; // a failed element leaves the item fields alone: cleared anew for each call
    int code = first(results, &record);
    while (code == STAPI_OK) {
        items.push_back(itemOf(record));
        record = {};
        code = next(results, &record);
    }
    if (code != STAPI_END_OF_RESULTS) throw Failure{"reading the answer", code};
    return items;
}

} // namespace

Gateway::Gateway(const std::string &host, int port)
{
    char *protocolVersion = nullptr;
    require(openRemoteGatewayConnection(host.c_str(), port, &token, &protocolVersion), "opening the connection");
}

Gateway::~Gateway()
{
    // A query may have ended the connection already: then there is nothing to close, and nothing to tell.
    closeGatewayConnection(&token);
}

RIX_ResultSetToken_t Gateway::ask(Content content, const std::vector<std::string> &ids)
{
    const Question &question = questionFor(content);
    RIX_ResultSetToken_t results = nullptr;
    require(ids.empty() ? question.all(token, &results) : question.some(token, joined(ids).c_str(), &results),
            question.step);
    return results;
}

Answer collect(Content content, RIX_ResultSetToken_t results)
{
    if (content == Content::values) return {content, walk<RIX_StatData_t>(results, getFirstStat, getNextStat)};
    return {content, walk<RIX_IdData_t>(results, getFirstId, getNextId)};
}

size_t countFailed(const Answer &answer)
{
    const auto failed = [](const Item &item) { return item.elementCode < 0; };
    return static_cast<size_t>(std::count_if(answer.items.begin(), answer.items.end(), failed));
}

} // namespace rixstat
