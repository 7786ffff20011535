// Storage dumps: a region of memory as lines of an address, hexadecimal bytes and printable characters,
//
//   0x7F0C2C000B70: 47617465 00700000 00000005 00000000 : Gate.p..........
//
// in a layout that support people and their tools know by column. Each line is put together first and written at once,
// so that a crash loses no finished line.
#include "stapi_rix_diag_storage.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"

#include <cctype>
#include <cinttypes>
#include <cstdint>
#include <cstring>

namespace rixstats {

const char dumpRuler[81] = "--------------------------------------------------------------------------------";

static void putText(DumpLine *line, const char *text, size_t length)
{
    for (size_t i = 0; i < length; i++) {
        if (line->length == sizeof line->text) writeDumpLine(line);
        line->text[line->length++] = text[i];
    }
}

void writeDumpLine(DumpLine *line)
{
    writeOutput(statAPITraceHandle, line->text, line->length);
    line->length = 0;
}

// The data ends here: its stated length is used up or, where none is stated, the stop word stands here.
static bool dataEndsAt(const char *position, int offset, int dataLen, int stopWord)
{
    if (dataLen != 0) return offset == dataLen;
    int word;
    memcpy(&word, position, sizeof word);
    return word == stopWord;
}

int writeStorageLineHex(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord)
{
    static const char digits[] = "0123456789ABCDEF";
    int result = width;
    bool found = false;
    for (int offset = 0; offset < width;) {
        // Tested at every position, so that a later stop word on the line moves the result.
        if (dataEndsAt(startAddr + offset, offset, dataLen, stopWord)) {
            found = true;
            result = offset;
        }
        // With the stop word at the very start of the line the whole line is shown all the same: kept on purpose.
        if (found && result != 0) {
            putText(line, "  ", 2);
        } else {
            const unsigned byte = static_cast<unsigned char>(startAddr[offset]);
            const char hex[2] = {digits[byte >> 4], digits[byte & 15]};
            putText(line, hex, sizeof hex);
        }
        if (++offset == width) break;
        if (offset % 4 == 0) putText(line, " ", 1);
        if (offset % 16 == 0) putText(line, " ", 1);
    }
    return result;
}

int writeStorageLineChar(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord, int)
{
    for (int offset = 0; offset < width;) {
        if (dataEndsAt(startAddr + offset, offset, dataLen, stopWord)) return offset;
        const char byte = startAddr[offset];
        putText(line, isprint(static_cast<unsigned char>(byte)) != 0 ? &byte : ".", 1);
        if (++offset % 16 == 0) putText(line, " ", 1);
    }
    return 0;
}

int writeStorageLineDual(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord, int translate)
{
    const int result = writeStorageLineHex(line, startAddr, width, dataLen, stopWord);
    putText(line, " : ", 3);
    writeStorageLineChar(line, startAddr, width, dataLen, stopWord, translate);
    putText(line, "\n", 1);
    return result;
}

static int dumpLineAt(const char *cursor, const char *shownAddr, int width, int remaining, int stopWord, int translate)
{
    DumpLine line = {{0}, 0};
    char address[24];
    const int length = snprintf(address, sizeof address, "0x%8.8" PRIXPTR ": ", reinterpret_cast<uintptr_t>(shownAddr));
    putText(&line, address, static_cast<size_t>(length));
    const int result = writeStorageLineDual(&line, cursor, width, remaining, stopWord, translate);
    writeDumpLine(&line);
    return result;
}

int traceOutCopy(const char *startAddr, const char *shownAddr, int dataLen, int stopWord, int width, int translate)
{
    if (startAddr == nullptr || (dataLen == 0 && stopWord == 0)) return 0; // nothing would ever end such a dump
    int total = 0;
    for (;;) {
        const int remaining = dataLen != 0 ? dataLen - total : 0;
        const int dumped = dumpLineAt(startAddr + total, shownAddr + total, width, remaining, stopWord, translate);
        total += dumped;
        if (dataLen != 0 ? total >= dataLen : dumped != width) return total;
    }
}

int traceOutStorage(const char *startAddr, int dataLen, int stopWord, int width, int translate)
{
    return traceOutCopy(startAddr, startAddr, dataLen, stopWord, width, translate);
}

} // namespace rixstats
