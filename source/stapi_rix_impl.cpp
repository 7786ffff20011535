// Library initialisation, the version call, and what all exported calls share.
#include "stapi_rix_impl.h"

#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_pid.h"
#include "stapi_rix_resultsetbuffer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

using namespace rixstats;

namespace rixstats {

char stapiVersion[32000];

std::atomic<int> stapiState{0};
static pthread_mutex_t initMutex = PTHREAD_MUTEX_INITIALIZER;

// A child that is forked while another thread holds one of the library's locks would never get it. So the thread that
// forks takes them all, in their order, and gives them back on both sides.
static void beforeFork()
{
    pthread_mutex_lock(&initMutex);
    requestLock(&gtlLock);
    requestLock(&traceLock);
}

static void afterFork()
{
    releaseLock(&traceLock);
    releaseLock(&gtlLock);
    pthread_mutex_unlock(&initMutex);
}

// There is no lock yet; initialisation has one of its own.
static void tellNoTrace(int rc)
{
    const QuietOutput quiet;
    printOutput(stderr, "stapi_rix_impl.stapiInit() Initialization of rixstats API trace has failed. rc=%d\n", rc);
}

// Traces its failures at level 1; a success leaves tracing off.
static int initialise()
{
    statAPITrace.store(1, std::memory_order_relaxed);
    initKnownPid();
    int rc = initTrace();
    if (rc != STAPI_OK) {
        tellNoTrace(rc);
        return rc;
    }
    rc = initGTL();
    if (rc != 0) {
        EXC(1124, "stapi_rix_impl.stapiInit() Initialization of rixstats API Gateway Token List has failed. rc=%d\n",
            rc);
        return rc;
    }
    if (pthread_atfork(beforeFork, afterFork, afterFork) != 0) return STAPI_NO_MEMORY;
    memcpy(stapiVersion, API_VERSION, sizeof API_VERSION);
    statAPITrace.store(0, std::memory_order_relaxed);
    return STAPI_OK;
}

int initialiseOnce()
{
    int rc = STAPI_OK;
    pthread_mutex_lock(&initMutex);
    if (stapiState.load(std::memory_order_relaxed) == 0) {
        rc = initialise();
        if (rc == STAPI_OK) stapiState.store(1, std::memory_order_release);
    }
    pthread_mutex_unlock(&initMutex);
    return rc;
}

constexpr size_t LONGEST_TEXT = 32766; // with its terminating zero

static size_t textBytes(const char *in)
{
    return in != nullptr ? strlen(in) + 1 : 0;
}

static bool canBeCopied(const char *in, char *const *out, size_t length)
{
    return in != nullptr && out != nullptr && length <= LONGEST_TEXT;
}

int dup2ASCIIString(const char *in, char **out)
{
    ENTRY(1108, "stapi_rix_impl.dup2ASCIIString(dataPtr=%p, &outputPtr=%p) \n", ptr(in), ptr(out));
    int rc = 0;
    const size_t length = textBytes(in);
    if (!canBeCopied(in, out, length)) {
        rc = -2;
        EXC(1114, "stapi_rix_impl.dup2ASCIIString() supplied input data pointer was NULL or overlength\n");
    } else {
        free(*out);
        *out = static_cast<char *>(malloc(length));
        DEBUG(1109, "stapi_rix_impl.dup2ASCIIString() called malloc for %d bytes. rc=%p\n", static_cast<int>(length),
              ptr(*out));
        if (*out == nullptr) {
            rc = -1;
            EXC(1113, "stapi_rix_impl.dup2ASCIIString() malloc failed for %d bytes\n", static_cast<int>(length));
        } else {
            memcpy(*out, in, length);
            DEBUG(1112, "stapi_rix_impl.dup2ASCIIString() using memcpy() on writePtr(%p) bytes(%d)\n", ptr(*out),
                  static_cast<int>(length));
        }
    }
    EXIT(1115, "stapi_rix_impl.dup2ASCIIString() readByteCount=%d rc=%d\n", static_cast<int>(length), rc);
    return rc;
}

// What the output variable held before is the caller's and is not released.
int dup2NativeString(const char *in, char **out, char **copy)
{
    ENTRY(1116, "stapi_rix_impl.dup2NativeString(source dataPtr=%p, &outputPtr=%p) \n", ptr(in), ptr(out));
    int rc = 0;
    const size_t length = textBytes(in);
    if (!canBeCopied(in, out, length)) {
        rc = -2;
        EXC(1122, "stapi_rix_impl.dup2NativeString() supplied input data pointer was NULL or overlength\n");
    } else {
        *copy = static_cast<char *>(malloc(length));
        DEBUG(1117, "stapi_rix_impl.dup2NativeString() called strdup for %d bytes. rc=0x%p\n", static_cast<int>(length),
              ptr(*copy));
        if (*copy == nullptr) {
            rc = -1;
            EXC(1121, "stapi_rix_impl.dup2NativeString() malloc failed for %d bytes\n", static_cast<int>(length));
        } else {
            DEBUG(1120, "stapi_rix_impl.dup2NativeString() about to memcpy for %d bytes. \n", static_cast<int>(length));
            memcpy(*copy, in, length);
        }
        *out = *copy;
    }
    EXIT(1123, "stapi_rix_impl.dup2NativeString() readByteCount=%d rc=%d\n", static_cast<int>(length), rc);
    return rc;
}

} // namespace rixstats

int getStatsAPIVersion(char **apiVersPtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1088, "API.getStatsAPIVersion(&apiVersPtr=%p)\n", ptr(apiVersPtr));
    if (rc == STAPI_OK && apiVersPtr == nullptr) {
        rc = STAPI_NULL_OUTPUT_PTR;
        EXC(1089, "API.getStatsAPIVersion() Supplied pointer is NULL\n");
    }
    if (rc == STAPI_OK) *apiVersPtr = stapiVersion;
    EXIT(1090, "API.getStatsAPIVersion(apiVersPtr=%p), rc=%d\n", ptr(apiVersPtr), rc);
    return call.end(rc);
}
