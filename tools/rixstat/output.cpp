#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace rixstat {

void prepareOutput()
{
    std::signal(SIGPIPE, SIG_IGN);
    // Opened the wrong way round, the stand-in answers reads and writes with an error, as a closed descriptor does.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void print(const std::string &text)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written) throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
}

void complain(const std::string &text)
{
    std::fprintf(stderr, "rixstat: %s\n", text.c_str());
}

} // namespace rixstat
