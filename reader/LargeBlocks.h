// Memory for the store's large tables in blocks the kernel can back with huge pages.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace ubrof {

/// A large table grows in blocks of this size, aligned to it: filling one costs one page fault
/// where 4 KiB pages would cost 512, and a parse fills hundreds of megabytes.
inline constexpr size_t kLargeBlockSize = size_t(2) << 20;

/// A block of kLargeBlockSize bytes, uninitialised; throws std::bad_alloc.
void* allocateLargeBlock();
void releaseLargeBlock(void* block);

/// Storage of bytes bytes: from a kLargeBlockSize on, whole blocks of that size mapped apart
/// from the heap and hinted for huge pages, as the large blocks are; below that, ordinary.
/// Throws std::bad_alloc.
void* allocateSearched(size_t bytes);
void releaseSearched(void* storage, size_t bytes);

/// For the indexes a query bisects at random: in a large program each step of a search
/// would otherwise cost a miss in the address translation cache as well as in the data cache.
template <typename T>
struct SearchedAllocator {
    using value_type = T;
    SearchedAllocator() = default;
    template <typename U>
    SearchedAllocator(const SearchedAllocator<U>&) noexcept
    {
    }
    T* allocate(size_t count)
    {
        if (count > size_t(-1) / sizeof(T))
            throw std::bad_alloc();
        return static_cast<T*>(allocateSearched(count * sizeof(T)));
    }
    void deallocate(T* storage, size_t count) noexcept { releaseSearched(storage, count * sizeof(T)); }
    template <typename U>
    bool operator==(const SearchedAllocator<U>&) const noexcept
    {
        return true;
    }
    template <typename U>
    bool operator!=(const SearchedAllocator<U>&) const noexcept
    {
        return false;
    }
};

template <typename T>
using SearchedVector = std::vector<T, SearchedAllocator<T>>;

} // namespace ubrof
