// The questions the program commands ask of a Program: what an address is, which functions and
// variables have a place in memory, and how many bytes each memory, module and function takes.
#pragma once

#include "model/Program.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof::model {

/// Where an address lies in the program.
struct SourcePlace {
    uint32_t function = kNone;    ///< the function whose code holds it
    uint32_t offset = 0;          ///< bytes from that function's entry
    const LineRow* row = nullptr; ///< the source line it belongs to; nullptr when none
};
SourcePlace symbolize(const Program& program, uint32_t address);

/// A function, or a variable whose location is an address, as a symbol listing shows it.
struct SymbolEntry {
    enum class Kind : uint8_t { Function, Variable };
    Kind kind = Kind::Function;
    uint32_t index = kNone; ///< into Program::functions or Program::variables
    MemorySpace space = MemorySpace::Code;
    uint32_t address = 0;
    uint32_t size = 0;
    uint32_t module = kNone;
    bool isExternal = false;
    const std::string* qualifiedName = nullptr; ///< points into the program
};
/// Every function and every variable placed at an address, by memory, address and name.
std::vector<SymbolEntry> listSymbols(const Program& program);

/// Functions or variables named name, qualified ("Class::method") or plain ("method").
std::vector<uint32_t> findFunctions(const Program& program, const std::string& name);
std::vector<uint32_t> findVariables(const Program& program, const std::string& name);

/// The bytes one memory, module or function takes.
struct SizeEntry {
    std::string name;
    MemorySpace space = MemorySpace::Code;
    uint64_t bytes = 0;
    uint32_t index = kNone; ///< the module or function; kNone for a memory
};
/// Bytes written per memory, largest first.
std::vector<SizeEntry> sizesByMemory(const Program& program);
/// Bytes per module and memory, for each module that occupies any there, largest first.
std::vector<SizeEntry> sizesByModule(const Program& program);
/// Bytes per function (all in code memory), largest first.
std::vector<SizeEntry> sizesByFunction(const Program& program);

/// "code", "data", "eeprom".
const char* spaceName(MemorySpace space);
/// "AVR", "MSP430", "8051", "RL78"; "unknown".
const char* familyName(Family family);

} // namespace ubrof::model
