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
/// directory, an empty file, not UBROF, a format version the module was not let read or reads
/// never, cut short or damaged) and what to do, keeping the module's own report.
/// readNewerVersions: whether the host had let the module read format versions 10 and 11.
Failure explainUnparsed(const std::string& path, const ModuleStatus& module, bool readNewerVersions);

/// The Failure for a file the program model could not be built from, reason being the model's
/// own: the same causes, but format versions 10 and 11 are always read there.
Failure explainUnbuilt(const std::string& path, const std::string& reason);

} // namespace ubrofdump
