// A descriptor set for select() that holds one socket, whatever its number: a program that has thousands of files open
// hands out descriptors which a plain fd_set has no room for. Calls nothing of the library.
#ifndef STAPI_RIX_SOCKETSET_H
#define STAPI_RIX_SOCKETSET_H

#include <cstdlib>
#include <sys/select.h>

namespace rixstats {

typedef struct _SocketSet
{
    fd_set fixed;
    unsigned long *words; // the set's bits: those of `fixed`, or an allocation for descriptors beyond it
} SocketSet;

constexpr int BITS_IN_WORD = 8 * static_cast<int>(sizeof(unsigned long));

// Returns 0, or -1 if there is no memory. Released by freeSocketSet(); nothing is held after a failure.
inline int initSocketSet(SocketSet *set, int socketDesc)
{
    FD_ZERO(&set->fixed);
    set->words = reinterpret_cast<unsigned long *>(&set->fixed);
    if (socketDesc >= FD_SETSIZE)
        set->words = static_cast<unsigned long *>(
            calloc(static_cast<size_t>(socketDesc / BITS_IN_WORD) + 1, sizeof(unsigned long)));
    if (set->words == nullptr) return -1;
    set->words[socketDesc / BITS_IN_WORD] |= 1ul << (socketDesc % BITS_IN_WORD);
    return 0;
}

inline fd_set *fdSetOf(SocketSet *set)
{
    return reinterpret_cast<fd_set *>(set->words);
}

inline bool isInSocketSet(const SocketSet *set, int socketDesc)
{
    return (set->words[socketDesc / BITS_IN_WORD] >> (socketDesc % BITS_IN_WORD) & 1) != 0;
}

inline void freeSocketSet(SocketSet *set)
{
    if (set->words != reinterpret_cast<unsigned long *>(&set->fixed)) free(set->words);
}

} // namespace rixstats

#endif
