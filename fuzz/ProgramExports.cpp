// A Program assembled from the views of a fuzz input, and every exporter run on it in memory.
#include "fuzz/ProgramExports.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"
#include "export/ImageExport.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace ubrof::walk {
namespace {

using Context = tarn::ISymbolContext;
using model::kNone;
using model::MemorySpace;

class Frame : public tarn::IStackTraceContext {
public:
    explicit Frame(uint64_t pc) : pc_(pc) {}
    uint64_t getProgramCounter() const override { return pc_; }
    uint64_t getFramePointer() const override { return 0; }

private:
    uint64_t pc_;
};

// What one input may put into the Program. The exporters' cost grows with each table, and an
// input that makes thousands of functions exercises no code a hundred do not; the caps keep every
// input's run short, so that the fuzzer spends its time on new inputs.
constexpr uint64_t kImageBytes = 1 << 20;
constexpr size_t kFunctions = 512;
constexpr size_t kVariables = 1024;
constexpr size_t kLines = 1 << 14;
constexpr unsigned kBlockDepth = 8;

// Devices the ELF targets accept, one per family, so that an input reaches each target.
struct Processor {
    model::Family family;
    const char* name;
};
constexpr Processor kProcessors[] = {
    {model::Family::Avr, "ATmega128"},
    {model::Family::Msp430, "MSP430F149"},
    {model::Family::I8051, "CC2530F256"},
    {model::Family::Rl78, "R5F100LE"},
};

std::optional<MemorySpace> spaceOf(const std::string& memoryType)
{
    if (memoryType == "prog")
        return MemorySpace::Code;
    if (memoryType == "data")
        return MemorySpace::Data;
    if (memoryType == "eeprom")
        return MemorySpace::Eeprom;
    return std::nullopt;
}

class Assembler {
public:
    explicit Assembler(model::Program& program) : program_(program) {}

    void memories(const tarn::IBinaryInformation& binary)
    {
        for (const auto& segment : binary.getProgramSegments()) {
            const std::optional<MemorySpace> space = spaceOf(segment->getMemoryType());
            if (!space || program_.memory(*space))
                continue;
            model::MemoryImage image;
            image.space = *space;
            image.name = exporter::memoryName(*space);
            const uint64_t size = std::min<uint64_t>(segment->getSize(), kImageBytes);
            const uint64_t start = segment->getStartAddress();
            model::ByteRun run;
            run.address = static_cast<uint32_t>(start);
            segment->readData(run.bytes, start, static_cast<uint32_t>(size));
            // The view reads a fill byte where nothing was written, so the whole span is one run.
            if (!run.bytes.empty() && run.end() <= (uint64_t(1) << 32))
                image.runs.push_back(std::move(run));
            if (!image.empty())
                program_.memories.push_back(std::move(image));
        }
        const model::MemoryImage* code = program_.memory(MemorySpace::Code);
        const uint8_t pick = code ? code->runs.front().bytes.front() : 0;
        const Processor& processor = kProcessors[pick % std::size(kProcessors)];
        program_.processor = {processor.family, processor.name};
    }

    void sources(const tarn::ISourceInformation& source)
    {
        tarn::Status status;
        std::vector<std::string> files;
        source.getSourcefiles(status, files);
        for (const std::string& file : files)
            fileIndex(file);

        std::vector<tarn::CodeArea> areas;
        source.getCodeAreasFromAddressRange(status, 0, 0xFFFFFFFF, areas);
        for (const tarn::CodeArea& area : areas) {
            if (program_.lines.size() >= kLines)
                break;
            if (area.endAddress <= area.startAddress || area.endAddress > 0xFFFFFFFF)
                continue;
            model::LineRow row;
            row.address = static_cast<uint32_t>(area.startAddress);
            row.end = static_cast<uint32_t>(area.endAddress);
            row.file = fileIndex(area.fileName);
            row.line = static_cast<uint32_t>(area.startLine);
            row.column = static_cast<uint32_t>(area.startColumn);
            row.isStatement = area.isStatement != 0;
            program_.lines.push_back(row);
        }
    }

    void symbols(const tarn::ISymbolInformation& symbols)
    {
        const Context::Ptr root = symbols.getSymbolContextFromID("0");
        if (!root)
            return;
        for (const Context::Ptr& module : root->getChildren(Context::OtherSymbol)) {
            const uint32_t moduleIndex = static_cast<uint32_t>(program_.modules.size());
            model::Module& record = program_.modules.emplace_back();
            record.name = module->getName();
            for (const Context::Ptr& function : module->getChildren(Context::CodeSymbol))
                addFunction(*function, moduleIndex);
            for (const Context::Ptr& variable : module->getChildren(Context::DataSymbol)) {
                const uint32_t index = addVariable(*variable, 0, moduleIndex, kNone);
                if (index != kNone)
                    program_.modules[moduleIndex].variables.push_back(index);
            }
        }
        if (const Context::Ptr main = symbols.lookupGlobalSymbol("main", false))
            program_.entryPoint = static_cast<uint32_t>(main->getAddress());
    }

    /// Puts the tables in the order the Program promises: functions by entry and apart, lines by
    /// address and apart, each function's lines pointing at it.
    void settle()
    {
        std::vector<uint32_t> order(program_.functions.size());
        for (uint32_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
            return program_.functions[a].entry < program_.functions[b].entry;
        });
        std::vector<uint32_t> renumber(order.size(), kNone);
        std::vector<model::Function> functions;
        uint32_t lastEnd = 0;
        for (uint32_t old : order) {
            model::Function& function = program_.functions[old];
            if (!functions.empty() && function.entry < lastEnd)
                continue;
            renumber[old] = static_cast<uint32_t>(functions.size());
            lastEnd = function.end;
            functions.push_back(std::move(function));
        }
        program_.functions = std::move(functions);
        for (model::Module& module : program_.modules)
            module.functions = remap(module.functions, renumber);
        for (model::Variable& variable : program_.variables)
            variable.function = variable.function == kNone ? kNone : renumber[variable.function];

        std::stable_sort(program_.lines.begin(), program_.lines.end(),
                         [](const model::LineRow& a, const model::LineRow& b) { return a.address < b.address; });
        std::vector<model::LineRow> lines;
        for (model::LineRow& row : program_.lines) {
            if (!lines.empty() && row.address < lines.back().end)
                continue;
            row.function = program_.functionAt(row.address);
            lines.push_back(row);
        }
        program_.lines = std::move(lines);
    }

private:
    static std::vector<uint32_t> remap(const std::vector<uint32_t>& indexes, const std::vector<uint32_t>& renumber)
    {
        std::vector<uint32_t> kept;
        for (uint32_t index : indexes)
            if (index < renumber.size() && renumber[index] != kNone)
                kept.push_back(renumber[index]);
        return kept;
    }

    uint32_t fileIndex(const std::string& path)
    {
        const auto [found, added] = files_.emplace(path, static_cast<uint32_t>(program_.files.size()));
        if (added)
            program_.files.push_back({path});
        return found->second;
    }

    uint32_t typeOf(const Context& variable)
    {
        const Context::Ptr type = variable.getTypeContext();
        if (!type)
            return kNone;
        const auto [found, added] = types_.emplace(type->getId(), static_cast<uint32_t>(program_.types.size()));
        if (!added)
            return found->second;
        model::Type& record = program_.types.emplace_back();
        record.name = type->getName();
        record.cName = record.name;
        record.size = static_cast<uint32_t>(std::max(0, type->getSize()));
        record.resolved = found->second;
        switch (type->getTypeClass()) {
        case Context::SignedType:
            record.kind = model::Type::Kind::Base;
            record.encoding = model::Type::Encoding::Signed;
            break;
        case Context::UnsignedType:
            record.kind = model::Type::Kind::Base;
            record.encoding = model::Type::Encoding::Unsigned;
            break;
        case Context::FloatType:
            record.kind = model::Type::Kind::Base;
            record.encoding = model::Type::Encoding::Float;
            break;
        case Context::PointerType:
            record.kind = model::Type::Kind::Pointer;
            break;
        case Context::ArrayType:
            record.kind = model::Type::Kind::Array;
            for (int32_t dimension : type->getArrayDimensions())
                record.dimensions.push_back(static_cast<uint32_t>(std::max(0, dimension)));
            break;
        case Context::CompositeType:
            record.kind = model::Type::Kind::Structure;
            for (const Context::Ptr& member : type->getChildren(Context::OtherSymbol)) {
                model::Type::Member& field = record.members.emplace_back();
                field.name = member->getName();
                field.offset = static_cast<uint32_t>(std::max(0, member->getOffset()));
                field.bitSize = static_cast<uint32_t>(std::max(0, member->getBitSize()));
                field.bitOffset = static_cast<uint32_t>(std::max(0, member->getBitOffset()));
            }
            break;
        default:
            record.kind = model::Type::Kind::Unknown;
            break;
        }
        return found->second;
    }

    static model::Location locationOf(const tarn::ILocation& location)
    {
        model::Location result;
        const auto& pieces = location.getPieces();
        if (pieces.empty())
            return result;
        const tarn::MemoryPiece& first = pieces.front();
        switch (location.getAddressingMode()) {
        case tarn::ILocation::Memory:
            result.kind = model::Location::Kind::Address;
            result.space = spaceOf(first.memorySpace).value_or(MemorySpace::Data);
            result.address = static_cast<uint32_t>(first.address);
            break;
        case tarn::ILocation::Register:
        case tarn::ILocation::RegisterPieces:
            result.kind = model::Location::Kind::Register;
            result.firstRegister = first.registerNumber;
            result.registerCount = static_cast<uint32_t>(pieces.size());
            break;
        case tarn::ILocation::FrameOffset:
            result.kind = model::Location::Kind::FrameOffset;
            result.offset = first.offset;
            break;
        case tarn::ILocation::Value:
            result.kind = model::Location::Kind::Constant;
            result.address = static_cast<uint32_t>(first.address);
            break;
        case tarn::ILocation::Computed:
            result.kind = model::Location::Kind::Computed;
            break;
        default:
            break;
        }
        return result;
    }

    uint32_t addVariable(const Context& variable, uint64_t pc, uint32_t module, uint32_t function)
    {
        if (program_.variables.size() >= kVariables)
            return kNone;
        model::Variable record;
        record.name = variable.getName();
        record.qualifiedName = record.name;
        record.type = typeOf(variable);
        record.size = static_cast<uint32_t>(std::max(0, variable.getSize()));
        record.module = module;
        record.function = function;
        record.isExternal = variable.getStorageClass() == Context::StaticStorage;
        record.location = locationOf(*variable.getLocation(boost::make_shared<Frame>(pc)));
        program_.variables.push_back(std::move(record));
        return static_cast<uint32_t>(program_.variables.size() - 1);
    }

    void addFunction(const Context& function, uint32_t module)
    {
        if (program_.functions.size() >= kFunctions)
            return;
        const uint32_t index = static_cast<uint32_t>(program_.functions.size());
        model::Function record;
        record.name = function.getName();
        record.qualifiedName = record.name;
        record.module = module;
        record.entry = static_cast<uint32_t>(function.getAddress());
        const uint64_t end = uint64_t(record.entry) + uint32_t(std::max(0, function.getSize()));
        record.end = static_cast<uint32_t>(std::min<uint64_t>(end, 0xFFFFFFFF));
        record.isExternal = true;
        program_.functions.push_back(std::move(record));
        program_.modules[module].functions.push_back(index);
        for (const Context::Ptr& variable : function.getChildren(Context::DataSymbol)) {
            const uint32_t local = addVariable(*variable, program_.functions[index].entry, module, index);
            if (local != kNone)
                program_.functions[index].variables.push_back(local);
        }
        for (const Context::Ptr& block : function.getChildren(Context::CodeSymbol))
            addBlock(*block, index, kNone, 1);
    }

    void addBlock(const Context& context, uint32_t function, uint32_t parent, unsigned depth)
    {
        if (depth > kBlockDepth)
            return;
        const uint32_t index = static_cast<uint32_t>(program_.blocks.size());
        model::Block block;
        block.low = static_cast<uint32_t>(context.getAddress());
        block.high = static_cast<uint32_t>(
            std::min<uint64_t>(uint64_t(block.low) + uint32_t(std::max(0, context.getSize())), 0xFFFFFFFF));
        block.parent = parent;
        program_.blocks.push_back(std::move(block));
        if (parent == kNone)
            program_.functions[function].blocks.push_back(index);
        else
            program_.blocks[parent].blocks.push_back(index);
        for (const Context::Ptr& variable : context.getChildren(Context::DataSymbol)) {
            const uint32_t local = addVariable(*variable, program_.blocks[index].low,
                                               program_.functions[function].module, function);
            if (local != kNone) {
                program_.variables[local].block = index;
                program_.blocks[index].variables.push_back(local);
            }
        }
        for (const Context::Ptr& inner : context.getChildren(Context::CodeSymbol))
            addBlock(*inner, function, index, depth + 1);
    }

    model::Program& program_;
    std::map<std::string, uint32_t> files_;
    std::map<std::string, uint32_t> types_;
};

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

std::optional<model::Program> programOf(const std::string& path, const tarn::IObjectfileParser& parser)
{
    model::Program program;
    program.path = path;
    Assembler assembler(program);
    if (const auto binary = parser.createBinaryInformation())
        assembler.memories(*binary);
    if (const auto source = parser.createSourceInformation())
        assembler.sources(*source);
    if (const auto symbols = parser.createSymbolInformation())
        assembler.symbols(*symbols);
    assembler.settle();
    return program;
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
