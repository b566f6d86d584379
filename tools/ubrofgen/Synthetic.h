// Synthetic programs of a requested size, shaped like a real linked program, for benchmarks.
#pragma once

#include <cstdint>
#include <string>

namespace ubrof::gen {

/// What writeSyntheticProgram put into the file, for checking its shape.
struct SyntheticShape {
    uint64_t bytes = 0;
    uint64_t codeBytes = 0;
    uint32_t modules = 0;
    uint32_t functions = 0;
    uint32_t blocks = 0; ///< nested blocks inside functions
    uint32_t maxDepth = 0; ///< deepest block below its function
    uint32_t statements = 0;
    uint32_t locals = 0; ///< t_symbol_def2 locals, each with a two-entry location list
    uint32_t globals = 0;
};

/// Writes a deterministic program of about size bytes to path: modules of 40 functions with
/// scoped names, nested blocks, locals with location lists, globals of a pool of structures,
/// pointers and arrays, and statements with their code. The same size and seed give the same
/// bytes. Throws std::runtime_error when path cannot be written.
SyntheticShape writeSyntheticProgram(const std::string& path, uint64_t size, uint32_t seed = 1);

} // namespace ubrof::gen
