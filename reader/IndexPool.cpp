// IndexPool: a full list moves to the end of the pool with twice the room.
#include "reader/IndexPool.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace ubrof {

void IndexPool::grow(List& list)
{
    const uint32_t room = std::max<uint32_t>(1, 2 * list.size);
    if (list.size != 0 && size_t(list.offset) + list.size == pool_.size()) {
        pool_.resize(size_t(list.offset) + room);
        return;
    }
    // Offsets are 32-bit; four billion entries cannot come from a file the reader can read.
    if (pool_.size() + room > UINT32_MAX)
        throw std::length_error("index lists beyond 32-bit offsets");
    const auto offset = static_cast<uint32_t>(pool_.size());
    pool_.resize(size_t(offset) + room);
    std::copy_n(pool_.begin() + list.offset, list.size, pool_.begin() + offset);
    list.offset = offset;
}

} // namespace ubrof
