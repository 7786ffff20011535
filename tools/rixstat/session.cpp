#include "session.h"

#include "codes.h"
#include "interrupt.h"

#include <rixstats_ext.h>

#include <chrono>
#include <cmath>

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
Items walk(RIX_ResultSetToken_t results, ItemCall<Record> first, ItemCall<Record> next)
{
    Items items;
    Record record = {}; // a failed element leaves the item fields alone: cleared anew for each call
    int code = first(results, &record);
    while (code == STAPI_OK) {
        items.push_back(itemOf(record));
        record = {};
        code = next(results, &record);
    }
    if (code != STAPI_END_OF_RESULTS) require(code, "reading the answer");
    return items;
}

} // namespace

Session::Session(const Settings &givenSettings) : settings(givenSettings)
{
    require(rixSetTimeLimit(milliseconds()), "setting the time limit");
}

int Session::milliseconds() const
{
    return static_cast<int>(std::lround(settings.timeout * 1000));
}

// After a failure the good-bye gets a moment, no more.
Session::~Session()
{
    if (!isOpen()) return;
    rixSetTimeLimit(200);
    closeGatewayConnection(&token);
}

void Session::run(const std::string &step, const std::function<int()> &call)
{
    int code = STAPI_OK;
    {
        const WaitingForGateway waiting;
        code = call();
    }
    if (code == STAPI_OK) return;
    const Failure failure = explain(step, code, settings);
    if (failure.cause != Cause::here) token = nullptr;
    throw failure;
}

void Session::open()
{
    char *text = nullptr;
    run("opening the connection",
        [&] { return openRemoteGatewayConnection(settings.host.c_str(), settings.port, &token, &text); });
    version = text;
}

RIX_ResultSetToken_t Session::ask(Content content, const std::vector<std::string> &ids)
{
    const Question &question = questionFor(content);
    const std::string query = joined(ids);
    RIX_ResultSetToken_t results = nullptr;
    run(question.step,
        [&] { return ids.empty() ? question.all(token, &results) : question.some(token, query.c_str(), &results); });
    return results;
}

// The call succeeds, answered or not: only the time that it has taken tells.
void Session::close()
{
    using Clock = std::chrono::steady_clock;
    const std::string step = "closing the connection";
    const Clock::time_point start = Clock::now();
    run(step, [&] { return closeGatewayConnection(&token); });
    token = nullptr;
    if (Clock::now() - start >= std::chrono::milliseconds(milliseconds())) throw timeOut(step, settings);
}

Items collect(Content content, RIX_ResultSetToken_t results)
{
    if (content == Content::values) return walk<RIX_StatData_t>(results, getFirstStat, getNextStat);
    return walk<RIX_IdData_t>(results, getFirstId, getNextId);
}

} // namespace rixstat
