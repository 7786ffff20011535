#include "object_stream.h"

#include <algorithm>

namespace rixgwsim {

namespace {

constexpr unsigned kObject = 0x73;
constexpr unsigned kClassDescription = 0x72;
constexpr unsigned kReference = 0x71;
constexpr unsigned kString = 0x74;
constexpr unsigned kBlock = 0x77;
constexpr unsigned kLongBlock = 0x7A;
constexpr unsigned kEnd = 0x78;
constexpr unsigned kNull = 0x70;
constexpr unsigned kWritesItselfInBlocks = 0x0C; // class flags: externalizable, by block data
constexpr std::size_t kLongestShortBlock = 255;

// Objects and classes are numbered as they appear in a stream, and each response is a stream of its own: 0 is the
// class of the reply, 1 its base class, 2 the reply itself, so 3 is always the class of the statistics.
constexpr std::uint32_t kStatisticClassHandle = 0x007E0003;

void appendStreamHeader(Bytes &out)
{
    appendU16(out, 0xACED);
    appendU16(out, 5);
}

// Up to where the superclass is named.
void appendClass(Bytes &out, const StreamClass &described)
{
    appendU8(out, kClassDescription);
    appendText(out, described.name);
    appendU64(out, described.serialVersion);
    appendU8(out, kWritesItselfInBlocks);
    appendU16(out, 0); // no fields
    appendU8(out, kEnd);
}

std::size_t blockHeaderSize(std::size_t length)
{
    return length <= kLongestShortBlock ? 2 : 5;
}

void appendBlocks(Bytes &out, const Bytes &payload, std::size_t limit)
{
    const std::size_t longest = limit != 0 ? limit : payload.size();
    for (std::size_t done = 0; done < payload.size();) {
        const std::size_t length = std::min(longest, payload.size() - done);
        if (length <= kLongestShortBlock) {
            appendU8(out, kBlock);
            appendU8(out, static_cast<unsigned>(length));
        } else {
            appendU8(out, kLongBlock);
            appendU32(out, static_cast<std::uint32_t>(length));
        }
        const auto from = payload.begin() + static_cast<std::ptrdiff_t>(done);
        out.insert(out.end(), from, from + static_cast<std::ptrdiff_t>(length));
        done += length;
    }
}

std::size_t blocksSize(std::size_t payload, std::size_t limit)
{
    const std::size_t longest = limit != 0 ? limit : std::max<std::size_t>(payload, 1);
    const std::size_t rest = payload % longest;
    return payload + payload / longest * blockHeaderSize(longest) + (rest != 0 ? blockHeaderSize(rest) : 0);
}

void appendStatistics(Bytes &out, const std::vector<Item> &statistics, const StreamStyle &style)
{
    bool classKnown = false;
    for (const Item &statistic : statistics) {
        appendU8(out, kObject);
        if (classKnown) {
            appendU8(out, kReference);
            appendU32(out, kStatisticClassHandle);
        } else {
            appendClass(out, style.statistic);
            appendU8(out, kNull);
            classKnown = true;
        }
        Bytes payload;
        appendText(payload, statistic.id);
        appendText(payload, statistic.value);
        appendBlocks(out, payload, style.blockLimit);
        appendU8(out, kEnd);
    }
}

void appendResponse(Bytes &out, ReplyKind kind, const Response &response, const StreamStyle &style)
{
    appendStreamHeader(out);
    appendU8(out, kObject);
    appendClass(out, kind == ReplyKind::statistics ? style.statisticReply : style.identifierReply);
    appendClass(out, style.replyBase);
    appendU8(out, kNull);

    Bytes payload;
    appendText(payload, response.element);
    appendI32(payload, response.code);
    if (response.code >= 0) {
        appendU32(payload, static_cast<std::uint32_t>(response.items.size()));
        if (kind == ReplyKind::identifiers)
            for (const Item &identifier : response.items)
                appendText(payload, identifier.id);
    }
    appendBlocks(out, payload, style.blockLimit);
    if (response.code >= 0 && kind == ReplyKind::statistics) appendStatistics(out, response.items, style);
    appendU8(out, kEnd);
}

std::size_t classSize(const StreamClass &described)
{
    return 15 + described.name.size();
}

std::size_t responseSize(ReplyKind kind, const Response &response, const StreamStyle &style)
{
    const StreamClass &reply = kind == ReplyKind::statistics ? style.statisticReply : style.identifierReply;
    std::size_t size = 7 + classSize(reply) + classSize(style.replyBase);
    std::size_t payload = 6 + response.element.size();
    if (response.code >= 0) {
        payload += 4;
        for (const Item &item : response.items) {
            if (kind == ReplyKind::identifiers)
                payload += 2 + item.id.size();
            else
                size += 7 + blocksSize(4 + item.id.size() + item.value.size(), style.blockLimit);
        }
        if (kind == ReplyKind::statistics && !response.items.empty())
            size += classSize(style.statistic) - 4; // the first one describes the class, the others refer to it
    }
    return size + blocksSize(payload, style.blockLimit);
}

bool asArray(const std::vector<Response> &responses, const StreamStyle &style)
{
    return responses.size() != 1 || style.form == ReplyForm::array;
}

} // namespace

Bytes writeCallData(ReplyKind kind, const std::vector<Response> &responses, const StreamStyle &style)
{
    Bytes out;
    if (asArray(responses, style)) {
        appendU8(out, 1);
        appendU32(out, static_cast<std::uint32_t>(responses.size()));
    } else {
        appendU8(out, style.singleFlag);
    }
    for (const Response &response : responses)
        appendResponse(out, kind, response, style);
    return out;
}

std::size_t callDataSize(ReplyKind kind, const std::vector<Response> &responses, const StreamStyle &style)
{
    std::size_t size = asArray(responses, style) ? 5 : 1;
    for (const Response &response : responses)
        size += responseSize(kind, response, style);
    return size;
}

Bytes writeAttribute(const std::string &text)
{
    Bytes out;
    appendU8(out, 0);
    appendStreamHeader(out);
    appendU8(out, kString);
    appendText(out, text);
    return out;
}

} // namespace rixgwsim
