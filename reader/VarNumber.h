// The variable-length numbers of format versions 10 and 11, assembled one byte at a time.
#pragma once

#include <cstdint>

namespace ubrof {

/// Seven bits a byte, the lowest group first; a byte below 0x80 is the last. Five bytes carry
/// every 32-bit value, so a sixth is refused: a run of set top bits cannot make a read go on.
class VarNumber {
public:
    static constexpr unsigned kMaxBytes = 5;

    /// Adds the next byte; false when the number already has kMaxBytes bytes.
    bool add(uint8_t byte)
    {
        if (shift_ >= 7 * kMaxBytes)
            return false;
        value_ |= uint64_t(byte & 0x7F) << shift_;
        shift_ += 7;
        last_ = byte;
        complete_ = byte < 0x80;
        return true;
    }

    bool complete() const { return complete_; }
    /// Five bytes hold 35 bits; only values that fit 32 are numbers of this format.
    bool fitsUnsigned() const { return value_ <= 0xFFFFFFFFu; }
    uint32_t value() const { return static_cast<uint32_t>(value_); }

    /// The number read as signed: bit 0x40 of its last byte is the sign of the whole.
    int64_t signedValue() const
    {
        return (last_ & 0x40) != 0 ? int64_t(value_) - (int64_t(1) << shift_) : int64_t(value_);
    }

private:
    uint64_t value_ = 0;
    unsigned shift_ = 0;
    uint8_t last_ = 0;
    bool complete_ = false;
};

} // namespace ubrof
