// Memory for the store's large tables in blocks the kernel can back with huge pages.
#pragma once

#include <cstddef>

namespace ubrof {

/// A large table grows in blocks of this size, aligned to it: filling one costs one page fault
/// where 4 KiB pages would cost 512, and a parse fills hundreds of megabytes.
inline constexpr size_t kLargeBlockSize = size_t(2) << 20;

/// A block of kLargeBlockSize bytes, uninitialised; throws std::bad_alloc.
void* allocateLargeBlock();
void releaseLargeBlock(void* block);

} // namespace ubrof
