#include "session.h"

#include "codes.h"
#include "reason.h"

#include <memory>
#include <thread>

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

Session::Session(Guard &givenGuard, TraceTap &givenTap, const Settings &givenSettings, Listening how)
    : guard(givenGuard), tap(givenTap), settings(givenSettings), listening(how)
{
}

// After a failure the good-bye gets a moment, no more: the end of the process ends the connection, too.
Session::~Session()
{
    if (!isOpen()) return;
    beginClose();
    closed.wait_for(std::chrono::milliseconds(200));
}

void Session::run(const std::string &step, const std::function<int()> &call)
{
    tap.listen(static_cast<int>(listening));
    const Guard::Outcome outcome = guard.run(step, call);
    const bool good = outcome.ending == Guard::Ending::itself && outcome.code == STAPI_OK;
    heard = tap.heard(!good || listening == Listening::steps);
    if (good) return;
    const Failure failure = explain(step, outcome.code, heard);
    if (outcome.ending == Guard::Ending::timedOut || failure.cause != Cause::here) token = nullptr;
    if (outcome.ending == Guard::Ending::timedOut)
        throw timeOut(step, outcome.code != STAPI_OK ? outcome.code : STAPI_COMMS_FAILURE, settings);
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

// Nothing ends the wait for the answer, so another thread does the waiting, which nobody has to wait for.
void Session::beginClose()
{
    std::promise<void> promise;
    closed = promise.get_future();
    std::thread([old = token, done = std::move(promise)]() mutable {
        closeGatewayConnection(&old);
        done.set_value();
    }).detach();
    token = nullptr;
}

void Session::endClose()
{
    if (!guard.await(closed)) throw timeOut("closing the connection", STAPI_COMMS_FAILURE, settings);
}

Items collect(Content content, RIX_ResultSetToken_t results)
{
    if (content == Content::values) return walk<RIX_StatData_t>(results, getFirstStat, getNextStat);
    return walk<RIX_IdData_t>(results, getFirstId, getNextId);
}

} // namespace rixstat
