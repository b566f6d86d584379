// ubrofdump export: loads the program model of FILE and hands it to the exporters.
#include "tools/ubrofdump/ExportCommand.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"
#include "export/ImageExport.h"
#include "model/ProgramQueries.h"
#include "tools/ubrofdump/Matching.h"

#include <sys/stat.h>

#include <cstdio>
#include <optional>

namespace ubrofdump {

namespace json = boost::json;
using ubrof::model::MemorySpace;
using ubrof::model::Program;

const char* const kExportOptionsHelp = R"(Options of export:
  --format FORMAT       ihex, srec, bin (from the memory's lowest written address) or elf
  -o OUT                the file to write; it is replaced whole, or left as it was on an error
  --memory MEMORY       code (the default), eeprom, data or xdata (8051); elf holds them all
  --gap-fill BYTE       bin: what fills the gaps between written bytes (default 0xff)
  --mcu NAME            elf: the processor, when the file names none or another (ATmega16)
)";

namespace {

enum class Format { IntelHex, SRecords, Binary, Elf };

struct FormatName {
    const char* name;
    Format format;
    const char* description;
};

constexpr FormatName kFormats[] = {
    {"ihex", Format::IntelHex, "Intel HEX"},
    {"srec", Format::SRecords, "S-records"},
    {"bin", Format::Binary, "binary image"},
    {"elf", Format::Elf, "ELF"},
};

const FormatName& chooseFormat(const std::optional<std::string>& name)
{
    std::vector<std::string> names;
    for (const FormatName& format : kFormats) {
        if (name && *name == format.name)
            return format;
        names.push_back(format.name);
    }
    if (!name)
        throw usageError("export needs --format: " + listed(names));
    throw usageError("unknown format " + *name + "; the formats are " + listed(names));
}

MemorySpace chooseMemory(const std::optional<std::string>& name)
{
    if (!name)
        return MemorySpace::Code;
    for (MemorySpace space : {MemorySpace::Code, MemorySpace::Eeprom, MemorySpace::Data, MemorySpace::External})
        if (*name == ubrof::model::spaceName(space))
            return space;
    throw usageError("unknown memory " + *name + "; the memories are code, eeprom, data and xdata");
}

/// What export was asked, its values checked. An option given to a format it does not serve is
/// refused rather than ignored, so that a mistyped command line never does something else quietly.
struct Request {
    const FormatName* format = nullptr;
    std::string output;
    MemorySpace space = MemorySpace::Code;
    std::optional<uint8_t> gapFill;
    std::optional<std::string> mcu;
};

Request checkRequest(const ProgramOptions& options)
{
    Request request;
    request.format = &chooseFormat(options.value("--format"));
    const Format format = request.format->format;
    request.output = options.value("-o").value_or("");
    if (request.output.empty())
        throw usageError("export needs -o OUT, the file to write");
    if (options.has("--memory") && format == Format::Elf)
        throw usageError("--memory does not belong to --format elf, which holds every memory");
    request.space = chooseMemory(options.value("--memory"));
    if (const auto gapFill = options.value("--gap-fill")) {
        if (format != Format::Binary)
            throw usageError("--gap-fill belongs to --format bin; the other formats hold only the bytes written");
        const uint64_t byte = parseNumber(*gapFill, "--gap-fill");
        if (byte > 0xFF)
            throw usageError("--gap-fill takes a byte, 0 to 0xff, not " + *gapFill);
        request.gapFill = static_cast<uint8_t>(byte);
    }
    request.mcu = options.value("--mcu");
    if (request.mcu && format != Format::Elf)
        throw usageError("--mcu belongs to --format elf; the other formats do not name a processor");
    if (request.mcu && request.mcu->empty())
        throw usageError("--mcu needs a processor name");
    return request;
}

/// Replacing the input with its own export would lose the only copy of the debug information.
void refuseToOverwrite(const std::string& input, const std::string& output)
{
    struct stat in {}, out {};
    if (stat(input.c_str(), &in) != 0 || stat(output.c_str(), &out) != 0)
        return;
    if (in.st_dev == out.st_dev && in.st_ino == out.st_ino)
        throw usageError("-o " + output + " is the file being exported; give another path for the export");
}

uint64_t fileSize(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

std::string hex(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

/// What one memory's image holds; checks it first, so that a refused memory writes nothing.
void addImageFacts(json::object& facts, const Program& program, MemorySpace space)
{
    const ubrof::model::MemoryImage& image = ubrof::exporter::exportableImage(program, space);
    facts["Memory"] = ubrof::model::spaceName(space);
    facts["Bytes"] = image.byteCount();
    facts["Low"] = image.lowAddress();
    facts["End"] = image.endAddress();
}

} // namespace

Answer exportProgram(const std::string& file, const ProgramOptions& options)
{
    const Request request = checkRequest(options);
    const FormatName& format = *request.format;
    const std::string& output = request.output;
    const MemorySpace space = request.space;
    refuseToOverwrite(file, output);
    Program program = loadModel(file, false);
    if (request.mcu) {
        program.processor.name = *request.mcu;
        const ubrof::model::Family named = ubrof::model::familyOfProcessor(*request.mcu);
        if (named != ubrof::model::Family::Unknown)
            program.processor.family = named;
    }

    json::object facts{{"File", file}, {"Output", output}, {"Format", format.name}};
    try {
        switch (format.format) {
        case Format::IntelHex:
            addImageFacts(facts, program, space);
            ubrof::exporter::writeIntelHex(program, space, output);
            break;
        case Format::SRecords:
            addImageFacts(facts, program, space);
            ubrof::exporter::writeSRecords(program, space, output);
            break;
        case Format::Binary: {
            addImageFacts(facts, program, space);
            ubrof::exporter::BinaryOptions binary;
            binary.gapFill = request.gapFill.value_or(binary.gapFill);
            facts["BaseAddress"] = ubrof::exporter::writeBinary(program, space, output, binary);
            facts["GapFill"] = binary.gapFill;
            break;
        }
        case Format::Elf: {
            ubrof::exporter::writeElf(program, output);
            json::array memories;
            for (const ubrof::model::MemoryImage& image : program.memories)
                if (!image.empty())
                    memories.push_back(json::string(ubrof::model::spaceName(image.space)));
            size_t functions = 0, variables = 0;
            for (const ubrof::model::SymbolEntry& symbol : ubrof::model::listSymbols(program))
                ++(symbol.kind == ubrof::model::SymbolEntry::Kind::Function ? functions : variables);
            facts["Processor"] = program.processor.name;
            facts["Memories"] = std::move(memories);
            facts["Functions"] = functions;
            facts["Variables"] = variables;
            break;
        }
        }
    } catch (const ubrof::exporter::ExportError& e) {
        std::string message = file + ": " + e.what();
        if (format.format == Format::Elf &&
            (program.processor.name.empty() || program.processor.family == ubrof::model::Family::Unknown))
            message += "; name the processor with --mcu (for example --mcu ATmega16)";
        throw Failure{kUnreadable, "cannot-export", message, std::nullopt};
    }
    // Where the written file records the entry point: the ELF header, and the start records of
    // a code image.
    const bool recordsEntry = format.format == Format::Elf ||
                              (format.format != Format::Binary && space == MemorySpace::Code);
    if (recordsEntry && program.entryPoint)
        facts["EntryPoint"] = *program.entryPoint;
    facts["Size"] = fileSize(output);
    return Answer{"Export", std::move(facts)};
}

bool printExportText(std::ostream& out, const Answer& answer)
{
    if (answer.key != "Export" || !answer.value.is_object())
        return false;
    const json::object& facts = answer.value.get_object();
    const auto number = [&](const char* key) { return facts.at(key).to_number<uint64_t>(); };
    const auto text = [&](const char* key) { return std::string(facts.at(key).as_string()); };
    std::string description;
    for (const FormatName& format : kFormats)
        if (text("Format") == format.name)
            description = format.description;
    out << "Wrote " << text("Output") << " (" << number("Size") << " bytes): " << description;
    if (facts.contains("Memory")) {
        out << " of the " << text("Memory") << " memory, " << number("Bytes") << " bytes written from "
            << hex(number("Low")) << " up to " << hex(number("End"));
        if (facts.contains("BaseAddress"))
            out << ";\nthe file's first byte is address " << hex(number("BaseAddress")) << ", gaps hold "
                << hex(number("GapFill"));
    } else {
        out << " for the " << text("Processor") << " with its ";
        const json::array& memories = facts.at("Memories").as_array();
        for (size_t i = 0; i < memories.size(); ++i)
            out << (i == 0 ? "" : i + 1 == memories.size() ? " and " : ", ") << memories[i].as_string().c_str();
        out << (memories.size() == 1 ? " memory, " : " memories, ") << number("Functions") << " functions and "
            << number("Variables") << " variables";
    }
    if (facts.contains("EntryPoint"))
        out << "; entry point " << hex(number("EntryPoint"));
    out << "\n";
    return true;
}

} // namespace ubrofdump
