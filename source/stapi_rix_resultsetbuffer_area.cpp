// The areas that hold result sets. Each knows how large it is and how far it is filled, so that whoever copies a result
// set neither looks for its end, which may stand in a value too, nor copies what a longer answer has left behind it.
#include "stapi_rix_memory.h"
#include "stapi_rix_resultsetbuffer.h"

namespace rixstats {

// Stands before each area, and keeps it aligned.
typedef union _ResultSetHead
{
    struct
    {
        int size;   // of the area behind it, without the spare bytes
        int length; // of the result set in it, with its terminator
    } of;
    max_align_t alignment;
} ResultSetHead;

static const ResultSetHead *headOf(const char *area)
{
    return reinterpret_cast<const ResultSetHead *>(area) - 1;
}

static ResultSetHead *headOf(char *area)
{
    return reinterpret_cast<ResultSetHead *>(area) - 1;
}

static size_t blockSize(int areaSize)
{
    return sizeof(ResultSetHead) + static_cast<size_t>(areaSize) + RESULT_SET_SPARE;
}

// block: the area's, or null.
static char *areaIn(void *block, int size, int length)
{
    if (block == nullptr) return nullptr;
    ResultSetHead *head = static_cast<ResultSetHead *>(block);
    head->of = {size, length};
    return reinterpret_cast<char *>(head + 1);
}

char *newResultSetArea(int size)
{
    return areaIn(newZeroedBlock(blockSize(size)), size, sizeof RESULT_SET_TERMINATOR);
}

char *growResultSetArea(char *area, int newSize)
{
    ResultSetHead *head = headOf(area);
    const int length = head->of.length;
    return areaIn(growBlock(head, blockSize(head->of.size), blockSize(newSize)), newSize, length);
}

char *copyResultSetArea(const char *area)
{
    const ResultSetHead *head = headOf(area);
    const size_t shown = resultSetShown(area);
    char *copy = areaIn(newBlock(blockSize(head->of.size), sizeof *head + shown), head->of.size, head->of.length);
    if (copy != nullptr) memcpy(copy, area, shown);
    return copy;
}

void freeResultSetArea(char *area)
{
    if (area != nullptr) freeBlock(headOf(area), blockSize(headOf(area)->of.size));
}

void setResultSetLength(char *area, int length)
{
    headOf(area)->of.length = length;
}

size_t resultSetShown(const char *area)
{
    return static_cast<size_t>(headOf(area)->of.length) + RESULT_SET_SPARE;
}

} // namespace rixstats
