#include "trace.h"

#include "codes.h"
#include "interrupt.h"
#include "output.h"

#include <rixstats.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace rixstat {
namespace {

constexpr int levelOfSteps = 4;

const char *fileName(const Settings &settings)
{
    return settings.traceFile.empty() ? nullptr : settings.traceFile.c_str();
}

std::string contentOf(int descriptor)
{
    std::string text;
    char block[4096];
    ssize_t size = 0;
    while ((size = pread(descriptor, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<size_t>(size));
    return text;
}

// "21/11/26 09:41:07:318 [0x000019C2,0xEFC6D740] [3250] EVENT  text"; anything else is the header or part of a dump.
std::vector<TraceLine> linesOf(const std::string &text)
{
    std::vector<TraceLine> lines;
    std::istringstream rows(text);
    for (std::string row; std::getline(rows, row);) {
        int hours = 0, minutes = 0, seconds = 0, milliseconds = 0, point = 0;
        if (std::sscanf(row.c_str(), "%*2d/%*2d/%*2d %2d:%2d:%2d:%3d [%*[^]]] [%4d]", &hours, &minutes, &seconds,
                        &milliseconds, &point) == 5)
            lines.push_back({point, ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds});
    }
    return lines;
}

// That of a write of nothing, which a device refuses if it refuses anything, or that of a disk without room.
int errorOfWriting(const std::string &file)
{
    const int descriptor = open(file.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return errno == ENXIO ? 0 : errno; // a reader of a pipe that has gone misses nothing
    int error = write(descriptor, "", 0) < 0 ? errno : 0;
    struct statvfs disk = {};
    if (error == 0 && fstatvfs(descriptor, &disk) == 0 && disk.f_blocks > 0 && disk.f_bavail == 0) error = ENOSPC;
    close(descriptor);
    return error;
}

} // namespace

void startTrace(const Settings &settings)
{
    // The file comes first, so that the trace starts there.
    if (fileName(settings) != nullptr)
        require(setAPITraceFile(fileName(settings)), "opening the trace file " + settings.traceFile);
    require(setAPITraceLevel(settings.traceLevel), "setting the trace level");
}

std::string problemOfTraceFile(const Settings &settings)
{
    const int error = fileName(settings) == nullptr ? 0 : errorOfWriting(settings.traceFile);
    return error == 0 ? std::string() : "cannot write the trace to " + settings.traceFile + ": " + std::strerror(error);
}

KeptTrace::KeptTrace(const Settings &given) : settings(given)
{
    // Before the library closes it: the reader of a pipe must not see an end between the two.
    if (settings.traceLevel > 0 && settings.traceFile.empty()) target = STDERR_FILENO;
    if (settings.traceLevel > 0 && !settings.traceFile.empty())
        target = open(fileName(settings), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC);
    kept = memfd_create("rixstat trace", MFD_CLOEXEC);
    const std::string name = "/proc/self/fd/" + std::to_string(kept);
    // Emptied once more, as the user's trace has the header already.
    if (kept >= 0 && setAPITraceFile(name.c_str()) == STAPI_OK && ftruncate(kept, 0) == 0)
        setAPITraceLevel(std::max(settings.traceLevel, levelOfSteps));
    if (target >= 0) setLastFile(kept, target);
}

KeptTrace::~KeptTrace()
{
    take();
    if (target > STDERR_FILENO) close(target);
}

std::vector<TraceLine> KeptTrace::take()
{
    if (kept < 0) return {};
    setLastFile(-1, -1);
    setAPITraceLevel(settings.traceLevel);
    setAPITraceFile(fileName(settings));
    const std::string text = contentOf(kept);
    if (target >= 0) writeAll(target, text);
    close(kept);
    kept = -1;
    return linesOf(text);
}

} // namespace rixstat
