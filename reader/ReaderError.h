// The reader's four error texts, thrown inside a parse and caught by its dispatcher.
#pragma once

#include <string>

namespace ubrof {

/// A reader failure: one of the constant texts below, never shown to the host, and for a
/// limit of the reader what was exceeded and where.
struct ReaderError {
    const char* text;
    std::string detail = {};
};

inline constexpr const char* kUnexpectedEndOfFile = "Error: Unexpected end of file";
inline constexpr const char* kOutOfMemory = "Error: Out of memory";
inline constexpr const char* kTagProcessingError = "Error: An error occured while processing the tag!";
inline constexpr const char* kUnknownTag =
    "Error: Unknown tag found - no corresponding skip info exists! Position error?";

} // namespace ubrof
