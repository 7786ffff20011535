#include "number.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace rixstat {
namespace {

constexpr size_t exactDigits = 18; // of an integer that fits 64 bits for certain

// Moves the position behind the digits there; false if there are none.
bool skipDigits(const std::string &text, size_t &position)
{
    const size_t start = position;
    position = std::min(text.find_first_not_of("0123456789", position), text.size());
    return position > start;
}

bool skipExponent(const std::string &text, size_t &position)
{
    ++position;
    if (position < text.size() && (text[position] == '+' || text[position] == '-')) ++position;
    return skipDigits(text, position);
}

} // namespace

std::optional<Number> parseNumber(const std::string &text)
{
    const size_t first = !text.empty() && text[0] == '-' ? 1 : 0;
    size_t position = first;
    if (!skipDigits(text, position)) return {};
    const size_t digits = position - first;
    if (digits > 1 && text[first] == '0') return {};
    Number number = {0, {}, 0};
    if (position < text.size() && text[position] == '.') {
        const size_t point = position++;
        if (!skipDigits(text, position)) return {};
        number.decimals = static_cast<int>(position - point - 1);
    }
    const bool plain = position == text.size();
    if (!plain && (text[position] == 'e' || text[position] == 'E') && !skipExponent(text, position)) return {};
    if (position != text.size()) return {};
    number.value = std::strtod(text.c_str(), nullptr);
    const bool zero = text.find_first_of("123456789") >= std::min(text.find_first_of("eE"), text.size());
    if (!std::isfinite(number.value) || (number.value == 0 && !zero)) return {}; // too large, or too small
    if (plain && number.decimals == 0 && digits <= exactDigits)
        number.integer = std::strtoll(text.c_str(), nullptr, 10);
    return number;
}

double distance(const Number &minuend, const Number &subtrahend)
{
    if (minuend.integer && subtrahend.integer) return static_cast<double>(*minuend.integer - *subtrahend.integer);
    return minuend.value - subtrahend.value + 0.0; // no minus zero
}

std::string difference(const Number &minuend, const Number &subtrahend)
{
    if (minuend.integer && subtrahend.integer) return std::to_string(*minuend.integer - *subtrahend.integer);
    return fixed(distance(minuend, subtrahend), std::max(minuend.decimals, subtrahend.decimals));
}

std::string fixed(double number, int decimals)
{
    const int size = std::snprintf(nullptr, 0, "%.*f", decimals, number);
    std::string text(static_cast<size_t>(size) + 1, '\0');
    std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
    text.pop_back();
    return text;
}

std::string withThousands(const std::string &text)
{
    if (!parseNumber(text)) return text;
    const size_t first = text[0] == '-' ? 1 : 0;
    std::string result = text;
    for (size_t end = std::min(text.find_first_of(".eE"), text.size()); end > first + 3; end -= 3)
        result.insert(end - 3, ",");
    return result;
}

} // namespace rixstat
