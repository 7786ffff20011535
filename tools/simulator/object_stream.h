// Writes the call data of a query's reply as the gateway's Java virtual machine does: an object stream for each
// response, with class descriptions, block data and references to classes already described. Knows bytes only.
#pragma once

#include "wire.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rixgwsim {

struct Item
{
    std::string id;
    std::string value; // statistics only
};

// The answer to one element of the query; a negative code means that the element failed and has no items.
struct Response
{
    std::string element;
    std::int32_t code = 0;
    std::vector<Item> items;
};

enum class ReplyKind
{
    identifiers,
    statistics
};

struct StreamClass
{
    std::string name;
    std::uint64_t serialVersion;
};

// Several responses always travel as an array; one may as well be a single object.
enum class ReplyForm
{
    automatic, // the one response to an empty query as a single object, those to a named query as an array
    single,    // one response always as a single object
    array,     // always an array
};

// The freedom that the gateway has in writing a reply.
struct StreamStyle
{
    StreamClass identifierReply = {"com.yst.rix.stats.IdentifierReply", 0x1D2A44C7E05B9316};
    StreamClass statisticReply = {"com.yst.rix.stats.StatisticReply", 0x6E0F51B82C7D9A43};
    StreamClass replyBase = {"com.yst.rix.stats.Reply", 0x2B9C70E4A1D65F08};
    StreamClass statistic = {"com.yst.rix.stats.Statistic", 0x53F8162D0BA7C49E};
    std::size_t blockLimit = 1024; // longest block; 1024 is a virtual machine's, 0 makes one block of any length
    ReplyForm form = ReplyForm::automatic;
    std::uint8_t singleFlag = 0; // flag byte of the single form, any value but 1
};

// The form `automatic` is for the caller to decide; here it means `single`.
Bytes writeCallData(ReplyKind kind, const std::vector<Response> &responses, const StreamStyle &style);

// The size of the above without making it.
std::size_t callDataSize(ReplyKind kind, const std::vector<Response> &responses, const StreamStyle &style);

// The value of a bean attribute: a string object.
Bytes writeAttribute(const std::string &text);

} // namespace rixgwsim
