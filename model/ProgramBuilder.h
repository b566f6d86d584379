// Builds the Program model from a parsed store, or from a file of any format version it reads.
#pragma once

#include "model/Program.h"

#include <stdexcept>
#include <string>

namespace ubrof {
class TarnUbrofParser;
}

namespace ubrof::model {

/// A file the model cannot be built from; what() says what and where.
class ModelError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct BuildOptions {
    /// Only the header, the processor, the attributes, the entry point, the memories' extents
    /// (MemoryImage::extent, no bytes) and the modules with their names, files and ranges: what
    /// a summary shows, at a fraction of the memory. Functions, blocks, variables, types and
    /// lines stay empty.
    bool light = false;
};

/// The program a parsed store describes. The store must have been parsed with keepFacts set,
/// since functions, lines and memories are placed by the facts, and without facts.light unless
/// the build is light; throws ModelError otherwise.
Program buildProgram(const TarnUbrofParser& store, const BuildOptions& options = {});

/// Parses path (format versions 10 and 11 included) and builds its program; throws ModelError,
/// which says what stopped the reader and at which offset.
Program loadProgram(const std::string& path, const BuildOptions& options = {});

} // namespace ubrof::model
