// Symbol and scope tags: names, symbols with their locations, functions and blocks.
#include "reader/CParser.h"

#include "reader/ReaderError.h"

namespace ubrof {
namespace {

constexpr uint32_t kLocationEntrySize = 13;

NameRecord symbolName(std::string text, uint32_t symbolIndex)
{
    NameRecord name;
    name.nameKind = 2;
    name.text = std::move(text);
    name.number = symbolIndex;
    name.parent = -1;
    return name;
}

} // namespace

void CParser::registerDefinition()
{
    const uint32_t future = static_cast<uint32_t>(symbolTable_.symbols.size());
    if (recordContext == 2) {
        if (blockTree_.current >= 0)
            blockTree_.addSymbol(static_cast<uint32_t>(blockTree_.current), future);
    } else if (recordContext == 1) {
        // The context is only 1 after t_grp, which made sure a group exists.
        if (!groupTable_.empty())
            groupTable_.back().symbols.push_back(future);
    }
}

void CParser::appendSymbol(uint8_t kind, uint16_t addressSpace, uint32_t value, uint16_t typeIndex,
                           uint32_t nameIndex)
{
    SymbolRecord symbol;
    symbol.kind = kind;
    symbol.addressSpace = addressSpace;
    symbol.value = value;
    symbol.typeIndex = typeIndex;
    symbol.nameIndex = nameIndex;
    symbol.firstLocation = static_cast<uint32_t>(symbolTable_.locations.size());
    symbolTable_.symbols.push_back(symbol);
}

void CParser::readLocationEntries(uint32_t count)
{
    // A count the rest of the file cannot hold fails before any entry is read.
    if (uint64_t(count) * kLocationEntrySize > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t entry[kLocationEntrySize];
        readBytes(entry, sizeof entry);
        LocationRecord location;
        location.startAddress = uint32_t(entry[2]) << 24 | uint32_t(entry[3]) << 16 |
                                uint32_t(entry[4]) << 8 | entry[5];
        location.kind = entry[6];
        location.addressSpace = static_cast<uint16_t>(entry[7] << 8 | entry[8]);
        location.value = uint32_t(entry[9]) << 24 | uint32_t(entry[10]) << 16 |
                         uint32_t(entry[11]) << 8 | entry[12];
        lastLocation_ = location;
        // A light model reads none; the last one still gives an I/O register's twin its place.
        if (lightParse())
            continue;
        symbolTable_.locations.push_back(location);
        ++symbolTable_.symbols.back().locationCount;
    }
}

CParser::SymbolFields CParser::readSymbolFields()
{
    SymbolFields fields;
    fields.kind = static_cast<uint8_t>(readByte());
    fields.addressSpace = static_cast<uint16_t>(readWord16());
    fields.value = readWord32();
    fields.name = readString(readByte());
    fields.typeIndex = static_cast<uint16_t>(readWord16());
    return fields;
}

void CParser::appendNamedSymbol(SymbolFields fields)
{
    const uint32_t future = static_cast<uint32_t>(symbolTable_.symbols.size());
    const uint32_t nameIndex = nameTable_.append(symbolName(std::move(fields.name), future));
    appendSymbol(fields.kind, fields.addressSpace, fields.value, fields.typeIndex, nameIndex);
}

void CParser::readLocalSymbols(uint32_t blockIndex)
{
    const uint32_t count = readWord16();
    for (uint32_t i = 0; i < count; ++i) {
        SymbolFields fields = readSymbolFields();
        // Locals belong to their function or block whatever the registration context says.
        blockTree_.addSymbol(blockIndex, static_cast<uint32_t>(symbolTable_.symbols.size()));
        appendNamedSymbol(std::move(fields));
        readLocationEntries(readWord16());
    }
}

int CParser::handleScopedName()
{
    skipBytes(4);
    const uint32_t form = readByte();
    NameRecord name;
    switch (form) {
    case 1: {
        const std::string_view text = readText(readWord32());
        nameTable_.appendText(text, static_cast<int32_t>(readWord32()));
        return 0;
    }
    case 2:
        name.nameKind = 3;
        name.scopeKind = 2;
        name.parent = static_cast<int32_t>(readWord32());
        name.number = readWord16();
        break;
    case 3:
        name.nameKind = 3;
        name.scopeKind = 3;
        name.parent = static_cast<int32_t>(readWord32());
        name.number = readWord32();
        break;
    default:
        // The length of an unknown form is unknown too, so every byte after it would be
        // read out of step; failing here beats filling the store from misread tags.
        return 1;
    }
    nameTable_.append(std::move(name));
    return 0;
}

int CParser::handleSymbolDef()
{
    SymbolFields fields = readSymbolFields();
    skipBytes(static_cast<int32_t>(readByte()));
    // Registered once the fields are complete, so that a cut tag leaves no index to a
    // symbol that never came.
    registerDefinition();
    appendNamedSymbol(std::move(fields));
    return 0;
}

int CParser::handleSymbolDef1()
{
    SymbolFields fields = readSymbolFields();
    registerDefinition();
    appendNamedSymbol(std::move(fields));
    readLocationEntries(readWord16());
    skipBytes(1);
    return 0;
}

int CParser::handleSymbolDef2()
{
    skipBytes(4);
    const uint8_t kind = static_cast<uint8_t>(readByte());
    const uint16_t addressSpace = static_cast<uint16_t>(readWord16());
    const uint32_t value = readWord32();
    const uint32_t nameIndex = readWord32();
    const uint16_t typeIndex = static_cast<uint16_t>(readTypeIndex());
    registerDefinition();
    appendSymbol(kind, addressSpace, value, typeIndex, nameIndex);
    noteSymbolDefined(static_cast<uint32_t>(symbolTable_.symbols.size() - 1));
    const uint32_t locationCount = readWord16();
    readLocationEntries(locationCount);
    skipBytes(1);

    // A name "_A_X" declares the I/O register X. When the following attribute tag marks it,
    // the register is also made visible under its plain name; the look-ahead leaves the
    // stream where it was, so the attribute tag is then read as usual.
    if (!nameTable_.nameStartsWith(nameIndex, "_A_"))
        return 0;
    const std::string text = nameTable_.nameText(nameIndex);
    const uint64_t position = tell();
    uint32_t attributeWord = 0;
    try {
        if (readByte() == 0xC3) {
            skipBytes(2);
            attributeWord = readWord32();
        }
    } catch (const ReaderError&) {
        // A cut attribute tag is reported when the dispatcher reads it.
        attributeWord = 0;
    }
    seek(position);
    if ((attributeWord & 1) == 0)
        return 0;

    uint8_t twinKind = kind;
    uint16_t twinSpace = addressSpace;
    uint32_t twinValue = value;
    if (locationCount != 0) {
        const LocationRecord& last = lastLocation_;
        twinKind = last.kind;
        twinSpace = last.addressSpace;
        twinValue = last.value;
    }
    const uint32_t future = static_cast<uint32_t>(symbolTable_.symbols.size());
    registerDefinition();
    NameRecord twinName = symbolName(text.substr(3), future);
    twinName.parent = nameTable_.records.parent(nameIndex);
    const uint32_t twinNameIndex = nameTable_.append(std::move(twinName));
    appendSymbol(twinKind, twinSpace, twinValue, 1, twinNameIndex);
    if (facts_)
        facts_->derivedSymbols.push_back(future);
    return 0;
}

int CParser::handleSubDefObjAttr()
{
    skipBytes(2);
    readWord32();
    skipBytes(static_cast<int32_t>(readByte()));
    return 0;
}

int CParser::handleMacro()
{
    readString(readByte());
    readString(readWord16());
    return 0;
}

// The older forms of the function and block tags are not read by this reader.
int CParser::handleFuncBegin()
{
    return 1;
}

int CParser::handleBlockBegin()
{
    return 1;
}

int CParser::handleFuncBegin1()
{
    const uint32_t block = blockTree_.addBlock(FunctionBlock, -1, 0, -1);
    NameRecord name;
    name.nameKind = 3;
    name.scopeKind = 2;
    name.text = readString(readByte());
    name.number = kNoIndex;
    blockTree_.blocks[block].nameIndex = static_cast<int32_t>(nameTable_.append(std::move(name)));
    skipBytes(8);
    readLocalSymbols(block);
    recordContext = 2;
    startNewLineRange = true;
    return 0;
}

int CParser::handleBlockBegin1()
{
    const uint32_t block = blockTree_.addBlock(LexicalBlock, -1, 0, -1);
    NameRecord name;
    name.nameKind = 3;
    name.scopeKind = 3;
    name.number = static_cast<uint32_t>(blockTree_.blocks.size());
    // Unlike a form-3 scoped name, this one has a text of its own, which the function lookup sees.
    name.text = "block" + std::to_string(name.number);
    blockTree_.blocks[block].nameIndex = static_cast<int32_t>(nameTable_.append(std::move(name)));
    readLocalSymbols(block);
    recordContext = 2;
    startNewLineRange = true;
    return 0;
}

int CParser::handleBlockBegin3()
{
    const uint32_t block = blockTree_.addBlock(LexicalBlock, -1, 0, -1);
    const uint32_t nameIndex = readWord32();
    BlockRecord& record = blockTree_.blocks[block];
    record.nameIndex = static_cast<int32_t>(nameIndex);
    // Without a name, or with one that does not exist, nothing makes the block a function.
    if (nameIndex < nameTable_.records.size() && nameTable_.records.scopeKind(nameIndex) != 3)
        record.kind = FunctionBlock;
    recordContext = 2;
    startNewLineRange = true;
    noteBlockBegun(block);
    return 0;
}

int CParser::handleBlockEnd()
{
    blockTree_.closeBlock();
    dropPendingLineRecord();
    recordContext = 0;
    startNewLineRange = true;
    return 0;
}

} // namespace ubrof
