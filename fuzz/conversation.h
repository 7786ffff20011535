// A whole life of a connection, as a monitoring program leads it. The fuzz target plays it against bytes, the program
// that makes the first inputs against the gateway simulator: both in the same order of calls.
#pragma once

namespace fuzzing {

struct Conversation
{
    bool named; // ask for named groups and statistics instead of all, and close by closing all connections
    bool dumped;
};

// Opens a connection to 127.0.0.1, queries statistics and identifiers, uses both result sets, closes the connection.
// Ends early where a call fails, as it may. No connection is left.
void converse(const Conversation &conversation, int port);

} // namespace fuzzing
