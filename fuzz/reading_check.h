// Holds the two ways of reading a reply against each other where both have to find the same.
#pragma once

namespace fuzzing {

// For a reply that holds to the structure of an object stream, in which no block ends anywhere but inside a statistic's
// value, nothing comes by reference, no response is without statistics and no length is above 32,767: the fixed skips
// must deliver the result set that the structure delivers. Other replies are left alone.
void checkReadings(bool identifiers, const char *callData, int callDataLen);

} // namespace fuzzing
