// The trace control calls: level and destination of the trace, and the dump of the library's state.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_impl.h"

#include <cerrno>
#include <cstring>

using namespace rixstats;

static const char PRODUCT_VERSION[] = "10.1.0.0";
static const char BUILD_LEVEL[] = "d1010-20240618-1931";

// 1 once the header has been written to the current destination by setAPITraceFile(). setAPITraceLevel() does not set
// it, on purpose: until a file has been set, each switch from off to on writes the header again.
static int traceHeaderWrite = 0;

static int currentLevel()
{
    return statAPITrace.load(std::memory_order_relaxed);
}

// traceLock is held.
static void writeTraceHeader()
{
    const QuietOutput quiet;
    getTraceDate(dateBuf);
    printOutput(statAPITraceHandle, "*** %s YST Vendral Gateway RIXSTATS DLL trace V%s API V%s Build Level %s ***\n",
                dateBuf, PRODUCT_VERSION, API_VERSION, BUILD_LEVEL);
}

int getAPITraceLevel(int *traceStatePtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1091, "API.getAPITraceLevel(traceStatePtr=%p)\n", ptr(traceStatePtr));
    if (rc == STAPI_OK && traceStatePtr == nullptr) {
        rc = STAPI_NULL_OUTPUT_PTR;
        EXC(1092, "API.getAPITraceLevel() Supplied pointer is NULL\n");
    }
    if (rc == STAPI_OK) *traceStatePtr = currentLevel();
    EXIT(1093, "API.getAPITraceLevel(traceStatePtr=%p) rc=%d\n", ptr(traceStatePtr), rc);
    return call.end(rc);
}

int setAPITraceLevel(int traceState)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1094, "API.setAPITraceLevel(traceState=%d) current trace level=%d\n", traceState, currentLevel());
    if (rc == STAPI_OK && (traceState < 0 || traceState > MAX_TRACE_LEVEL)) {
        rc = STAPI_BAD_TRACE_LEVEL;
        EXC(1095, "API.setAPITraceLevel() Supplied trace state value %d was invalid\n", traceState);
    }
    if (rc == STAPI_OK) {
        requestLock(&traceLock);
        if (traceHeaderWrite == 0 && currentLevel() == 0 && traceState > 0) writeTraceHeader();
        statAPITrace.store(traceState, std::memory_order_relaxed);
        releaseLock(&traceLock);
    }
    EXIT(1096, "API.setAPITraceLevel(traceState=%d) new trace level=%d rc=%d\n", traceState, currentLevel(), rc);
    return call.end(rc);
}

// ---- setAPITraceFile

// The destination's name as the messages of one call show it, read under the lock that guards it.
typedef struct _TraceFileName
{
    char text[TRACE_FILENAME_SIZE];
} TraceFileName;

static void readFileName(TraceFileName *name)
{
    requestLock(&traceLock);
    memcpy(name->text, statAPITraceFilename, TRACE_FILENAME_SIZE);
    releaseLock(&traceLock);
}

// traceLock is held.
static void switchTo(FILE *stream, const char *name)
{
    if (statAPITraceHandle != stderr && statAPITraceHandle != nullptr) fclose(statAPITraceHandle);
    statAPITraceHandle = stream;
    startOutput();
    memcpy(statAPITraceFilename, name, strlen(name) + 1);
    traceHeaderWrite = 0;
}

// A name that is open already is opened again: that counts as a change.
static FILE *openTraceFile(const char *traceFile)
{
    if (strlen(traceFile) >= TRACE_FILENAME_SIZE) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return openOutput(traceFile);
}

// traceLock is held.
static bool switchToStandardError()
{
    if (statAPITraceHandle == stderr || statAPITraceHandle == nullptr) return false;
    switchTo(stderr, defaultTraceFilename);
    return true;
}

static int changeTraceFile(const char *traceFile)
{
    // Opened before the lock is taken, which everybody who traces waits for.
    FILE *stream = traceFile != nullptr ? openTraceFile(traceFile) : nullptr;
    const int openErrno = errno;
    const int rc = traceFile == nullptr || stream != nullptr ? STAPI_OK : STAPI_TRACE_FILE_OPEN_FAILED;
    bool changed = stream != nullptr;
    requestLock(&traceLock);
    if (stream != nullptr)
        switchTo(stream, traceFile);
    else if (traceFile == nullptr)
        changed = switchToStandardError();
    if (currentLevel() > 0 && traceHeaderWrite == 0) {
        writeTraceHeader();
        traceHeaderWrite = 1;
    }
    releaseLock(&traceLock);

    if (rc != STAPI_OK) noteErrno(openErrno);
    if (!traceOn(Line::exc)) return rc;
    TraceFileName name;
    readFileName(&name);
    if (rc != STAPI_OK)
        EXC(1100,
            "API.setAPITraceFile(%s) file append failed with errno=%d. Trace file destination is unchanged. Filename=%s\n",
            traceFile, openErrno, name.text);
    else if (changed)
        DEBUG(1098, "API.setAPITraceFile() Trace file switched to new destination. Filename=%s\n", name.text);
    else
        DEBUG(1099, "API.setAPITraceFile() Trace file destination is unchanged. Filename=%s\n", name.text);
    return rc;
}

int setAPITraceFile(const char *traceFile)
{
    const LocalCall call;
    int rc = stapiInit();
    const bool ready = rc == STAPI_OK;
    TraceFileName name = {""};
    if (traceOn(Line::entry)) {
        if (ready) readFileName(&name);
        ENTRY(1097, "API.setAPITraceFile(traceFile=%p) current trace destination=%s\n", ptr(traceFile), name.text);
    }
    if (ready) rc = changeTraceFile(traceFile);
    if (traceOn(Line::exit)) {
        if (ready) readFileName(&name);
        EXIT(1101, "API.setAPITraceFile(traceFile=%p) new trace destination=%s rc=%d\n", ptr(traceFile), name.text, rc);
    }
    return call.end(rc);
}

// ---- dumpState

// traceLock is held.
static void writeStateLine()
{
    const QuietOutput quiet;
    printOutput(statAPITraceHandle, "rixstats state dump: API Version=%s Trace Level=%d statAPITraceFile=%s\n",
                API_VERSION, currentLevel(), statAPITraceFilename);
}

int dumpState()
{
    const LocalCall call;
    const int rc = stapiInit();
    // With the time stamp of the line before it, on purpose.
    if (traceOn(Line::entry)) traceLineStaleStamp(Line::entry, 1106, "API.dumpState()\n");
    if (rc == STAPI_OK) {
        requestLock(&traceLock);
        writeStateLine();
        releaseLock(&traceLock);
        dumpGatewayTokens();
    }
    EXIT(1107, "API.dumpState() rc=%d\n", rc);
    return call.end(rc);
}
