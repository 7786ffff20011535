// From a connection to rows: opens the gateway, asks a question, collects the items of the answer. Knows nothing of
// command lines and output forms. Failures of the library are thrown as Failure (codes.h).
#ifndef RIXSTAT_QUERY_H
#define RIXSTAT_QUERY_H

#include <rixstats.h>

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

struct Answer
{
    Content content;
    std::vector<Item> items;
};

// An open connection, closed at the end of its scope.
class Gateway
{
public:
    Gateway(const std::string &host, int port);
    ~Gateway();
    Gateway(const Gateway &) = delete;
    Gateway &operator=(const Gateway &) = delete;

    // Asks about the given ids (groups for Content::ids), or about all when there are none. The result set is the
    // connection's own: it lives until the next question.
    RIX_ResultSetToken_t ask(Content content, const std::vector<std::string> &ids);

private:
    RIX_GatewayToken_t token = nullptr;
};

// Walks the answer to a question and copies its items.
Answer collect(Content content, RIX_ResultSetToken_t results);

// Number of elements in an answer that the gateway could not answer.
size_t countFailed(const Answer &answer);

} // namespace rixstat

#endif // RIXSTAT_QUERY_H
