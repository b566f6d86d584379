// The exporters' share of a fuzz run: the program an input describes, and every exporter run on it.
#pragma once

#include "host/IObjectfileParser.h"
#include "model/Program.h"

#include <optional>
#include <string>

namespace ubrof::walk {

/// The program model of a parsed input, or none when it has no program to export.
///
/// The model's builder (model::loadProgram) has not landed yet, so this assembles a Program from
/// what the views show: memories, source files, functions, blocks, variables with their locations,
/// line rows, and a processor the input's first code byte picks, so that every ELF target is
/// reached. When the builder lands, the body becomes
///     try { return model::loadProgram(path); } catch (const model::ModelError&) { return {}; }
/// and nothing else in the fuzz target changes.
std::optional<model::Program> programOf(const std::string& path, const tarn::IObjectfileParser& parser);

struct ExportCounts {
    unsigned written = 0; ///< outputs an exporter produced
    unsigned refused = 0; ///< requests an exporter refused with ExportError
};

/// Writes every memory of program as Intel HEX, S-records and binary, and the whole program as
/// ELF with DWARF, all into memory. An exporter may refuse with ExportError; any other exception,
/// or output that breaks its format's frame, is a fault and leaves this function.
ExportCounts exportAll(const model::Program& program);

} // namespace ubrof::walk
