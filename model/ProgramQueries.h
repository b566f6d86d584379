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

/// What the program takes of one memory: every byte the file writes there and every byte its
/// modules occupy (their variables' storage included, which no file writes), each counted once.
struct MemoryUse {
    MemorySpace space = MemorySpace::Code;
    uint64_t bytes = 0;   ///< taken
    uint64_t written = 0; ///< of those, written by the file
    uint32_t low = 0;     ///< the lowest address taken
    uint64_t end = 0;     ///< one past the highest
};
/// Each memory the program takes any of, largest first; light builds answer the same.
std::vector<MemoryUse> memoryUse(const Program& program);
/// Bytes per module and memory, for each module that occupies any there, largest first.
std::vector<SizeEntry> sizesByModule(const Program& program);
/// Bytes per function (all in code memory), largest first.
std::vector<SizeEntry> sizesByFunction(const Program& program);

/// Stack bytes one function takes in one stack segment, as files of format versions 10 and 11
/// record it (older files do not).
struct StackEntry {
    std::string segment;       ///< the stack segment's name ("CSTACK")
    uint32_t function = kNone; ///< into Program::functions
    uint32_t bytes = 0;
};
/// The stack segments any function takes bytes in, by name; empty when the file records no stack use.
std::vector<std::string> stackSegments(const Program& program);
/// The bytes function takes in segment; 0 when it takes none or the file does not say.
uint32_t stackUse(const Function& function, const std::string& segment);
/// Every function's use of every stack segment it takes bytes in: by segment, then largest first,
/// then by qualified name.
std::vector<StackEntry> stackUseByFunction(const Program& program);

/// "code", "data", "eeprom", "xdata".
const char* spaceName(MemorySpace space);
/// The family a processor's name belongs to ("ATmega16": AVR); Unknown for a name of none.
Family familyOfProcessor(const std::string& name);
/// "AVR", "MSP430", "8051", "RL78"; "unknown".
const char* familyName(Family family);

} // namespace ubrof::model
