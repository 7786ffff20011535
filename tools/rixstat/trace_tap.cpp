#include "trace_tap.h"

#include "codes.h"

#include <rixstats.h>

#include <algorithm>
#include <cstdio>
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

bool isRegular(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

TraceTap::TraceTap(const Settings &settings)
    : userLevel(settings.traceLevel), userFile(settings.traceFile),
      direct(userLevel >= mostDetailed && !userFile.empty())
{
    // The file comes first, so that the trace starts there.
    if (!userFile.empty()) require(setAPITraceFile(userFile.c_str()), "opening the trace file " + userFile);
    if (direct) {
        followUsersFile();
    } else {
        descriptor = memfd_create("rixstat trace", MFD_CLOEXEC);
        listenAgain();
    }
    require(setAPITraceLevel(userLevel), "setting the trace level");
}

// A file that has all there is to hear is the library's own: it loses nothing, however the viewer ends.
void TraceTap::followUsersFile()
{
    descriptor = open(userFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor >= 0 && !isRegular(descriptor)) {
        close(descriptor);
        descriptor = -1;
    }
    if (descriptor >= 0) position = lseek(descriptor, 0, SEEK_END);
}

TraceTap::~TraceTap()
{
    takeText();
    if (descriptor >= 0) close(descriptor);
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

void TraceTap::speakPlainly()
{
    if (direct) return;
    takeText();
    ours = false;
    require(setAPITraceFile(userFile.empty() ? nullptr : userFile.c_str()), "opening the trace file " + userFile);
}

void TraceTap::listenAgain()
{
    if (direct) return;
    ours = descriptor >= 0 && setAPITraceFile(("/proc/self/fd/" + std::to_string(descriptor)).c_str()) == STAPI_OK;
}

// What has been written since the last time; shown at once where the library has not written it to the user's file.
std::string TraceTap::takeText()
{
    std::string text;
    char block[4096];
    ssize_t size = 0;
    while (descriptor >= 0 && (size = pread(descriptor, block, sizeof block, position)) > 0) {
        text.append(block, static_cast<size_t>(size));
        position += size;
    }
    if (!ours) return text;
    if (userLevel > 0 && !text.empty()) show(text);
    forget();
    return text;
}

void TraceTap::show(const std::string &text) const
{
    std::string wanted;
    std::istringstream rows(text);
    TraceLine line;
    for (std::string row; std::getline(rows, row);) {
        const bool header = row.compare(0, 3, "***") == 0;
        const int level = header ? 1 : parseLine(row, line) ? line.level : mostDetailed;
        if (level <= userLevel) wanted += row + "\n";
    }
    FILE *file = userFile.empty() ? stderr : std::fopen(userFile.c_str(), "ae");
    if (file == nullptr) return;
    std::fwrite(wanted.data(), 1, wanted.size(), file);
    if (file != stderr) std::fclose(file);
}

// The library appends, so that it starts at the beginning again.
void TraceTap::forget()
{
    if (ours && ftruncate(descriptor, 0) == 0) position = 0;
}

} // namespace rixstat
