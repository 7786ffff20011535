#include "text.h"

namespace rixstat {
namespace {

unsigned byteAt(const std::string &text, size_t position)
{
    return position < text.size() ? static_cast<unsigned char>(text[position]) : 0u;
}

// One row of the well-formed UTF-8 sequences: the range of the first and of the second byte, and the length.
struct Sequence
{
    unsigned firstLow, firstHigh, secondLow, secondHigh;
    size_t length;
};

// The first row leaves out U+0080 to U+009F, which terminals take for control characters.
constexpr Sequence sequences[] = {
    {0xC2, 0xC2, 0xA0, 0xBF, 2}, {0xC3, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool within(unsigned value, unsigned low, unsigned high)
{
    return value >= low && value <= high;
}

// Length of the printable character at a position, 0 where the byte there has to be escaped.
size_t characterLength(const std::string &text, size_t position)
{
    const unsigned first = byteAt(text, position);
    if (first < 0x80) return within(first, 0x20, 0x7E) ? 1 : 0;
    for (const Sequence &row : sequences) {
        if (!within(first, row.firstLow, row.firstHigh)) continue;
        bool good = within(byteAt(text, position + 1), row.secondLow, row.secondHigh);
        for (size_t i = 2; i < row.length; ++i)
            good = good && within(byteAt(text, position + i), 0x80, 0xBF);
        return good ? row.length : 0;
    }
    return 0;
}

std::string escaped(unsigned byte)
{
    switch (byte) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        static const char digits[] = "0123456789ABCDEF";
        return {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
}

} // namespace

std::string printable(const std::string &text)
{
    std::string result;
    for (size_t position = 0; position < text.size();) {
        const size_t length = characterLength(text, position);
        if (length == 0) {
            result += escaped(byteAt(text, position++));
            continue;
        }
        if (text[position] == '\\') result += '\\';
        result.append(text, position, length);
        position += length;
    }
    return result;
}

size_t displayWidth(const std::string &text)
{
    size_t width = 0;
    for (const char byte : text)
        if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) ++width; // not a continuation of a character
    return width;
}

} // namespace rixstat
