// What the user has written cannot be understood.
#ifndef RIXSTAT_USAGE_ERROR_H
#define RIXSTAT_USAGE_ERROR_H

#include <stdexcept>

namespace rixstat {

// A command line or configuration file that cannot be understood; what() says why, in one line.
struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

} // namespace rixstat

#endif // RIXSTAT_USAGE_ERROR_H
