#include "trace_tap.h"

#include "codes.h"

#include <rixstats.h>

#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rixstat {
namespace {

// "21/11/26 09:41:07:318 [0x000019C2,0xEFC6D740] [3250] EVENT  text"; anything else is part of a dump.
bool parseLine(const std::string &text, TraceLine &line)
{
    int hours = 0, minutes = 0, seconds = 0, milliseconds = 0;
    if (std::sscanf(text.c_str(), "%*2d/%*2d/%*2d %2d:%2d:%2d:%3d [%*[^]]] [%4d]", &hours, &minutes, &seconds,
                    &milliseconds, &line.point) != 5)
        return false;
    line.milliseconds = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds;
    line.text = text;
    return true;
}

bool isRegular(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

TraceTap::TraceTap(const Settings &settings) : userLevel(settings.traceLevel), userFile(settings.traceFile)
{
    // The file comes first, so that the trace starts there.
    if (!userFile.empty()) require(setAPITraceFile(userFile.c_str()), "opening the trace file " + userFile);
    if (userLevel > 0 && !userFile.empty()) {
        descriptor = open(userFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (descriptor >= 0 && !isRegular(descriptor)) {
            close(descriptor);
            descriptor = -1;
        }
        if (descriptor >= 0) position = lseek(descriptor, 0, SEEK_END);
    } else {
        descriptor = memfd_create("rixstat trace", MFD_CLOEXEC);
        ours = descriptor >= 0 && setAPITraceFile(("/proc/self/fd/" + std::to_string(descriptor)).c_str()) == STAPI_OK;
    }
    require(setAPITraceLevel(userLevel), "setting the trace level");
}

TraceTap::~TraceTap()
{
    takeText();
    if (descriptor >= 0) close(descriptor);
}

void TraceTap::listen(int level)
{
    takeText();
    if (userLevel == 0 && ours) setAPITraceLevel(level);
}

std::vector<TraceLine> TraceTap::heard(bool wanted)
{
    if (userLevel == 0) setAPITraceLevel(0);
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
    if (!ours) return;
    takeText();
    ours = false;
    require(setAPITraceFile(userFile.empty() ? nullptr : userFile.c_str()), "opening the trace file " + userFile);
}

// What has been written since the last time; shown at once where the user wants it on standard error.
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
    if (userLevel > 0) std::fwrite(text.data(), 1, text.size(), stderr);
    forget();
    return text;
}

// The library appends, so that it starts at the beginning again.
void TraceTap::forget()
{
    if (ours && ftruncate(descriptor, 0) == 0) position = 0;
}

} // namespace rixstat
