// DWARF 4 debug sections for a Program: one compile unit per module, made by libdwarf's producer.
//
// Debian 12's libdwarf produces one compile unit per producer and writes no location lists. So each
// module gets a producer of its own, and their sections are joined the way a linker joins objects:
// appended, with the producer's relocations against its own sections (abbreviation and line-table
// offsets, the compile unit offset in .debug_aranges) applied. Location lists are framed here, in
// .debug_loc, around expressions that libdwarf builds.
#pragma once

#include "export/ElfTarget.h"
#include "model/Program.h"

#include <string>
#include <vector>

namespace ubrof::exporter {

struct DebugSection {
    std::string name; ///< ".debug_info" and so on
    std::string bytes;
};

/// The program's DWARF sections, every address in the target's ELF address space; throws ExportError.
std::vector<DebugSection> buildDwarf(const model::Program& program, const ElfTarget& target);

} // namespace ubrof::exporter
