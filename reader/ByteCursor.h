// A bounded reader over a tag body held in memory: every read is checked against the body's end.
#pragma once

#include "reader/VarNumber.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace ubrof {

/// What went wrong inside a body, and at which of its bytes.
struct ByteCursorError {
    size_t offset;
    const char* what;
};

class ByteCursor {
public:
    ByteCursor(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t byte()
    {
        need(1);
        return data_[offset_++];
    }

    uint32_t word16()
    {
        need(2);
        const uint32_t value = uint32_t(data_[offset_]) << 8 | data_[offset_ + 1];
        offset_ += 2;
        return value;
    }

    uint32_t word32()
    {
        need(4);
        const uint32_t value = uint32_t(data_[offset_]) << 24 | uint32_t(data_[offset_ + 1]) << 16 |
                               uint32_t(data_[offset_ + 2]) << 8 | data_[offset_ + 3];
        offset_ += 4;
        return value;
    }

    uint32_t varNumber()
    {
        const size_t start = offset_;
        const VarNumber number = take();
        if (!number.fitsUnsigned())
            throw ByteCursorError{start, "a variable-length number beyond 32 bits"};
        return number.value();
    }

    int32_t signedVarNumber()
    {
        const size_t start = offset_;
        const int64_t value = take().signedValue();
        if (value < INT32_MIN || value > INT32_MAX)
            throw ByteCursorError{start, "a signed variable-length number beyond 32 bits"};
        return static_cast<int32_t>(value);
    }

    /// count bytes as text, cut at a NUL as every text of the format is.
    std::string text(uint32_t count)
    {
        need(count);
        std::string value(reinterpret_cast<const char*>(data_ + offset_), count);
        offset_ += count;
        const size_t end = value.find('\0');
        if (end != std::string::npos)
            value.resize(end);
        return value;
    }

    void skip(size_t count)
    {
        need(count);
        offset_ += count;
    }

    size_t offset() const { return offset_; }
    size_t remaining() const { return size_ - offset_; }
    bool atEnd() const { return offset_ == size_; }
    const uint8_t* here() const { return data_ + offset_; }

private:
    void need(size_t count) const
    {
        if (count > size_ - offset_)
            throw ByteCursorError{offset_, "the body ends inside a field"};
    }

    VarNumber take()
    {
        const size_t start = offset_;
        VarNumber number;
        do {
            if (!number.add(byte()))
                throw ByteCursorError{start, "a variable-length number longer than five bytes"};
        } while (!number.complete());
        return number;
    }

    const uint8_t* data_;
    size_t size_;
    size_t offset_ = 0;
};

} // namespace ubrof
