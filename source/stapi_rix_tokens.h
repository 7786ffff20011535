// The records behind the public handles. Their names are global: the public header declares them.
#ifndef STAPI_RIX_TOKENS_H
#define STAPI_RIX_TOKENS_H

#include "rixstats.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <sys/types.h>

constexpr int EYECATCHER_SIZE = 8; // eyecatchers have no terminating zero byte

constexpr int OWNER_LIBRARY = 0x8888; // a connection's own result set
constexpr int OWNER_USER = 0x9999;    // a caller's copy

constexpr int QUERY_TEXT_SIZE = 32000;    // of the text that getIdQuery() builds, with its terminating zero
constexpr int RESULT_SET_SIZE = 32768;    // of a connection's first result-set buffer
constexpr int RESULT_SET_SPARE = 16;      // zeroed bytes behind every result-set area: a storage dump shows whole lines
constexpr int PROTOCOL_VERSION_SIZE = 64; // with the terminating zero
constexpr int FORMATTED_TOKEN_SIZE = 512;

typedef struct _Internal_ResultSetToken_t
{
    char eyecatcher[EYECATCHER_SIZE]; // "RIXRSROB" of a connection, "RIXRSUSR" a copy
    int owner;
    int category;            // set and copied, read by nothing: the buffer's eyecatcher tells the content
    char *queryString;       // owned; the latest query's text, or null
    char *validatedQueryPtr; // owned; QUERY_TEXT_SIZE bytes for getIdQuery()
    char *rsBuffPtr;         // owned by a copy only; else the connection's buffer
    int rsBuffLen;           // size of that area, not of the data in it
    char *cursor;            // first byte that the walk has not consumed
    int queryCount;
    int queryIndex;         // of the element being read, from 1; 0: nothing has been read yet
    int elementResultCount; // of that element
    int elementResultIndex; // of its next result, from 1; 0: an element header or the end comes next
    pid_t owningPid;        // these two: of a connection's result set only
    pthread_t owningTid;
    char *cacheElementPtr; // the element being read, for its later results
    int cacheElementLen;
    int cacheElementRC;
} Internal_ResultSetToken_t;

// Where a connection is in its life; stapi_rix_gwytok_life.cpp holds all changes, docs/architecture.md draws them.
enum class TokenState
{
    busy,     // on the list: its owner is opening it, or running a query on it
    idle,     // on the list, in nobody's use
    orphaned, // off the list: another thread closed it while it was busy, its owner has to release it
    closing,  // off the list: the thread that took it off is releasing it
    resting   // ended: its address is kept out of use for a while, so that its handle is not mistaken for another
};

typedef struct _Internal_GatewayToken_t
{
    char eyecatcher[EYECATCHER_SIZE]; // "RIXGWTOK"
    unsigned int portNumber;
    int connStatus;                    // 0 new, 1 connected, 2 connect failed, 3 close failed, 4 closed
    std::atomic<int> socketDescriptor; // a thread that closes the connection may shut it under the one that uses it
    Internal_ResultSetToken_t *connRSPtr;
    char *resultSetBuf; // grows with the replies; null after it could not
    int resultSetBufLen;
    pid_t owningPid;
    pthread_t owningTid;
    char *protocolVersion;
    struct _Internal_GatewayToken_t *nextGwyTokPtr;
    TokenState state;
} Internal_GatewayToken_t;

// The read position may be dumped by another thread while the owning one walks on.
inline void setCursor(Internal_ResultSetToken_t *rs, char *cursor)
{
    __atomic_store_n(&rs->cursor, cursor, __ATOMIC_RELAXED);
}

inline const char *readCursor(const Internal_ResultSetToken_t *rs)
{
    return __atomic_load_n(&rs->cursor, __ATOMIC_RELAXED);
}

#endif
