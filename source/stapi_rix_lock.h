// One mutex in a record that knows whether it has been initialised. Guards everything the library shares between
// threads: the trace facility and the list of connections. Calls nothing but POSIX threads and the trace facility,
// whose lines it writes without the trace lock, because the trace facility locks with these very operations.
#ifndef STAPI_RIX_LOCK_H
#define STAPI_RIX_LOCK_H

#include <pthread.h>

namespace rixstats {

// The marker's values are bit patterns on purpose: zero-filled or overwritten storage never looks initialised.
constexpr int LOCK_INITIALIZED = static_cast<int>(0xFFEEDDCCu);
constexpr int LOCK_DESTROYED = static_cast<int>(0xCCDDEEFFu);

typedef struct _stapilock
{
    pthread_mutex_t lock;
    int initialized;
} stapilock;

int initializeLock(stapilock *lockPtr);          // 0 done, 1 was initialised already, -2 no mutex to be had
int requestLock(stapilock *lockPtr);             // 0, -1 not initialised, -4 lock call failed
int releaseLock(stapilock *lockPtr);             // 0, -1 not initialised, -5 unlock call failed
int isLockInitialized(const stapilock *lockPtr); // the raw marker
int destroyLock(stapilock *lockPtr);             // 0, -1 not initialised, -4 destroy call failed

// How many of the library's locks the calling thread holds or is about to take; read in signal handlers of the thread.
#pragma GCC visibility push(hidden)
extern __thread volatile int locksTaken __attribute__((tls_model("initial-exec")));
#pragma GCC visibility pop

// Holds a lock from here to the end of the block.
class Locked
{
public:
    explicit Locked(stapilock &heldLock) : held(&heldLock) { requestLock(held); }
    ~Locked() { releaseLock(held); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    stapilock *held;
};

} // namespace rixstats

#endif
