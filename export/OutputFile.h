// Writing an exporter's finished output to a path, all of it or a clear error and nothing.
#pragma once

#include <string>

namespace ubrof::exporter {

/// Replaces what path names with bytes, whole or not at all (a symbolic link: the file it names);
/// throws ExportError naming the path and the reason, leaving the old file as it was.
void saveFile(const std::string& path, const std::string& bytes);

} // namespace ubrof::exporter
