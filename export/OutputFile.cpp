// Writing an exporter's finished output to a path.
#include "export/OutputFile.h"

#include "export/ExportError.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace ubrof::exporter {

void saveFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        throw ExportError("cannot write " + path + ": " + std::strerror(errno));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
        throw ExportError("cannot write " + path + ": writing failed (disk full?)");
}

} // namespace ubrof::exporter
