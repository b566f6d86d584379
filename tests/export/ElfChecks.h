// What binutils, LLVM and avr-gdb make of an exported ELF file, held against the program it came
// from: the checks that the sample's tests and the real files' tests share.
#pragma once

#include "model/Program.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ubrof::test {

/// Where GNU's AVR tools put an address of a memory: code at 0, data at 0x800000, EEPROM at 0x810000.
uint32_t avrElfAddress(model::MemorySpace space, uint32_t address);

// The checks answer how many functions, symbols or rows they checked.

/// avr-objdump -d labels each function with code at its entry, and the bytes it disassembles there
/// are the image's (0xFF where the program writes none).
size_t expectObjdumpShowsFunctions(const model::Program& program, const std::string& elf);

/// avr-nm -S lists every entry of the model's symbol listing under its name, at its address in
/// GNU's AVR windows, with its size.
size_t expectNmListsSymbols(const model::Program& program, const std::string& elf);

/// avr-addr2line -f names the function and the source line that the model's symbolize gives, at
/// the start of every line row.
size_t expectAddr2lineAgrees(const model::Program& program, const std::string& elf);

/// readelf reads the info and line sections without a warning, and llvm-dwarfdump --verify finds
/// no error.
void expectCleanDebugInformation(const std::string& elf);

/// avr-gdb -batch's standard output for each command run on the ELF file: a marker is echoed between them.
std::vector<std::string> gdbEach(const std::string& elf, const std::vector<std::string>& commands);

} // namespace ubrof::test
