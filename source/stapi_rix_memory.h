// Blocks of memory for requests, replies and result sets. A large one has pages of its own: they go back to the system
// the moment it is released, where an allocator would keep what it has once been given that much of, and what nobody
// touches of them takes no memory. Calls libc alone.
#ifndef STAPI_RIX_MEMORY_H
#define STAPI_RIX_MEMORY_H

#include <cstddef>

namespace rixstats {

constexpr size_t LARGE_BLOCK = 4 << 20; // a block of more bytes is a large one

// Null if there is no memory. The first is for a block of which so many bytes are about to be filled.
void *newBlock(size_t size, size_t filled);
void *newZeroedBlock(size_t size);

// The block with more bytes, zeroed, behind those of size; null if there is no memory: then it stays as it was.
void *growBlock(void *block, size_t size, size_t newSize);

// Takes null too. size: what the block was made with or has grown to.
void freeBlock(void *block, size_t size);

} // namespace rixstats

#endif
