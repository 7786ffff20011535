#include "trace_tap.h"

#include "codes.h"
#include "output.h"
#include "text.h"

#include <rixstats.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rixstat {
namespace {

constexpr int mostDetailed = 4; // nothing is added above this level

struct LineType
{
    const char *name;
    int level;
};

constexpr LineType lineTypes[] = {{"*EXC*", 1}, {"EVENT", 2}, {"ENTRY", 3}, {"EXIT", 3}};

int levelOf(const std::string &name)
{
    for (const LineType &type : lineTypes)
        if (type.name == name) return type.level;
    return mostDetailed;
}

// "21/11/26 09:41:07:318 [0x000019C2,0xEFC6D740] [3250] EVENT  text"; anything else is the header or part of a dump.
bool parseLine(const std::string &text, TraceLine &line)
{
    int hours = 0, minutes = 0, seconds = 0, milliseconds = 0;
    char type[8] = "";
    if (std::sscanf(text.c_str(), "%*2d/%*2d/%*2d %2d:%2d:%2d:%3d [%*[^]]] [%4d] %7s", &hours, &minutes, &seconds,
                    &milliseconds, &line.point, type) != 6)
        return false;
    line.milliseconds = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds;
    line.level = levelOf(type);
    line.text = text;
    return true;
}

// Also one that is only going to be made.
bool isRegular(const std::string &file)
{
    struct stat status = {};
    return stat(file.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

// Only those of the lines that the user has asked for.
std::string linesOfLevel(const std::string &text, int mostWanted)
{
    std::string wanted;
    std::istringstream rows(text);
    TraceLine line;
    for (std::string row; std::getline(rows, row);) {
        const bool header = row.compare(0, 3, "***") == 0;
        const int level = header ? 1 : parseLine(row, line) ? line.level : mostDetailed;
        if (level <= mostWanted) wanted += row + "\n";
    }
    return wanted;
}

} // namespace

TraceTap::TraceTap(const Settings &settings)
    : userLevel(settings.traceLevel), userFile(settings.traceFile),
      direct(userLevel >= mostDetailed && !userFile.empty() && isRegular(userFile))
{
    // The file comes first, so that the trace starts there.
    if (!userFile.empty()) require(setAPITraceFile(userFile.c_str()), "opening the trace file " + userFile);
    if (direct) {
        followUsersFile();
    } else {
        // While the library has it open: the reader of a pipe must not see an end between the two.
        target = userFile.empty() ? STDERR_FILENO : open(userFile.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (target < 0) lost = errno;
        descriptor = memfd_create("rixstat trace", MFD_CLOEXEC);
        ours = descriptor >= 0 && setAPITraceFile(ownFile().c_str()) == STAPI_OK;
    }
    require(setAPITraceLevel(userLevel), "setting the trace level");
}

// A file that has all there is to hear is the library's own: it loses nothing, however the viewer ends.
void TraceTap::followUsersFile()
{
    descriptor = open(userFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) position = lseek(descriptor, 0, SEEK_END);
}

TraceTap::~TraceTap()
{
    takeText();
    if (descriptor >= 0) close(descriptor);
    if (target > STDERR_FILENO) close(target);
}

void TraceTap::listen(int level)
{
    takeText();
    if (ours) setAPITraceLevel(std::max(level, userLevel));
}

std::vector<TraceLine> TraceTap::heard(bool wanted)
{
    if (ours) setAPITraceLevel(userLevel);
    std::vector<TraceLine> lines;
    if (!wanted && userLevel == 0) {
        forget();
        return lines;
    }
    std::istringstream text(takeText());
    TraceLine line;
    for (std::string row; std::getline(text, row);)
        if (parseLine(row, line)) lines.push_back(line);
    return lines;
}

std::string TraceTap::ownFile() const
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

// A dump names the destination of the trace: the user's is meant, not the detour that it takes.
void TraceTap::passOn()
{
    std::string text = readText();
    if (!ours) return;
    const std::string label = "statAPITraceFile=";
    const size_t place = text.find(label + ownFile() + "\n");
    if (place != std::string::npos)
        text.replace(place + label.size(), ownFile().size(), userFile.empty() ? "stderr" : userFile);
    show(text);
    forget();
}

std::string TraceTap::finish()
{
    takeText();
    if (lost == 0) return {};
    return "cannot write the trace to " + (userFile.empty() ? "standard error" : printable(userFile)) + ": " +
           std::strerror(lost);
}

// What has been written since the last time.
std::string TraceTap::readText()
{
    std::string text;
    char block[4096];
    ssize_t size = 0;
    while (descriptor >= 0 && (size = pread(descriptor, block, sizeof block, position)) > 0) {
        text.append(block, static_cast<size_t>(size));
        position += size;
    }
    return text;
}

// The same; shown at once where the library has not written it to the user's file.
std::string TraceTap::takeText()
{
    std::string text = readText();
    if (!ours) return text;
    if (userLevel > 0 && !text.empty()) show(linesOfLevel(text, userLevel));
    forget();
    return text;
}

void TraceTap::show(const std::string &text)
{
    const int error = writeAll(target, text);
    if (lost == 0 && error != EPIPE) lost = error; // a reader that has gone misses nothing
}

// The library appends, so that it starts at the beginning again.
void TraceTap::forget()
{
    if (ours && ftruncate(descriptor, 0) == 0) position = 0;
}

} // namespace rixstat
