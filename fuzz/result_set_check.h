// Uses a result set as a monitoring program does, by the exported calls alone, and looks into the token and the buffer
// behind it to see that nothing handed out lies outside. What does not hold ends the process, see require.h.
#pragma once

#include "rixstats.h"

namespace fuzzing {

// Walks an unread result set by all calls of its kind, makes a query text of it, copies it, walks and frees the copy.
// It may be walked once more afterwards, and freed.
void checkResultSet(RIX_ResultSetToken_t resultSet);

} // namespace fuzzing
