// The error every exporter throws: a request it refuses or an output it cannot write, said plainly.
#pragma once

#include <stdexcept>

namespace ubrof::exporter {

/// what() says what was refused or failed and where ("eeprom memory: no bytes to export").
class ExportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace ubrof::exporter
