// DMemory: a flat image that grows sixteenfold when a write lands beyond it.
#include "reader/DMemory.h"

#include "reader/ReaderError.h"

#include <algorithm>
#include <cstring>

namespace ubrof {

DMemory::DMemory(uint32_t initialCapacity, uint8_t fillByte)
    : buffer_(std::max<uint32_t>(initialCapacity, 1024), fillByte), fillByte_(fillByte)
{
}

uint8_t* DMemory::reserve(uint32_t address, uint32_t count)
{
    const uint64_t end = uint64_t(address) + count;
    if (end > kMaxCapacity)
        throw ReaderError{kOutOfMemory};
    uint64_t capacity = buffer_.size();
    while (end > capacity)
        capacity = std::min<uint64_t>(capacity * 16, kMaxCapacity);
    if (capacity != buffer_.size())
        buffer_.resize(capacity, fillByte_);
    if (address < lowAddress_)
        lowAddress_ = address;
    if (count != 0 && end - 1 > highAddress_)
        highAddress_ = static_cast<uint32_t>(end - 1);
    return buffer_.data() + address;
}

void DMemory::read(uint32_t address, uint32_t count, uint8_t* out) const
{
    const uint64_t size = buffer_.size();
    const uint64_t inside = address < size ? std::min<uint64_t>(count, size - address) : 0;
    if (inside != 0)
        std::memcpy(out, buffer_.data() + address, inside);
    std::memset(out + inside, fillByte_, count - inside);
}

} // namespace ubrof
