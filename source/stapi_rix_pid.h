// The process id, known without asking the kernel each time: every step of a walk compares it with the owner's, and the
// C library makes a system call of each getpid(). A forked child has an id of its own and is noticed all the same: the
// id stands on a page that the kernel wipes in it. Calls nothing of the library.
#ifndef STAPI_RIX_PID_H
#define STAPI_RIX_PID_H

#include <atomic>
#include <sys/types.h>

namespace rixstats {

#pragma GCC visibility push(hidden)                // reached directly, not through the global offset table
extern std::atomic<std::atomic<pid_t> *> knownPid; // the id is 0 before the first question and in a forked child
#pragma GCC visibility pop

// Called as the library is set up. Where the kernel cannot wipe a page, each question goes to it.
void initKnownPid();

pid_t askPid();

inline pid_t currentPid()
{
    const pid_t known = knownPid.load(std::memory_order_acquire)->load(std::memory_order_relaxed);
    return __builtin_expect(known != 0, 1) ? known : askPid();
}

} // namespace rixstats

#endif
