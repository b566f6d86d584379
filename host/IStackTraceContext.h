// One frame of a stopped program: where a symbol's location is resolved.
#pragma once

#include <cstdint>

namespace tarn {

class IStackTraceContext {
public:
    virtual ~IStackTraceContext() = default;
    virtual uint64_t getProgramCounter() const = 0;
    virtual uint64_t getFramePointer() const = 0;
};

} // namespace tarn
