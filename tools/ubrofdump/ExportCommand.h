// ubrofdump's export command: the program as the file holds it, written as Intel HEX, S-records, a raw
// binary or an ELF file with DWARF, read through the program model rather than through the module.
#pragma once

#include "tools/ubrofdump/Report.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace ubrofdump {

/// The options only export takes, as given on the command line; checked by runExport.
struct ExportOptions {
    std::optional<std::string> format; ///< --format
    std::optional<std::string> output; ///< -o
    std::optional<std::string> memory; ///< --memory
    std::optional<uint64_t> gapFill;   ///< --gap-fill
    std::optional<std::string> mcu;    ///< --mcu
    bool any() const { return format || output || memory || gapFill || mcu; }
};

/// The help lines of export's options, for the usage text.
extern const char* const kExportOptionsHelp;

/// Writes the export; answers under the key "Export" what was written. Throws a Failure.
Answer runExport(const std::string& file, const ExportOptions& options);

/// The text form of runExport's answer; false for any other answer.
bool printExportText(std::ostream& out, const Answer& answer);

} // namespace ubrofdump
