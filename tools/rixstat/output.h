// The viewer's standard output and standard error.
#ifndef RIXSTAT_OUTPUT_H
#define RIXSTAT_OUTPUT_H

#include <string>
#include <string_view>

namespace rixstat {

// Makes writing safe for the life of the process; to be called before anything is opened. A closed pipe becomes a
// write error instead of a signal, and a closed standard descriptor stays out of reach of the sockets and files that
// are opened later, so that a table can never be written into the connection.
void prepareOutput();

// Writes the whole text to standard output. False if the reader has gone, who wants no more: that is no failure. Throws
// std::system_error if any of it could not be written for another reason.
bool print(const std::string &text);

// Writes the whole text to a descriptor. The errno of the write that failed; 0: all is written. A signal handler
// may call it.
int writeAll(int descriptor, std::string_view text);

// Writes "rixstat: ", the text and a line end to standard error, at once.
void complain(const std::string &text);

} // namespace rixstat

#endif // RIXSTAT_OUTPUT_H
