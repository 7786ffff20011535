// The process id and the page that it stands on. See the header.
#include "stapi_rix_pid.h"

#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace rixstats {

static std::atomic<pid_t> unknownPid{0}; // stays so: this memory is not wiped in a forked child
std::atomic<std::atomic<pid_t> *> knownPid{&unknownPid};

// Wiping counts only where advice is looked at: an emulator of another machine may answer 0 to whatever it is given and do
// nothing, so that a child would take itself for its parent.
static bool wipeInChildren(void *page, size_t size)
{
    const int nonsense = -1;
    return madvise(page, size, nonsense) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0; // since Linux 4.14
}

void initKnownPid()
{
    if (knownPid.load(std::memory_order_relaxed) != &unknownPid) return;
    const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return;
    if (!wipeInChildren(page, size)) {
        munmap(page, size);
        return;
    }
    knownPid.store(new (page) std::atomic<pid_t>(0), std::memory_order_release);
}

pid_t askPid()
{
    const pid_t pid = getpid();
    std::atomic<pid_t> *known = knownPid.load(std::memory_order_acquire);
    if (known != &unknownPid) known->store(pid, std::memory_order_relaxed);
    return pid;
}

} // namespace rixstats
