// A growable image of one memory space, filled with a fill byte where nothing was written.
#pragma once

#include <cstdint>
#include <vector>

namespace ubrof {

class DMemory {
public:
    /// Images never grow beyond this many bytes: no device of this family addresses more,
    /// and a hostile address must not cost gigabytes.
    static constexpr uint32_t kMaxCapacity = 0x2000000;

    DMemory(uint32_t initialCapacity, uint8_t fillByte);
    virtual ~DMemory() = default;

    /// Writable space for count bytes at address; grows the image (x16 per step) and widens
    /// the written range. Throws ReaderError(kOutOfMemory) beyond kMaxCapacity.
    uint8_t* reserve(uint32_t address, uint32_t count);
    /// Copies count bytes from address on; bytes outside the image read as the fill byte.
    void read(uint32_t address, uint32_t count, uint8_t* out) const;

    uint32_t capacity() const { return static_cast<uint32_t>(buffer_.size()); }
    uint32_t lowAddress() const { return lowAddress_; }
    uint32_t highAddress() const { return highAddress_; }
    uint8_t fillByte() const { return fillByte_; }

private:
    std::vector<uint8_t> buffer_;
    uint32_t lowAddress_ = 0xFFFFFFFF;
    uint32_t highAddress_ = 0;
    uint8_t fillByte_;
};

} // namespace ubrof
