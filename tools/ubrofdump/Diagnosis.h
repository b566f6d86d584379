// Why a file could not be read, told in words: ubrofdump looks at the file itself only after the
// module refused it, to say what the module's one message for many causes cannot.
#pragma once

#include "tools/ubrofdump/Json.h"

#include <optional>
#include <string>

namespace ubrofdump {

/// A Failure for a path that is neither a regular file nor a directory (a pipe or a device would
/// keep the module waiting for bytes), checked before the module opens it; nothing otherwise.
std::optional<Failure> refuseSpecialFile(const std::string& path);

/// The Failure for a file the module could not parse: which of the causes it is (no such file, a
/// directory, an empty file, not UBROF, a newer format version, cut short or damaged) and what to
/// do, keeping the module's own report.
Failure explainUnparsed(const std::string& path, const ModuleStatus& module);

} // namespace ubrofdump
