// Texts from a gateway or a command line, made fit for a terminal.
#ifndef RIXSTAT_TEXT_H
#define RIXSTAT_TEXT_H

#include <cstddef>
#include <string>

namespace rixstat {

// The text with everything escaped that could disturb a terminal: control characters and bytes that are not UTF-8
// become \xNN (line end, carriage return and tabulator \n, \r, \t), and a backslash becomes \\, so that the original
// can be told from the result.
std::string printable(const std::string &text);

// Number of characters of a printable text: what it takes on a terminal, but for wide and combining characters.
size_t displayWidth(const std::string &text);

} // namespace rixstat

#endif // RIXSTAT_TEXT_H
