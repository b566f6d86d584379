// The program model's share of a fuzz run: the program an input describes, and every exporter run on it.
#pragma once

#include "model/ProgramBuilder.h"

#include <optional>
#include <string>

namespace ubrof::walk {

/// The program model of the file at path, or none when the model refuses it with ModelError.
std::optional<model::Program> programOf(const std::string& path, const model::BuildOptions& options = {});

struct ExportCounts {
    unsigned written = 0; ///< outputs an exporter produced
    unsigned refused = 0; ///< requests an exporter refused with ExportError
};

/// Writes every memory of program as Intel HEX, S-records and binary, and the whole program as
/// ELF with DWARF, all into memory. An exporter may refuse with ExportError; any other exception,
/// or output that breaks its format's frame, is a fault and leaves this function.
ExportCounts exportAll(const model::Program& program);

} // namespace ubrof::walk
