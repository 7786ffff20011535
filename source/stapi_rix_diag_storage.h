// The pieces of one line of a storage dump. Private to the trace facility and its tests.
#ifndef STAPI_RIX_DIAG_STORAGE_H
#define STAPI_RIX_DIAG_STORAGE_H

#include <cstddef>

namespace rixstats {

// A dump line in the making. Text beyond its size is written to the trace destination as it fills up.
typedef struct _DumpLine
{
    char text[256];
    size_t length;
} DumpLine;

void writeDumpLine(DumpLine *line); // to the trace destination; the line is empty afterwards

// startAddr: first byte of the line; dataLen: bytes left of the data, 0 if the stop word ends it. translate is carried
// for platforms whose characters differ from the gateway's and has no effect on this one.
int writeStorageLineDual(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord, int translate);
int writeStorageLineHex(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord);
int writeStorageLineChar(DumpLine *line, const char *startAddr, int width, int dataLen, int stopWord, int translate);

} // namespace rixstats

#endif
