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

/// The program a parsed store describes.
Program buildProgram(const TarnUbrofParser& store);

/// Parses path (format versions 10 and 11 included) and builds its program; throws ModelError.
Program loadProgram(const std::string& path);

} // namespace ubrof::model
