// IndexPool: a full list moves to the end of the pool with twice the room.
#include "reader/IndexPool.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace ubrof {

void IndexPool::Release::operator()(uint32_t* pool) const
{
    std::free(pool);
}

void IndexPool::grow(List& list)
{
    const uint32_t room = std::max<uint32_t>(1, 2 * list.size);
    const bool last = list.size != 0 && size_t(list.offset) + list.size == used_;
    const size_t offset = last ? list.offset : used_;
    // Offsets are 32-bit; four billion entries cannot come from a file the reader can read.
    if (offset + room > UINT32_MAX)
        throw std::length_error("index lists beyond 32-bit offsets");
    if (offset + room > capacity_) {
        // The pool holds plain numbers, so it may move without constructing anything, and a
        // large one is remapped rather than copied.
        const size_t capacity = std::max<size_t>({offset + room, 2 * capacity_, 1024});
        auto* moved = static_cast<uint32_t*>(std::realloc(pool_.get(), capacity * sizeof(uint32_t)));
        if (!moved)
            throw std::bad_alloc();
        pool_.release();
        pool_.reset(moved);
        capacity_ = capacity;
    }
    if (!last) {
        std::copy_n(pool_.get() + list.offset, list.size, pool_.get() + offset);
        list.offset = static_cast<uint32_t>(offset);
    }
    used_ = offset + room;
}

} // namespace ubrof
