// The process id and the page that it stands on. See the header.
#include "stapi_rix_pid.h"

#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace rixstats {

static std::atomic<pid_t> unknownPid{0}; // stays so: this memory is not wiped in a forked child
std::atomic<std::atomic<pid_t> *> knownPid{&unknownPid};

void initKnownPid()
{
    if (knownPid.load(std::memory_order_relaxed) != &unknownPid) return;
    const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return;
    if (madvise(page, size, MADV_WIPEONFORK) != 0) { // before Linux 4.14
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
