// Source-side value types of the host: code areas, source positions, address/name pairs, call frames.
#pragma once

#include <cstdint>
#include <string>

namespace tarn {

/// A run of code that belongs to one source position: [startAddress, endAddress).
struct CodeArea {
    std::string functionName;
    std::string fileName;
    uint64_t startLine = 0;
    uint64_t endLine = 0;
    uint64_t startColumn = 0;
    uint64_t endColumn = 0;
    uint64_t startAddress = 0;
    uint64_t endAddress = 0;
    uint32_t discriminator = 0;
    uint8_t isStatement = 0;
    uint8_t isBasicBlock = 0;
    uint8_t isPrologueEnd = 0;
    uint8_t isEpilogueBegin = 0;
};

struct CodeLocation {
    uint32_t line = 0;
    uint32_t column = 0;
};

struct AddressNamePair {
    uint64_t address = 0;
    std::string name;
};

struct CallFrameInfo {
    uint64_t programCounter = 0;
    uint64_t framePointer = 0;
    uint64_t returnAddress = 0;
    std::string functionName;
};

} // namespace tarn
