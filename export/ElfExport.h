// An ELF executable of a Program, laid out as its processor's GNU toolchain lays out its own: loaded
// sections for the memories that hold bytes, a symbol table of its functions and variables, and
// DWARF 4 debug information, written with libelf and libdwarf.
#pragma once

#include "model/Program.h"

#include <iosfwd>
#include <string>

namespace ubrof::exporter {

/// Writes the ELF file; throws ExportError when the program's processor has no ELF form (no family,
/// no name, an AVR device of unknown architecture) or a byte or symbol lies outside its memories.
void writeElf(const model::Program& program, std::ostream& out);
void writeElf(const model::Program& program, const std::string& path);

} // namespace ubrof::exporter
