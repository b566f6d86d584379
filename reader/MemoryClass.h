// The MemoryClass code of a kind of memory, and the class the reader gives a memory by its name.
#pragma once

#include <cstdint>
#include <string>

namespace ubrof {

/// Kind of memory a memory range of the file describes; single bits, 0 and other values mean unknown.
enum MemoryClass : uint8_t {
    CodeMemory = 1,
    DataMemory = 2,
    EepromMemory = 4,
    IoMemory = 8,
    RegisterMemory = 16
};

/// Class of a memory by case-sensitive keywords in its name; the first keyword found in the order
/// "flash", "func", "io", "eeprom", "reg" decides, none gives DataMemory.
uint8_t memoryClassOfName(const std::string& memoryName);

} // namespace ubrof
