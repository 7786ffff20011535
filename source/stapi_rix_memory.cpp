// Blocks from the allocator and, if they are large, from the system. See the header.
#include "stapi_rix_memory.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

namespace rixstats {

constexpr size_t HUGE_PAGE = 2 << 20;

static bool isLarge(size_t size)
{
#ifdef RIXSTATS_EXACT_AREAS // where a sanitizer has to see a step behind a block's end
    if (size > 0) return false;
#endif
    return size > LARGE_BLOCK;
}

static void *orNull(void *pages)
{
    return pages != MAP_FAILED ? pages : nullptr;
}

static void *newPages(size_t size)
{
    return orNull(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

// A block that stays nearly empty must not begin with a huge page, all of which the system fills with zeros.
void *newBlock(size_t size, size_t filled)
{
    if (!isLarge(size)) return malloc(size);
    void *pages = newPages(size);
    if (pages != nullptr && filled < HUGE_PAGE) madvise(pages, size, MADV_NOHUGEPAGE); // a system may know of none
    return pages;
}

void *newZeroedBlock(size_t size)
{
    return isLarge(size) ? newPages(size) : calloc(1, size);
}

static void *growIntoPages(void *block, size_t size, size_t newSize)
{
    void *grown = newPages(newSize);
    if (grown == nullptr) return nullptr;
    memcpy(grown, block, size);
    free(block);
    return grown;
}

void *growBlock(void *block, size_t size, size_t newSize)
{
    if (isLarge(size)) return orNull(mremap(block, size, newSize, MREMAP_MAYMOVE)); // behind it come zeros
    if (isLarge(newSize)) return growIntoPages(block, size, newSize);
    char *grown = static_cast<char *>(realloc(block, newSize));
    if (grown != nullptr) memset(grown + size, 0, newSize - size);
    return grown;
}

void freeBlock(void *block, size_t size)
{
    if (block != nullptr && isLarge(size))
        munmap(block, size);
    else
        free(block);
}

} // namespace rixstats
