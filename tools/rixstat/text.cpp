#include "text.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <langinfo.h>

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

// What reorders, breaks or hides the text around it. Joiners (U+200C, U+200D) are left to the scripts that need them.
struct Disguise
{
    const char *first, *last;
};

constexpr Disguise disguises[] = {
    {"\u00AD", "\u00AD"}, {"\u061C", "\u061C"},         {"\u180E", "\u180E"}, {"\u200B", "\u200B"},
    {"\u200E", "\u200F"}, {"\u2028", "\u202E"},         {"\u2060", "\u206F"}, {"\uFEFF", "\uFEFF"},
    {"\uFFF9", "\uFFFB"}, {"\U000E0001", "\U000E007F"},
};

// In UTF-8 the order of the bytes is that of the characters.
bool isDisguise(const std::string &character)
{
    for (const Disguise &range : disguises)
        if (character >= range.first && character <= range.last) return true;
    return false;
}

// Length of the well-formed character at a position, 0 where there is none.
size_t sequenceLength(const std::string &text, size_t position)
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

// Length of the printable character at a position, 0 where the byte there has to be escaped.
size_t characterLength(const std::string &text, size_t position)
{
    const size_t length = sequenceLength(text, position);
    return length > 1 && isDisguise(text.substr(position, length)) ? 0 : length;
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

namespace {

// The code point of the well-formed sequence at the start of the text.
wchar_t codePoint(const char *text, size_t length)
{
    const unsigned first = static_cast<unsigned char>(text[0]);
    if (length == 1) return static_cast<wchar_t>(first);
    unsigned point = first & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i)
        point = point << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
    return static_cast<wchar_t>(point);
}

// The length and the columns of the character at a position of a printable text.
struct Extent
{
    size_t bytes;
    size_t columns;
};

Extent extentAt(const std::string &text, size_t position)
{
    const size_t bytes = characterLength(text, position);
    if (bytes <= 1) return {1, 1};
    const int columns = wcwidth(codePoint(text.data() + position, bytes)); // negative: the locale does not know it
    return {bytes, columns < 0 ? 1 : static_cast<size_t>(columns)};
}

} // namespace

size_t displayWidth(const std::string &text)
{
    size_t width = 0;
    for (size_t position = 0; position < text.size();) {
        const Extent extent = extentAt(text, position);
        position += extent.bytes;
        width += extent.columns;
    }
    return width;
}

std::string cut(const std::string &text, size_t width)
{
    if (displayWidth(text) <= width) return text;
    if (width == 0) return {};
    size_t position = 0, used = 0;
    for (Extent extent = extentAt(text, 0); used + extent.columns < width; extent = extentAt(text, position)) {
        position += extent.bytes;
        used += extent.columns;
    }
    return text.substr(0, position) + (speaksUtf8() ? "\u2026" : "~");
}

bool speaksUtf8()
{
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

bool matchesPattern(const std::string &text, const std::string &pattern)
{
    size_t at = 0, in = 0, star = std::string::npos, resume = 0;
    while (at < text.size()) {
        if (in < pattern.size() && (pattern[in] == '?' || (pattern[in] == text[at] && pattern[in] != '*'))) {
            ++at;
            ++in;
        } else if (in < pattern.size() && pattern[in] == '*') {
            star = in++;
            resume = at;
        } else if (star != std::string::npos) { // the last star stands for one character more
            in = star + 1;
            at = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', in) == std::string::npos;
}

std::string shortNumber(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    return text;
}

} // namespace rixstat
