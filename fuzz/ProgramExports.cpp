// The program model of a fuzz input, and every exporter run on it in memory.
#include "fuzz/ProgramExports.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"
#include "export/ImageExport.h"

#include <sstream>
#include <stdexcept>

namespace ubrof::walk {
namespace {

using model::MemorySpace;

/// Runs one exporter; a refusal is an answer, and output that breaks its frame is a fault.
template <typename Write, typename Check>
void attempt(ExportCounts& counts, const char* what, Write write, Check check)
{
    std::ostringstream out;
    try {
        write(out);
    } catch (const exporter::ExportError&) {
        ++counts.refused;
        return;
    }
    if (!check(out.str()))
        throw std::logic_error(std::string(what) + ": the output breaks its format");
    ++counts.written;
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

std::optional<model::Program> programOf(const std::string& path, const model::BuildOptions& options)
{
    try {
        return model::loadProgram(path, options);
    } catch (const model::ModelError&) {
        return std::nullopt;
    }
}

ExportCounts exportAll(const model::Program& program)
{
    ExportCounts counts;
    for (MemorySpace space : {MemorySpace::Code, MemorySpace::Data, MemorySpace::Eeprom}) {
        attempt(
            counts, "Intel HEX", [&](std::ostream& out) { exporter::writeIntelHex(program, space, out); },
            [](const std::string& text) { return text.rfind(':', 0) == 0 && endsWith(text, ":00000001FF\n"); });
        attempt(
            counts, "S-records", [&](std::ostream& out) { exporter::writeSRecords(program, space, out); },
            [](const std::string& text) { return text.rfind("S0", 0) == 0 && endsWith(text, "\n"); });
        attempt(
            counts, "binary",
            [&](std::ostream& out) {
                const uint32_t low = exporter::writeBinary(program, space, out);
                const model::MemoryImage* image = program.memory(space);
                if (!image || low != image->lowAddress())
                    throw std::logic_error("binary: the image starts elsewhere than its lowest byte");
            },
            [&](const std::string& bytes) {
                const model::MemoryImage* image = program.memory(space);
                return image && bytes.size() == image->endAddress() - image->lowAddress();
            });
    }
    attempt(
        counts, "ELF", [&](std::ostream& out) { exporter::writeElf(program, out); },
        [](const std::string& bytes) { return bytes.rfind("\x7F" "ELF", 0) == 0; });
    return counts;
}

} // namespace ubrof::walk
