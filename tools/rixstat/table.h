// The table form of an answer: aligned columns under a header row, for people.
#ifndef RIXSTAT_TABLE_H
#define RIXSTAT_TABLE_H

#include "query.h"

#include <string>

namespace rixstat {

std::string formatTable(const Answer &answer);

} // namespace rixstat

#endif // RIXSTAT_TABLE_H
