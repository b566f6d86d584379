// Many short, growable lists of record indices kept in one pool, so that a list costs no allocation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace ubrof {

/// A view of one list of an IndexPool; valid until the pool grows.
class IndexRange {
public:
    IndexRange() = default;
    IndexRange(const uint32_t* first, uint32_t size) : first_(first), size_(size) {}
    const uint32_t* begin() const { return first_; }
    const uint32_t* end() const { return first_ + size_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    uint32_t front() const { return first_[0]; }
    uint32_t back() const { return first_[size_ - 1]; }
    uint32_t operator[](size_t position) const { return first_[position]; }
    std::vector<uint32_t> toVector() const { return std::vector<uint32_t>(begin(), end()); }
    friend bool operator==(const IndexRange& range, const std::vector<uint32_t>& values)
    {
        return range.toVector() == values;
    }
    friend bool operator==(const std::vector<uint32_t>& values, const IndexRange& range) { return range == values; }

private:
    const uint32_t* first_ = nullptr;
    uint32_t size_ = 0;
};

/// Lists of 32-bit indices that grow one entry at a time, any of them at any time. A list is an
/// offset and a size in the pool; its room is the next power of two of its size. A full list
/// doubles at the end of the pool (in place when it is already last), leaving its old room
/// behind: the pool holds at most about three entries per entry listed.
class IndexPool {
public:
    struct List {
        uint32_t offset = 0;
        uint32_t size = 0;
    };

    void append(List& list, uint32_t value)
    {
        if (list.size == roomOf(list.size))
            grow(list);
        pool_[list.offset + list.size++] = value;
    }
    IndexRange range(const List& list) const
    {
        return list.size == 0 ? IndexRange() : IndexRange(pool_.get() + list.offset, list.size);
    }

private:
    static uint32_t roomOf(uint32_t size)
    {
        uint32_t room = 1;
        while (room < size)
            room <<= 1;
        return size == 0 ? 0 : room;
    }
    void grow(List& list);

    struct Release {
        void operator()(uint32_t* pool) const;
    };
    std::unique_ptr<uint32_t[], Release> pool_;
    size_t used_ = 0;     ///< entries handed out, the rooms left behind included
    size_t capacity_ = 0; ///< entries allocated
};

} // namespace ubrof
