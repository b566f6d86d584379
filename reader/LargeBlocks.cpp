// LargeBlocks: aligned allocations with the hint that huge pages suit them.
#include "reader/LargeBlocks.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace ubrof {

void* allocateLargeBlock()
{
    return allocateSearched(kLargeBlockSize);
}

void releaseLargeBlock(void* block)
{
    releaseSearched(block, kLargeBlockSize);
}

void* allocateSearched(size_t bytes)
{
    if (bytes < kLargeBlockSize)
        return ::operator new(bytes);
    // A whole number of huge pages, mapped apart from the heap: the heap would keep them after
    // release, and its alignment slack would sit on huge pages of its own.
    if (bytes > size_t(-1) / 2 - kLargeBlockSize)
        throw std::bad_alloc();
    const size_t rounded = (bytes + kLargeBlockSize - 1) / kLargeBlockSize * kLargeBlockSize;
    const size_t mapped = rounded + kLargeBlockSize;
    void* area = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED)
        throw std::bad_alloc();
    const auto start = reinterpret_cast<uintptr_t>(area);
    const uintptr_t aligned = (start + kLargeBlockSize - 1) & ~uintptr_t(kLargeBlockSize - 1);
    if (aligned != start)
        munmap(area, aligned - start);
    if (const size_t after = start + mapped - (aligned + rounded))
        munmap(reinterpret_cast<void*>(aligned + rounded), after);
    madvise(reinterpret_cast<void*>(aligned), rounded, MADV_HUGEPAGE);
    return reinterpret_cast<void*>(aligned);
}

void releaseSearched(void* storage, size_t bytes)
{
    if (bytes < kLargeBlockSize) {
        ::operator delete(storage);
        return;
    }
    munmap(storage, (bytes + kLargeBlockSize - 1) / kLargeBlockSize * kLargeBlockSize);
}

} // namespace ubrof
