// Values are texts. Those that are numbers can be compared, subtracted and grouped; what is no number in the strict
// form below stays the text that it is.
#ifndef RIXSTAT_NUMBER_H
#define RIXSTAT_NUMBER_H

#include <cstdint>
#include <optional>
#include <string>

namespace rixstat {

struct Number
{
    double value;
    std::optional<std::int64_t> integer; // without decimals, and small enough to be exact
    int decimals;
};

// An optional minus, digits without needless zeros in front, optional decimals, optional exponent; nothing else.
std::optional<Number> parseNumber(const std::string &text);

// The first less the second, as a number and as a text: exact for integers, the text with the decimals of the one that
// has more.
double distance(const Number &minuend, const Number &subtrahend);
std::string difference(const Number &minuend, const Number &subtrahend);

// The number with so many decimals.
std::string fixed(double number, int decimals);

// The number's text with a comma between thousands; a text that is no number, as it is.
std::string withThousands(const std::string &text);

} // namespace rixstat

#endif // RIXSTAT_NUMBER_H
