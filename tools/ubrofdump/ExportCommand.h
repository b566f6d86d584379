// ubrofdump's export command: the program as the file holds it, written as Intel HEX, S-records, a raw
// binary or an ELF file with DWARF, read through the program model rather than through the module.
#pragma once

#include "tools/ubrofdump/ProgramCommands.h"

#include <ostream>
#include <string>

namespace ubrofdump {

/// The help lines of export's options, for the usage text.
extern const char* const kExportOptionsHelp;

/// Writes what options ask for (--format, -o, --memory, --gap-fill, --mcu); answers under the key
/// "Export" what was written. Throws a Failure.
Answer exportProgram(const std::string& file, const ProgramOptions& options);

/// The text form of exportProgram's answer; false for any other answer.
bool printExportText(std::ostream& out, const Answer& answer);

} // namespace ubrofdump
