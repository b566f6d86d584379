// LargeBlocks: aligned allocations with the hint that huge pages suit them.
#include "reader/LargeBlocks.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace ubrof {

void* allocateLargeBlock()
{
    void* block = std::aligned_alloc(kLargeBlockSize, kLargeBlockSize);
    if (!block)
        throw std::bad_alloc();
    // Only a hint: where the system keeps huge pages for those who ask, or not at all, the
    // block is an ordinary one.
    madvise(block, kLargeBlockSize, MADV_HUGEPAGE);
    return block;
}

void releaseLargeBlock(void* block)
{
    std::free(block);
}

} // namespace ubrof
