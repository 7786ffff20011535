// One gateway: opening a connection, asking questions on it, saying good-bye, each within the time limit. Knows nothing
// of command lines and output forms. What fails is thrown as Failure (codes.h) or Interrupted (guard.h).
#ifndef RIXSTAT_SESSION_H
#define RIXSTAT_SESSION_H

#include "guard.h"
#include "settings.h"
#include "trace_tap.h"

#include <rixstats.h>

#include <functional>
#include <future>
#include <string>
#include <vector>

namespace rixstat {

// What can be asked, and so what the items of an answer are.
enum class Content
{
    groups, // resource group ids
    ids,    // statistic ids
    values  // statistics
};

// One item of an answer, or one element that failed or has no items.
struct Item
{
    std::string element;
    int elementCode = 0; // negative: the gateway could not answer this element; id and value are empty
    std::string id;
    std::string value;
};

using Items = std::vector<Item>;

// How much of the library's trace is listened to for the reasons of failures.
enum class Listening
{
    brief = 1,    // costs nothing while all goes well
    thorough = 3, // costs some microseconds for each statistic
    steps = 4     // tells the steps of an opening apart, too
};

class Session
{
public:
    Session(Guard &guard, TraceTap &tap, const Settings &settings, Listening listening);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void open();
    bool isOpen() const { return token != nullptr; }
    const std::string &protocolVersion() const { return version; }

    // Asks about the given ids (groups for Content::ids), or about all when there are none. The result set is the
    // connection's own: it lives until the next question.
    RIX_ResultSetToken_t ask(Content content, const std::vector<std::string> &ids);

    // The good-bye takes as long as the gateway takes to answer it: it can be begun, and ended when there is nothing
    // else to do. To do both is the polite end of a session.
    void beginClose();
    void endClose();

    // What the library traced in the last call.
    const std::vector<TraceLine> &trace() const { return heard; }
    // For the calls to come.
    void listen(Listening how) { listening = how; }

private:
    void run(const std::string &step, const std::function<int()> &call);

    Guard &guard;
    TraceTap &tap;
    const Settings &settings;
    Listening listening;
    RIX_GatewayToken_t token = nullptr;
    std::string version;
    std::future<void> closed;
    std::vector<TraceLine> heard;
};

// Walks the answer to a question and copies its items.
Items collect(Content content, RIX_ResultSetToken_t results);

} // namespace rixstat

#endif // RIXSTAT_SESSION_H
