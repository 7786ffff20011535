// Texts from a gateway or a command line, made fit for a terminal, and numbers made fit for people.
#ifndef RIXSTAT_TEXT_H
#define RIXSTAT_TEXT_H

#include <cstddef>
#include <string>

namespace rixstat {

// The text with everything escaped that could disturb a terminal: control characters and bytes that are not UTF-8
// become \xNN (line end, carriage return and tabulator \n, \r, \t), and a backslash becomes \\, so that the original
// can be told from the result.
std::string printable(const std::string &text);

// Columns that a printable text takes on a terminal.
size_t displayWidth(const std::string &text);

// The text, brought to at most so many columns; one that was longer ends with an ellipsis.
std::string cut(const std::string &text, size_t width);

// Whether the terminal takes more than ASCII.
bool speaksUtf8();

// Whether the text is matched by a pattern, in which * stands for any characters and ? for one.
bool matchesPattern(const std::string &text, const std::string &pattern);

// 10, 0.5: a number without needless zeros.
std::string shortNumber(double number);

} // namespace rixstat

#endif // RIXSTAT_TEXT_H
