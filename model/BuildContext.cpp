// BuildContext: the store's indices that every part of the builder reads, derived once, and the
// translations of names, locations and statements shared by them.
#include "model/BuildContext.h"

#include <algorithm>

namespace ubrof::model::detail {
namespace {

// Notes say what a file does not make sense of; a hostile file could make one per record.
constexpr size_t kMaxNotes = 1000;

} // namespace

BuildContext::BuildContext(const TarnUbrofParser& store, Program& program, bool light)
    : store(store), facts(store.facts), program(program), light(light), newer(store.fileHeader.versionBytes[0] >= 10)
{
    // A block's parent is always appended before it, so one forward pass finds every module.
    // A module begun while another is open (after t_end_abs, which closes nothing) is a module
    // of its own all the same.
    const ChunkedVector<BlockRecord>& blocks = store.blockTree.blocks;
    moduleOfBlock.assign(blocks.size(), kNone);
    for (size_t b = 0; b < blocks.size(); ++b) {
        const BlockRecord& block = blocks[b];
        if (block.kind == ModuleBlock && block.moduleIndex >= 0 && size_t(block.moduleIndex) < store.moduleTable.size())
            moduleOfBlock[b] = static_cast<uint32_t>(block.moduleIndex);
        else if (block.parent >= 0 && size_t(block.parent) < b)
            moduleOfBlock[b] = moduleOfBlock[size_t(block.parent)];
    }

    derived.assign(store.symbolTable.symbols.size(), false);
    for (uint32_t symbol : facts.derivedSymbols)
        if (symbol < derived.size())
            derived[symbol] = true;

    statementFile_.assign(store.lineTable.size(), kNone);
    for (const FileLineRange& range : store.fileLineRanges) {
        const uint32_t file = range.file >= 0 ? static_cast<uint32_t>(range.file) : kNone;
        const uint64_t last = std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount,
                                                 statementFile_.size());
        for (uint64_t r = range.firstLineRecord; r < last; ++r)
            statementFile_[size_t(r)] = file;
    }

    if (newer) {
        // t_source_position gives the column as well; t_symbol_position speaks where it does not
        // place the symbol in a file. The first position given for a symbol is its definition's.
        for (const NewerFormatFacts::Position& position : facts.newer.positions)
            if (!position.ofBlock && position.position.file != ProgramFacts::kNone)
                newerPositions_.push_back({position.index, position.position.file, position.position.line,
                                           position.position.extent.column});
        for (const NewerFormatFacts::SymbolSource& source : facts.newer.symbolSources)
            if (source.file != ProgramFacts::kNone)
                newerPositions_.push_back({source.symbol, source.file, source.line, 0});
        std::stable_sort(newerPositions_.begin(), newerPositions_.end(),
                         [](const ProgramFacts::SourcePosition& a, const ProgramFacts::SourcePosition& b) {
                             return a.symbol < b.symbol;
                         });
    }
}

std::string BuildContext::nameText(uint32_t nameIndex) const
{
    return store.nameTable.nameText(nameIndex);
}

std::string BuildContext::qualifiedName(uint32_t nameIndex) const
{
    const NameRecords& names = store.nameTable.records;
    std::string qualified = nameText(nameIndex);
    if (nameIndex >= names.size())
        return qualified;
    // The scope a name stands in: a function named through a reference stands where that
    // reference stands.
    auto enclosing = [&names](uint32_t index) -> uint32_t {
        const NameRecord& record = names[index];
        if (record.nameKind == 3 && record.scopeKind == 2 && !record.text && record.parent >= 0 &&
            size_t(record.parent) < names.size())
            return static_cast<uint32_t>(names[size_t(record.parent)].parent);
        return static_cast<uint32_t>(record.parent);
    };
    uint32_t outer = enclosing(nameIndex);
    for (unsigned step = 0; step < kMaxDepth && outer < names.size() && outer != nameIndex; ++step) {
        const NameRecord& record = names[outer];
        const bool isBlock = record.nameKind == 3 && record.scopeKind == 3;
        if (!isBlock) {
            const std::string text = nameText(outer);
            if (!text.empty() && text[0] != '<')
                qualified = text + "::" + qualified;
        }
        outer = enclosing(outer);
    }
    return qualified;
}

const ProgramFacts::SourcePosition* BuildContext::positionOf(uint32_t symbol) const
{
    const auto& positions = newer ? newerPositions_ : facts.sourcePositions;
    const auto found = std::lower_bound(positions.begin(), positions.end(), symbol,
                                        [](const ProgramFacts::SourcePosition& p, uint32_t s) { return p.symbol < s; });
    return found != positions.end() && found->symbol == symbol ? &*found : nullptr;
}

MemorySpace BuildContext::spaceOf(uint16_t addressSpace) const
{
    if (addressSpace == 2)
        return MemorySpace::Data;
    // Older compilers wrote 3 for code too; EEPROM came with version 2.0. The 8051's compilers
    // write 3 for external data (the maps place those variables in XDATA), as its parts have no
    // EEPROM space.
    if (addressSpace == 3 && store.symbolTable.compilerVersion >= 2.0)
        return program.processor.family == Family::I8051 ? MemorySpace::External : MemorySpace::Eeprom;
    return MemorySpace::Code;
}

Location BuildContext::locationOf(uint8_t kind, uint16_t addressSpace, uint32_t value, uint32_t size) const
{
    Location location;
    switch (kind) {
    case 1: case 2: case 3: case 4:
        location.kind = Location::Kind::Address;
        location.space = spaceOf(addressSpace);
        location.address = value;
        break;
    case 7:
        location.kind = Location::Kind::FrameOffset;
        location.offset = static_cast<int32_t>(value);
        break;
    case 8: {
        // Codes above 31 name pairs, fours and eights of registers; beyond 77 none at all.
        if (value >= 78)
            break;
        const uint32_t group = value < 32 ? 1 : value < 48 ? 2 : value < 62 ? 4 : value < 74 ? 1 : 8;
        location.kind = Location::Kind::Register;
        location.firstRegister = TarnUbrofParser::registerOfCode(value);
        // A value wider than its code's group spreads over the registers that follow.
        location.registerCount = size > 0 && size <= 8 ? size : group;
        break;
    }
    case 9: case 22:
        location.kind = Location::Kind::Constant;
        location.address = value;
        break;
    case 23:
        location.kind = Location::Kind::Computed;
        break;
    default:
        break;
    }
    return location;
}

bool BuildContext::isCodeSymbol(const SymbolRecord& symbol) const
{
    return symbol.kind >= 1 && symbol.kind <= 4 && spaceOf(symbol.addressSpace) == MemorySpace::Code;
}

uint32_t BuildContext::fileOfStatement(uint32_t statement) const
{
    return statement < statementFile_.size() ? statementFile_[statement] : kNone;
}

void BuildContext::note(std::string text)
{
    if (program.notes.size() < kMaxNotes)
        program.notes.push_back(std::move(text));
    else
        ++notesLeftOut_;
}

void BuildContext::closeNotes()
{
    if (notesLeftOut_ != 0)
        program.notes.push_back(std::to_string(notesLeftOut_) + " further notes left out");
}

} // namespace ubrof::model::detail
