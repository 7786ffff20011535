// The trace facility: process-wide trace state, trace lines of a fixed layout, storage dumps. Every module traces
// through the macros below, which cost one load and one branch while their level is off and evaluate no argument then.
// Calls its output, the lock module and the one that knows the process id.
//
// A function announces itself with ENTRY and EXIT, errors with EXC, notable happenings with EVENT, internals with
// DEBUG; DATA announces a storage dump and writes it. The first argument is the trace point: a fixed number that
// support people search for, from the block of its module, never to be reused or renumbered.
#ifndef STAPI_RIX_DIAG_H
#define STAPI_RIX_DIAG_H

#include "stapi_rix_lock.h"
#include "stapi_rix_pid.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sys/types.h>

namespace rixstats {

constexpr int MAX_TRACE_LEVEL = 5;
constexpr size_t TRACE_FILENAME_SIZE = 1024; // with the terminating zero
constexpr int DUMP_WIDTH = 16;               // bytes on a line of a storage dump

// Five fixed fields without terminators between them: read from its first byte, the record is the format of a trace
// line's prefix.
typedef struct _formatStringType
{
    char timeStamp[3];
    char pidTid[18];
    char tpid[8];
    char traceType[7];
    char msg[256]; // stays zero and so ends the prefix: a site's own format is checked against its arguments where it
                   // stands and is formatted from there, not copied into shared storage
} formatStringType;

// The kinds of trace line, and the lowest level at which each is written.
enum class Line
{
    exc,
    event,
    entry,
    exit,
    debug,
    data
};

constexpr int traceLevelOf(Line kind)
{
    return kind == Line::exc ? 1 : kind == Line::event ? 2 : (kind == Line::entry || kind == Line::exit) ? 3 : 4;
}

#pragma GCC visibility push(hidden)        // reached directly, not through the global offset table
extern std::atomic<int> statAPITrace;      // the trace level, 0 (off) to 5
extern FILE *statAPITraceHandle;           // where trace lines go; null until the first initTrace()
extern char *statAPITraceFilename;         // name of that destination, TRACE_FILENAME_SIZE bytes
extern const char defaultTraceFilename[7]; // "stderr"
extern char timeStamp[24];                 // of the latest line
extern char dateBuf[10];                   // of the latest trace header
extern stapilock traceLock;                // guards all of the above but the level, and the writing of each line
#pragma GCC visibility pop

#ifdef RIXSTATS_WITHOUT_TRACING // for measuring what tracing costs while it is off
inline bool traceOn(Line)
{
    return false;
}
#else
inline bool traceOn(Line kind)
{
    return __builtin_expect(statAPITrace.load(std::memory_order_relaxed) >= traceLevelOf(kind), 0);
}
#endif

// For %p, which takes void pointers alone; the second for a number shown as an address: that of something which has
// been released since (addressNumber() tells it beforehand), or one that stands in an address's place on purpose.
inline const void *ptr(const void *address)
{
    return address;
}
inline const void *ptr(uintptr_t address)
{
    return reinterpret_cast<const void *>(address);
}
uintptr_t addressNumber(const void *address);
// For %s and texts that may be missing.
inline const char *textOrNull(const char *text)
{
    return text != nullptr ? text : "NULL";
}

#define TRACE_AT(kind, point, ...)                                                                                     \
    do {                                                                                                               \
        if (rixstats::traceOn(kind)) rixstats::traceLine(kind, point, __VA_ARGS__);                                    \
    } while (0)
#define EXC(point, ...) TRACE_AT(rixstats::Line::exc, point, __VA_ARGS__)
#define EVENT(point, ...) TRACE_AT(rixstats::Line::event, point, __VA_ARGS__)
#define ENTRY(point, ...) TRACE_AT(rixstats::Line::entry, point, __VA_ARGS__)
#define EXIT(point, ...) TRACE_AT(rixstats::Line::exit, point, __VA_ARGS__)
#define DEBUG(point, ...) TRACE_AT(rixstats::Line::debug, point, __VA_ARGS__)
#define DATA(point, name, start, dataLen, stopWord, translate)                                                         \
    do {                                                                                                               \
        if (rixstats::traceOn(rixstats::Line::data))                                                                   \
            rixstats::traceData(point, name, start, dataLen, stopWord, translate);                                     \
    } while (0)
// For the lock module: a line written without the trace lock. It may interleave with other threads' lines.
#define EXC_UNLOCKED(point, ...)                                                                                       \
    do {                                                                                                               \
        if (rixstats::traceOn(rixstats::Line::exc))                                                                    \
            rixstats::traceLineUnlocked(rixstats::Line::exc, point, __VA_ARGS__);                                      \
    } while (0)

// The writers behind the macros. traceLineStaleStamp() shows the time stamp of the previous line.
void traceLine(Line kind, int point, const char *format, ...) __attribute__((cold, format(printf, 3, 4)));
void traceLineUnlocked(Line kind, int point, const char *format, ...) __attribute__((cold, format(printf, 3, 4)));
void traceLineStaleStamp(Line kind, int point, const char *format, ...) __attribute__((cold, format(printf, 3, 4)));
void traceData(int point, const char *name, const char *start, int dataLen, int stopWord, int translate)
    __attribute__((cold));

int initTrace(); // 0, STAPI_NO_MEMORY, STAPI_LOCK_INIT_FAILED

inline void getPidTid(pid_t *pid, pthread_t *tid) // either pointer may be null
{
    if (pid != nullptr) *pid = currentPid();
    if (tid != nullptr) *tid = pthread_self();
}
inline int compareTids(pthread_t tid1, pthread_t tid2)
{
    return pthread_equal(tid1, tid2) != 0 ? 1 : 0;
}
inline int narrowTid(pthread_t tid)
{
    return static_cast<int>(tid);
} // the low 32 bits, for printing

void getTimestamp(char *buffer); // at least 22 bytes
void getTraceDate(char *buffer); // at least 9 bytes

extern const char dumpRuler[81]; // the 80 hyphens that frame a dump

// Writes a storage dump: dataLen bytes, or with dataLen 0 all bytes before the first stopWord. Returns the number of
// bytes dumped. The caller holds traceLock and has made its output quiet. In stop-word mode up to 15 bytes behind the
// stop word are read.
int traceOutStorage(const char *startAddr, int dataLen, int stopWord, int width, int translate);
// The same for a copy of the storage, which is shown at the address of what was copied.
int traceOutCopy(const char *startAddr, const char *shownAddr, int dataLen, int stopWord, int width, int translate);

} // namespace rixstats

#endif
