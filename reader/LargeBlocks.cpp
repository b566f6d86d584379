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

void* allocateSearched(size_t bytes)
{
    if (bytes < kLargeBlockSize)
        return ::operator new(bytes);
    // A whole number of huge pages: the last one is backed in full once touched anyway.
    if (bytes > size_t(-1) - kLargeBlockSize)
        throw std::bad_alloc();
    const size_t rounded = (bytes + kLargeBlockSize - 1) / kLargeBlockSize * kLargeBlockSize;
    void* storage = std::aligned_alloc(kLargeBlockSize, rounded);
    if (!storage)
        throw std::bad_alloc();
    madvise(storage, rounded, MADV_HUGEPAGE);
    return storage;
}

void releaseSearched(void* storage, size_t bytes)
{
    if (bytes < kLargeBlockSize)
        ::operator delete(storage);
    else
        std::free(storage);
}

} // namespace ubrof
