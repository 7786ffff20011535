// Trace state and trace lines. Storage dumps are in stapi_rix_diag_storage.cpp.
#include "stapi_rix_diag.h"

#include "rixstats.h"
#include "stapi_rix_diag_output.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace rixstats {

std::atomic<int> statAPITrace{0};
FILE *statAPITraceHandle = nullptr;
char *statAPITraceFilename = nullptr;
const char defaultTraceFilename[7] = "stderr";
char timeStamp[24];
char dateBuf[10];
stapilock traceLock;

static pid_t tracePid;
static pthread_t traceTid;
static int iTid;

// clang-format off
static const formatStringType traceFmtStr = {
    {'%', 's', ' '},
    {'[', '0', 'x', '%', '8', '.', '8', 'X', ',', '0', 'x', '%', '8', '.', '8', 'X', ']', ' '},
    {'[', '%', '4', '.', '4', 'd', ']', ' '},
    {'%', '-', '6', '.', '6', 's', ' '},
    {0}};
// clang-format on

static const char *traceWordOf(Line kind)
{
    switch (kind) {
    case Line::exc:
        return "*EXC*";
    case Line::event:
        return "EVENT";
    case Line::entry:
        return "ENTRY";
    case Line::exit:
        return "EXIT";
    case Line::debug:
        return "DEBUG";
    case Line::data:
        break;
    }
    return "DATA";
}

// The prefix's format is the record above, so the compiler cannot see it here; its five conversions are the arguments.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static int formatPrefix(char *line, size_t size, Line kind, int point)
{
    return snprintf(line, size, reinterpret_cast<const char *>(&traceFmtStr), timeStamp,
                    static_cast<unsigned>(tracePid), static_cast<unsigned>(iTid), point, traceWordOf(kind));
}
#pragma GCC diagnostic pop

// A line that is too long for the local buffer of writeLine(), which holds its start. Without memory that start is all.
static void writeLongLine(char *start, size_t size, size_t prefix, size_t message, const char *format,
                          va_list arguments) __attribute__((format(printf, 5, 0)));
static void writeLongLine(char *start, size_t size, size_t prefix, size_t message, const char *format,
                          va_list arguments)
{
    char *whole = static_cast<char *>(malloc(prefix + message + 1));
    if (whole == nullptr) {
        start[size - 1] = '\n';
        writeOutput(statAPITraceHandle, start, size);
        return;
    }
    memcpy(whole, start, prefix);
    vsnprintf(whole + prefix, message + 1, format, arguments);
    writeOutput(statAPITraceHandle, whole, prefix + message);
    free(whole);
}

// One write for each line. The caller has seen to it that it is a quiet one.
static void writeLine(Line kind, int point, bool freshStamp, const char *format, va_list arguments)
    __attribute__((format(printf, 4, 0)));
static void writeLine(Line kind, int point, bool freshStamp, const char *format, va_list arguments)
{
    if (statAPITraceHandle == nullptr) return;
    if (freshStamp) getTimestamp(timeStamp);
    getPidTid(&tracePid, &traceTid);
    iTid = narrowTid(traceTid);

    char line[1024];
    va_list again;
    va_copy(again, arguments);
    const size_t prefix = static_cast<size_t>(formatPrefix(line, sizeof line, kind, point));
    const int message = vsnprintf(line + prefix, sizeof line - prefix, format, arguments);
    if (message >= 0 && static_cast<size_t>(message) < sizeof line - prefix)
        writeOutput(statAPITraceHandle, line, prefix + static_cast<size_t>(message));
    else if (message >= 0)
        writeLongLine(line, sizeof line, prefix, static_cast<size_t>(message), format, again);
    va_end(again);
}

static void writeQuietLine(Line kind, int point, bool freshStamp, const char *format, va_list arguments)
    __attribute__((format(printf, 4, 0)));
static void writeQuietLine(Line kind, int point, bool freshStamp, const char *format, va_list arguments)
{
    const QuietOutput quiet;
    writeLine(kind, point, freshStamp, format, arguments);
}

void traceLine(Line kind, int point, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    requestLock(&traceLock);
    writeQuietLine(kind, point, true, format, arguments);
    releaseLock(&traceLock);
    va_end(arguments);
}

void traceLineStaleStamp(Line kind, int point, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    requestLock(&traceLock);
    writeQuietLine(kind, point, false, format, arguments);
    releaseLock(&traceLock);
    va_end(arguments);
}

void traceLineUnlocked(Line kind, int point, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    writeQuietLine(kind, point, true, format, arguments);
    va_end(arguments);
}

static void announceData(int point, const char *format, ...) __attribute__((format(printf, 2, 3)));
static void announceData(int point, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    writeLine(Line::data, point, true, format, arguments);
    va_end(arguments);
}

static void writeData(int point, const char *name, const char *start, int dataLen, int stopWord, int translate)
{
    const QuietOutput quiet;
    announceData(point, "%s data=%p len=%d stopword=%8.8X\n", name, ptr(start), dataLen,
                 static_cast<unsigned>(stopWord));
    if (statAPITraceHandle != nullptr) traceOutStorage(start, dataLen, stopWord, DUMP_WIDTH, translate);
}

// The announcing line and its dump under one lock, so that nothing comes between them.
void traceData(int point, const char *name, const char *start, int dataLen, int stopWord, int translate)
{
    requestLock(&traceLock);
    writeData(point, name, start, dataLen, stopWord, translate);
    releaseLock(&traceLock);
}

uintptr_t addressNumber(const void *address)
{
    return reinterpret_cast<uintptr_t>(address);
}

int initTrace()
{
    statAPITraceHandle = stderr;
    const int lockRc = initializeLock(&traceLock);
    if (lockRc != 0 && lockRc != 1) return STAPI_LOCK_INIT_FAILED;
    if (statAPITraceFilename != nullptr) return STAPI_OK;

    // Also when the lock was ready before: then an earlier run found no memory here.
    statAPITraceFilename = static_cast<char *>(calloc(1, TRACE_FILENAME_SIZE));
    if (statAPITraceFilename == nullptr) return STAPI_NO_MEMORY;
    memcpy(statAPITraceFilename, defaultTraceFilename, sizeof defaultTraceFilename);
    return STAPI_OK;
}

// Returns the milliseconds of the current second.
static unsigned localNow(struct tm *local)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, local);
    return static_cast<unsigned>(now.tv_nsec / 1000000) % 1000;
}

// The two-digit year is part of the layouts.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"
void getTimestamp(char *buffer)
{
    struct tm local;
    const unsigned milliseconds = localNow(&local);
    const size_t length = strftime(buffer, 19, "%d/%m/%y %H:%M:%S:", &local);
    snprintf(buffer + length, 4, "%.3u", milliseconds);
}

void getTraceDate(char *buffer)
{
    struct tm local;
    localNow(&local);
    strftime(buffer, 9, "%d/%m/%y", &local);
}
#pragma GCC diagnostic pop

} // namespace rixstats
