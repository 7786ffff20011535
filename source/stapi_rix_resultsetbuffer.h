// Result sets in memory: the words and texts of their buffers, and the tokens behind the callers' handles. Calls the
// trace facility and the module for blocks of memory.
//
// A result-set buffer is packed, its words in the host's byte order and unaligned:
//
//   eyecatcher "RIXIDSET" or "RIXSTSET" | query count | element ... | terminator
//   element: length, text | result, negative if it failed | result count | result ...      (count: unless it failed)
//   result:  length, identifier                     (RIXIDSET)
//            length, identifier | length, value     (RIXSTSET)
#ifndef STAPI_RIX_RESULTSETBUFFER_H
#define STAPI_RIX_RESULTSETBUFFER_H

#include "stapi_rix_tokens.h"

#include <cstring>

namespace rixstats {

constexpr int RESULT_SET_TERMINATOR = 0x0E0F0E0F;
constexpr char ID_SET_EYECATCHER[] = "RIXIDSET";
constexpr char STAT_SET_EYECATCHER[] = "RIXSTSET";

// Writers. Each stores at the write cursor, which the caller has made room for, and moves the cursor on (addTerminator
// does not). They return 0, or STAPI_NULL_ARGUMENT for a null cursor or text.
int addInteger(char **bufWPtr, int rsInt);
int addChars(char **bufWPtr, const char *textPtr, int charCount);
int addPlatformChars(char **bufWPtr, const char *textPtr, int charCount); // text of this platform's own character set
int addIdStr(char **bufWPtr, const char *idString); // length, text, and a zero byte to be overwritten
int addTerminator(char *writeCursor);

// *isRSTermPtr: 1 if the terminator stands at the cursor, else 0.
int checkTerminator(const char *dataCursorPtr, int *isRSTermPtr);

inline int wordAt(const char *cursor)
{
    int word;
    memcpy(&word, cursor, sizeof word);
    return word;
}

inline bool hasEyecatcher(const char *buffer, const char *eyecatcher)
{
    return buffer != nullptr && memcmp(buffer, eyecatcher, EYECATCHER_SIZE) == 0;
}

// Areas for result sets, of the given size and with the spare bytes behind it; null if there is no memory. A new one is
// zeroed, and one that grows keeps its bytes, with zeros behind them; if it cannot grow, it stays as it was. A copy has
// the size of its source, and of its bytes the result set and what a storage dump may show behind it.
char *newResultSetArea(int size);
char *growResultSetArea(char *area, int newSize);
char *copyResultSetArea(const char *area);
void freeResultSetArea(char *area); // takes null too

// Whoever has written a result set tells its length, the terminator included.
void setResultSetLength(char *area, int length);

// Bytes of an area that a copy needs: the result set, and what a storage dump may show behind it.
size_t resultSetShown(const char *area);

int createResultSet(RIX_ResultSetToken_t *newRsTokPtr, const char *eyecatcher, int owner);
int deleteResultSet(RIX_ResultSetToken_t *rsPtr); // leaves the buffer at rsBuffPtr to the caller
int dumpResultSetInternal(const Internal_ResultSetToken_t *rsPtr);

// STAPI_OK, STAPI_WRONG_PROCESS or STAPI_WRONG_THREAD, for a connection's result set.
int verifyAPIResultSetTokenOwner(const Internal_ResultSetToken_t *rsPtr);

} // namespace rixstats

#endif
