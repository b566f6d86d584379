// Builds a Program: the file's header, processor and entry point, its memories and modules, and,
// unless the build is light, its types and code.
#include "model/ProgramBuilder.h"

#include "model/BuildContext.h"
#include "model/CodeBuilder.h"
#include "model/ProgramQueries.h"
#include "model/TypeShapes.h"
#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <tuple>

namespace ubrof::model {
namespace {

using detail::BuildContext;

std::string lowered(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

void fillHeader(BuildContext& context)
{
    const TarnUbrofParser& store = context.store;
    Program& program = context.program;
    program.path = store.filePath;
    program.versionBytes = store.fileHeader.versionBytes;
    program.version = program.versionBytes[0];
    program.creationTime = store.fileHeader.creationTime;
    program.attributes = context.facts.attributes;
    // The compiler's version as the modules record it; library modules built by the assembler
    // say so in their own texts, so the program's own modules speak first.
    for (int pass = 0; pass < 2 && program.producer.empty(); ++pass)
        for (const ModuleRecord& module : store.moduleTable)
            if (module.versionText && (pass == 1 || !startsWith(module.name, "?"))) {
                std::string text = *module.versionText;
                const size_t first = text.find_first_not_of(' ');
                program.producer = first == std::string::npos ? std::string() : text.substr(first);
                if (!program.producer.empty())
                    break;
            }
}

// The AVR device whose register header a source file is ("iom16.h": ATmega16), or empty. Only
// the prefixes whose device names they stand for without doubt are read.
std::string avrDeviceOfHeader(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    const std::string name = lowered(path.substr(slash == std::string::npos ? 0 : slash + 1));
    if (name.size() < 5 || !startsWith(name, "io") || name.compare(name.size() - 2, 2, ".h") != 0)
        return {};
    const std::string stem = name.substr(2, name.size() - 4);
    static const std::pair<const char*, const char*> kPrefixes[] = {
        {"m", "ATmega"}, {"tn", "ATtiny"}, {"xm", "ATxmega"}, {"usb", "AT90USB"}, {"can", "AT90CAN"}, {"pwm", "AT90PWM"},
    };
    for (const auto& [prefix, device] : kPrefixes) {
        const std::string rest = startsWith(stem, prefix) ? stem.substr(std::string(prefix).size()) : std::string();
        // A number must follow ("iomacro.h" is no device's), then letters and digits only.
        if (rest.empty() || !std::isdigit(static_cast<unsigned char>(rest[0])) ||
            !std::all_of(rest.begin(), rest.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); }))
            continue;
        std::string upper = rest;
        for (char& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return device + upper;
    }
    return {};
}

// Files that do not name their CPU still list the device header their sources include: a program
// includes the register header of the device it is compiled for. "iom16.h" (ATmega16),
// "ioCC2530.h", "ior5f100le.h", "msp430fr5739.h" name the part. Generic headers ("msp430.h",
// "io430.h") and family headers ("msp430x14x.h") name none, and a name whose family contradicts
// what else the file says is no evidence. Several devices: the one most files name, or none on a tie.
std::string deviceOfHeaders(const TarnUbrofParser& store, Family family)
{
    std::map<std::string, size_t> named;
    for (const SourceFileRecord& file : store.sourceFileTable) {
        std::string base = lowered(file.name);
        base = base.substr(base.find_last_of("/\\") == std::string::npos ? 0 : base.find_last_of("/\\") + 1);
        if (base.size() < 3 || base.compare(base.size() - 2, 2, ".h") != 0)
            continue;
        if (const std::string avr = avrDeviceOfHeader(file.name);
            !avr.empty() && (family == Family::Avr || family == Family::Unknown)) {
            ++named[avr];
            continue;
        }
        base.resize(base.size() - 2);
        std::string device;
        if (startsWith(base, "msp430") && base.size() > 6 && base.find('x', 6) == std::string::npos)
            device = base;
        else if (startsWith(base, "io") && base.size() > 2)
            device = base.substr(2);
        const bool plain = std::all_of(device.begin(), device.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); });
        const bool numbered = std::any_of(device.begin(), device.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); });
        if (device.empty() || !plain || !numbered)
            continue;
        const Family namedFamily = familyOfProcessor(device);
        if (namedFamily == Family::Unknown || (family != Family::Unknown && namedFamily != family))
            continue;
        std::transform(device.begin(), device.end(), device.begin(),
                       [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
        ++named[device];
    }
    std::string best;
    size_t most = 0;
    bool tied = false;
    for (const auto& [device, count] : named) {
        if (count == most)
            tied = true;
        if (count > most) {
            most = count;
            best = device;
            tied = false;
        }
    }
    // Two devices named as often leave the part unknown: a wrong device is worse than none.
    return tied ? std::string() : best;
}

// The processor as the file says it, strongest evidence first: the CPU it names, the core it
// names, attributes only one family's runtime model has, the target code in every module's
// version word, the names of its memories. Only when the content says nothing does the file's
// extension decide.
void fillProcessor(BuildContext& context)
{
    Program& program = context.program;
    Processor& processor = program.processor;
    std::map<std::string, std::string> attributes(program.attributes.begin(), program.attributes.end());
    if (const auto cpu = attributes.find("__cpu_name"); cpu != attributes.end()) {
        processor.name = cpu->second;
        processor.family = familyOfProcessor(cpu->second);
    }
    if (processor.family == Family::Unknown)
        if (const auto core = attributes.find("__core"); core != attributes.end()) {
            const std::string value = lowered(core->second);
            if (startsWith(value, "430"))
                processor.family = Family::Msp430;
            else if (startsWith(value, "rl78"))
                processor.family = Family::Rl78;
            else if (value == "plain" || startsWith(value, "extended"))
                processor.family = Family::I8051;
        }
    if (processor.family == Family::Unknown) {
        if (attributes.count("__enhanced_core") || attributes.count("__has_elpm") || attributes.count("__tiny_avr"))
            processor.family = Family::Avr;
        else if (attributes.count("__dptr_size") || attributes.count("__number_of_dptrs"))
            processor.family = Family::I8051;
    }
    if (processor.family == Family::Unknown) {
        // The high byte of t_aux_1's version word names the target the module was built for.
        std::map<Family, size_t> votes;
        for (const ModuleRecord& module : context.store.moduleTable) {
            switch (module.versionCode >> 8) {
            case 0x5A: case 0x5B: ++votes[Family::Avr]; break;
            case 0x2B: ++votes[Family::Msp430]; break;
            case 0x57: ++votes[Family::Rl78]; break;
            case 0x20: ++votes[Family::I8051]; break;
            default: break;
            }
        }
        size_t best = 0;
        for (const auto& [family, count] : votes)
            if (count > best) {
                best = count;
                processor.family = family;
            }
    }
    if (processor.family == Family::Unknown)
        for (const MemoryInfo& memory : context.store.typeTable.memories) {
            if (memory.name == "__idata" || memory.name == "__xdata" || memory.name == "__pdata")
                processor.family = Family::I8051;
            else if (memory.name == "__data16" || memory.name == "__data20")
                processor.family = Family::Msp430;
            else if (memory.name == "__saddr")
                processor.family = Family::Rl78;
            else if (memory.name == "__tinyflash" || memory.name == "__hugeflash")
                processor.family = Family::Avr;
        }
    if (processor.name.empty())
        processor.name = deviceOfHeaders(context.store, processor.family);
    if (processor.family == Family::Unknown && !processor.name.empty())
        processor.family = familyOfProcessor(processor.name);
    if (processor.family == Family::Unknown) {
        const std::string path = lowered(program.path);
        const std::string extension = path.size() >= 4 ? path.substr(path.size() - 4) : std::string();
        if (extension == ".d90" || extension == ".r90")
            processor.family = Family::Avr;
        else if (extension == ".d43" || extension == ".r43")
            processor.family = Family::Msp430;
        else if (extension == ".d51" || extension == ".r51")
            processor.family = Family::I8051;
        else if (extension == ".d87" || extension == ".r87")
            processor.family = Family::Rl78;
    }
}

// The runtime's start-up code names the program's entry __program_start: the reset vector
// lies there, and the linker reports it as the program entry.
void fillEntryPoint(BuildContext& context)
{
    const ChunkedVector<SymbolRecord>& symbols = context.store.symbolTable.symbols;
    for (uint32_t s = 0; s < symbols.size(); ++s)
        if (!context.derived[s] && context.isCodeSymbol(symbols[s]) &&
            context.nameText(symbols[s].nameIndex) == "__program_start") {
            context.program.entryPoint = symbols[s].value;
            return;
        }
}

void fillMemories(BuildContext& context)
{
    const TarnUbrofParser& store = context.store;
    const struct {
        uint8_t memoryClass;
        MemorySpace space;
        const DMemory* image;
    } memories[] = {
        {CodeMemory, MemorySpace::Code, &store.codeMemory},
        {DataMemory, MemorySpace::Data, &store.dataMemory},
        {EepromMemory, MemorySpace::Eeprom, &store.eepromMemory},
    };
    std::vector<std::pair<uint64_t, uint64_t>> spans;
    for (const auto& memory : memories) {
        spans.clear();
        // Runs mostly follow each other; joining those first leaves little to sort.
        for (const ProgramFacts::WrittenRun& run : context.facts.writtenRuns)
            if (run.memory == memory.memoryClass) {
                if (!spans.empty() && spans.back().second == run.address)
                    spans.back().second = run.end();
                else
                    spans.emplace_back(run.address, run.end());
            }
        if (spans.empty())
            continue;
        std::sort(spans.begin(), spans.end());
        std::vector<std::pair<uint64_t, uint64_t>> merged;
        for (const auto& span : spans) {
            if (!merged.empty() && span.first <= merged.back().second)
                merged.back().second = std::max(merged.back().second, span.second);
            else
                merged.push_back(span);
        }
        MemoryImage image;
        image.space = memory.space;
        image.name = spaceName(memory.space);
        if (context.light) {
            MemoryImage::Extent extent;
            extent.low = static_cast<uint32_t>(merged.front().first);
            extent.end = merged.back().second;
            extent.runCount = static_cast<uint32_t>(merged.size());
            for (const auto& [low, high] : merged) {
                extent.bytes += high - low;
                extent.spans.emplace_back(static_cast<uint32_t>(low), high);
            }
            image.extent = std::move(extent);
        } else {
            // The image holds each address's last write, as the device would after loading.
            image.runs.reserve(merged.size());
            for (const auto& [low, high] : merged) {
                ByteRun run;
                run.address = static_cast<uint32_t>(low);
                run.bytes.resize(size_t(high - low));
                memory.image->read(run.address, static_cast<uint32_t>(run.bytes.size()), run.bytes.data());
                image.runs.push_back(std::move(run));
            }
        }
        context.program.memories.push_back(std::move(image));
    }
}

void fillModules(BuildContext& context)
{
    const TarnUbrofParser& store = context.store;
    Program& program = context.program;
    for (const SourceFileRecord& file : store.sourceFileTable)
        program.files.push_back({file.name});
    for (const ModuleRecord& record : store.moduleTable) {
        Module module;
        module.name = record.name;
        program.modules.push_back(std::move(module));
    }

    const ChunkedVector<BlockRecord>& blocks = store.blockTree.blocks;
    for (uint32_t root = 0; root < blocks.size(); ++root) {
        if (blocks[root].kind != ModuleBlock || context.moduleOfBlock[root] == kNone)
            continue;
        Module& module = program.modules[context.moduleOfBlock[root]];
        for (const auto& [reference, file] : store.blockTree.moduleFiles(root))
            if (file < program.files.size() && std::find(module.files.begin(), module.files.end(), file) == module.files.end())
                module.files.push_back(file);
    }

    // A module's own source is the file most of its statements stand in; a module without
    // statements is named after its source.
    std::map<std::pair<uint32_t, uint32_t>, uint64_t> statementsIn;
    for (size_t b = 0; b < blocks.size(); ++b) {
        if (context.moduleOfBlock[b] == kNone)
            continue;
        for (uint32_t r : store.blockTree.lineRanges(static_cast<uint32_t>(b)))
            if (r < store.fileLineRanges.size() && store.fileLineRanges[r].file >= 0)
                statementsIn[{context.moduleOfBlock[b], static_cast<uint32_t>(store.fileLineRanges[r].file)}] +=
                    store.fileLineRanges[r].lineRecordCount;
    }
    std::vector<uint64_t> most(program.modules.size(), 0);
    for (const auto& [key, count] : statementsIn)
        if (count > most[key.first] && key.second < program.files.size()) {
            most[key.first] = count;
            program.modules[key.first].file = key.second;
        }
    for (Module& module : program.modules) {
        if (module.file != kNone)
            continue;
        for (uint32_t file : module.files) {
            std::string stem = program.files[file].path;
            stem = stem.substr(stem.find_last_of("/\\") == std::string::npos ? 0 : stem.find_last_of("/\\") + 1);
            stem = stem.substr(0, stem.rfind('.'));
            if (!stem.empty() && lowered(stem) == lowered(module.name)) {
                module.file = file;
                break;
            }
        }
    }
}

// What a module occupies: every byte it writes, and the storage of the variables it defines
// (I/O registers excepted, which every module that uses one declares anew, typed as I/O or
// named "_A_" as the reader knows them).
void fillModuleRanges(BuildContext& context)
{
    const TarnUbrofParser& store = context.store;
    Program& program = context.program;
    std::vector<std::tuple<uint32_t, MemorySpace, uint64_t, uint64_t>> spans;
    for (const ProgramFacts::WrittenRun& run : context.facts.writtenRuns) {
        if (run.block >= context.moduleOfBlock.size() || context.moduleOfBlock[run.block] == kNone)
            continue;
        const MemorySpace space = run.memory == CodeMemory   ? MemorySpace::Code
                                  : run.memory == EepromMemory ? MemorySpace::Eeprom
                                                               : MemorySpace::Data;
        const uint32_t module = context.moduleOfBlock[run.block];
        if (!spans.empty() && std::get<0>(spans.back()) == module && std::get<1>(spans.back()) == space &&
            std::get<3>(spans.back()) == run.address)
            std::get<3>(spans.back()) = run.end();
        else
            spans.emplace_back(module, space, run.address, run.end());
    }
    const ChunkedVector<BlockRecord>& blocks = store.blockTree.blocks;
    const ChunkedVector<SymbolRecord>& symbols = store.symbolTable.symbols;
    const detail::TypeShapes& types = *context.types;
    for (size_t b = 0; b < blocks.size(); ++b) {
        if (context.moduleOfBlock[b] == kNone)
            continue;
        for (uint32_t s : store.blockTree.symbols(static_cast<uint32_t>(b))) {
            if (s >= symbols.size() || context.derived[s])
                continue;
            const SymbolRecord& symbol = symbols[s];
            if (symbol.kind < 1 || symbol.kind > 4 || symbol.typeIndex == 0 ||
                store.typeTable.isFunctionType(symbol.typeIndex) || types.isIoRegister(symbol.typeIndex) ||
                startsWith(context.nameText(symbol.nameIndex), "_A_"))
                continue;
            const uint32_t size = types.sizeOf(types.strip(symbol.typeIndex));
            if (size != 0)
                spans.emplace_back(context.moduleOfBlock[b], context.spaceOf(symbol.addressSpace), symbol.value,
                                   uint64_t(symbol.value) + size);
        }
    }
    std::sort(spans.begin(), spans.end());
    for (const auto& [module, space, low, high] : spans) {
        std::vector<AddressRange>& ranges = program.modules[module].ranges;
        if (!ranges.empty() && ranges.back().space == space && low <= ranges.back().high) {
            ranges.back().high = static_cast<uint32_t>(std::max<uint64_t>(ranges.back().high, std::min<uint64_t>(high, 0xFFFFFFFF)));
            continue;
        }
        ranges.push_back({space, static_cast<uint32_t>(low), static_cast<uint32_t>(std::min<uint64_t>(high, 0xFFFFFFFF))});
    }
}

} // namespace

Program buildProgram(const TarnUbrofParser& store, const BuildOptions& options)
{
    if (!store.isParsed())
        throw ModelError("the store has parsed no file");
    if (!store.keepFacts)
        throw ModelError(store.filePath + ": parsed without keepFacts, so the facts that place code and lines are missing");
    if (store.facts.light && !options.light)
        throw ModelError(store.filePath + ": parsed with light facts, which place no code or lines");
    Program program;
    BuildContext context(store, program, options.light);
    const detail::TypeShapes types(context);
    context.types = &types;
    fillHeader(context);
    fillProcessor(context);
    fillEntryPoint(context);
    fillMemories(context);
    fillModules(context);
    if (!options.light) {
        program.types = types.records();
        detail::CodeBuilder(context).build();
    }
    fillModuleRanges(context);
    context.closeNotes();
    return program;
}

Program loadProgram(const std::string& path, const BuildOptions& options)
{
    TarnUbrofParser store;
    store.keepFacts = true;
    store.facts.light = options.light;
    // The model answers what the program holds, whichever version wrote it; only the module
    // keeps to the versions its host was promised.
    store.readNewerVersions = true;
    store.initialize();
    switch (store.checkFile(path)) {
    case StoreOk:
        break;
    case StoreCannotOpen:
        throw ModelError(path + ": cannot be opened");
    case StoreNotUbrof:
        throw ModelError(path + ": not a UBROF file (its first byte is not 0xA5)");
    default:
        throw ModelError("no file given");
    }
    int16_t result = StoreNotUbrof;
    try {
        result = store.parseFile(path);
    } catch (const std::exception& e) {
        throw ModelError(path + ": " + e.what());
    }
    if (result != StoreOk) {
        const uint8_t version = store.fileHeader.versionBytes[0];
        const std::string why = store.parseError.empty() ? "the reader stopped before the file's end"
                                                         : store.parseError;
        throw ModelError(path + ": " + why +
                         (version != 0 ? " (format version " + std::to_string(version) + ")" : std::string()));
    }
    return buildProgram(store, options);
}

} // namespace ubrof::model
