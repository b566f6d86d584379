// Where a symbol lives at a stack frame: an addressing mode and the memory pieces that hold it.
#pragma once

#include "host/IStackTraceContext.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn {

/// One contiguous piece of a location.
struct MemoryPiece {
    uint64_t address = 0;
    int32_t offset = 0;
    std::string memorySpace;
    uint32_t registerNumber = 0;
    uint32_t size = 0;
    uint32_t bitOffset = 0;
    uint32_t bitSize = 0;
};

class ILocation {
public:
    enum AddressingMode {
        Value = 0,          ///< the symbol is a constant, not stored
        Memory = 1,         ///< at an absolute address
        Register = 2,       ///< in one register
        FrameOffset = 3,    ///< at an offset from the frame
        Computed = 9,       ///< computed by an expression the host evaluates
        Unknown = 10,       ///< not known
        RegisterPieces = 11 ///< spread over consecutive registers, one piece each
    };

    virtual ~ILocation() = default;
    virtual AddressingMode getAddressingMode() const = 0;
    virtual const std::vector<MemoryPiece>& getPieces() const = 0;
    virtual boost::shared_ptr<IStackTraceContext> getFrame() const = 0;
};

class MemoryLocation : public ILocation {
public:
    MemoryLocation(boost::shared_ptr<IStackTraceContext> frame, AddressingMode mode,
                   std::vector<MemoryPiece> pieces);

    AddressingMode getAddressingMode() const override { return mode_; }
    const std::vector<MemoryPiece>& getPieces() const override { return pieces_; }
    boost::shared_ptr<IStackTraceContext> getFrame() const override { return frame_; }

private:
    boost::shared_ptr<IStackTraceContext> frame_;
    AddressingMode mode_;
    std::vector<MemoryPiece> pieces_;
};

} // namespace tarn
