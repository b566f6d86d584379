// Writing an exporter's finished output to a path, all of it or a clear error.
#pragma once

#include <string>

namespace ubrof::exporter {

/// Writes bytes to path, replacing what is there; throws ExportError naming the path and the reason.
void saveFile(const std::string& path, const std::string& bytes);

} // namespace ubrof::exporter
