// Areas for flows, and the few that are kept. The slots are exchanged atomically: an area belongs to a slot or to the
// one thread that took it out.
#include "stapi_rix_flowarea.h"

#include "stapi_rix_memory.h"

#include <atomic>
#include <cstring>

namespace rixstats {

// Stands before each area, and keeps it aligned.
typedef union _AreaHead
{
    size_t size; // of the area behind it
    max_align_t alignment;
} AreaHead;

static std::atomic<AreaHead *> keptAreas[KEPT_AREAS]; // the latest one first

static bool canBeKept(size_t size)
{
#ifdef RIXSTATS_EXACT_AREAS // where a sanitizer has to see a step behind an area's end
    if (size > 0) return false;
#endif
    return size >= LEAST_KEPT_SIZE && size <= MOST_KEPT_SIZE;
}

static void release(AreaHead *area)
{
    if (area != nullptr) freeBlock(area, sizeof *area + area->size);
}

static void putBack(std::atomic<AreaHead *> &slot, AreaHead *area)
{
    AreaHead *none = nullptr;
    if (!slot.compare_exchange_strong(none, area)) release(area);
}

static AreaHead *takeKept(size_t size)
{
    for (std::atomic<AreaHead *> &slot : keptAreas) {
        AreaHead *area = slot.exchange(nullptr);
        if (area == nullptr) continue;
        if (area->size >= size) return area;
        putBack(slot, area);
    }
    return nullptr;
}

// An area that may be kept has an eighth to spare, so that it serves replies that are a little longer, too.
static size_t sizeToKeep(size_t size)
{
    if (!canBeKept(size)) return size;
    const size_t roomy = size + size / 8;
    return roomy < MOST_KEPT_SIZE ? roomy : MOST_KEPT_SIZE;
}

static AreaHead *newArea(size_t size)
{
    const size_t all = sizeof(AreaHead) + size;
    if (all < size) return nullptr;
    // Only what is kept is filled before it is used anew; what a lying gateway makes huge is not touched.
    AreaHead *area = static_cast<AreaHead *>(canBeKept(size) ? newBlock(all, all) : newZeroedBlock(all));
    if (area != nullptr) area->size = size;
    return area;
}

char *newReplyArea(size_t size)
{
    AreaHead *area = canBeKept(size) ? takeKept(size) : nullptr;
    if (area == nullptr) area = newArea(sizeToKeep(size));
    if (area == nullptr && dropKeptAreas()) area = newArea(size); // what is kept must not be what is missing
    return area != nullptr ? reinterpret_cast<char *>(area + 1) : nullptr;
}

char *newRequestArea(size_t size)
{
    char *area = newReplyArea(size);
    if (area != nullptr && canBeKept(size)) memset(area, 0, size); // no more of it is sent
    return area;
}

void zeroAreaBehind(char *area, size_t used)
{
    const size_t size = (reinterpret_cast<AreaHead *>(area) - 1)->size;
    if (canBeKept(size) && used < size) memset(area + used, 0, size - used);
}

// The latest area pushes the others on; the oldest drops out.
void freeFlowArea(char *area)
{
    if (area == nullptr) return;
    AreaHead *pushed = reinterpret_cast<AreaHead *>(area) - 1;
    if (canBeKept(pushed->size))
        for (int i = 0; i < KEPT_AREAS && pushed != nullptr; i++)
            pushed = keptAreas[i].exchange(pushed);
    release(pushed);
}

bool dropKeptAreas()
{
    bool any = false;
    for (std::atomic<AreaHead *> &slot : keptAreas) {
        AreaHead *area = slot.exchange(nullptr);
        any = any || area != nullptr;
        release(area);
    }
    return any;
}

} // namespace rixstats
