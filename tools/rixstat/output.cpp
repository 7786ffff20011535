#include "output.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace rixstat {

int writeAll(int descriptor, std::string_view text)
{
    for (size_t written = 0; written < text.size();) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count >= 0) {
            written += static_cast<size_t>(count);
        } else if (errno == EAGAIN) { // another program has made the shared terminal non-blocking
            pollfd ready = {descriptor, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void prepareOutput()
{
    std::signal(SIGPIPE, SIG_IGN);
    // Opened the wrong way round, the stand-in answers reads and writes with an error, as a closed descriptor does.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

bool print(const std::string &text)
{
    const int error = writeAll(STDOUT_FILENO, text);
    if (error == 0) return true;
    if (error == EPIPE) return false;
    throw std::system_error(error, std::generic_category(), "cannot write to standard output");
}

void complain(const std::string &text)
{
    writeAll(STDERR_FILENO, "rixstat: " + text + "\n");
}

} // namespace rixstat
