// One gateway: opening a connection, asking questions on it, saying good-bye, each within the time limit. Knows nothing
// of command lines and output forms. What fails is thrown as Failure (codes.h) or Interrupted (interrupt.h).
#ifndef RIXSTAT_SESSION_H
#define RIXSTAT_SESSION_H

#include "settings.h"

#include <rixstats.h>

#include <functional>
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

class Session
{
public:
    explicit Session(const Settings &settings);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void open();
    bool isOpen() const { return token != nullptr; }
    const std::string &protocolVersion() const { return version; }

    // Asks about the given ids (groups for Content::ids), or about all when there are none. The result set is the
    // connection's own: it lives until the next question.
    RIX_ResultSetToken_t ask(Content content, const std::vector<std::string> &ids);

    // Says good-bye, the polite end of a session. The connection is closed also where the gateway has not answered.
    void close();

private:
    int milliseconds() const; // that each call may take
    void run(const std::string &step, const std::function<int()> &call);

    const Settings &settings;
    RIX_GatewayToken_t token = nullptr;
    std::string version;
};

// Walks the answer to a question and copies its items.
Items collect(Content content, RIX_ResultSetToken_t results);

} // namespace rixstat

#endif // RIXSTAT_SESSION_H
