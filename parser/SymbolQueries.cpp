// Store queries on symbols and types by context number: classes, names, locations, sizes, members.
#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

namespace ubrof {

// Kind-8 values above 31 name groups of registers (pairs, fours, eights); the debugger reads
// such a group from the register file starting at its first register.
uint32_t TarnUbrofParser::registerOfCode(uint32_t code)
{
    if (code < 32)
        return code;
    if (code < 48)
        return 2 * code - 64;
    if (code < 56)
        return 4 * code - 192;
    if (code < 62)
        return 4 * code - 224;
    if (code < 74)
        return code;
    if (code < 78)
        return 8 * code - 592;
    return 0;
}

int16_t TarnUbrofParser::getSymbolClass(uint32_t context, int32_t* tag) const
{
    if (!tag)
        return StoreBadArgument;
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0) {
        *tag = -1;
        return StoreOk;
    }
    if (kind == ScopeContext) {
        const uint32_t scopeKind = blockTree.blocks[static_cast<size_t>(index)].kind;
        *tag = scopeKind == ModuleBlock ? DwTagCompileUnit
               : scopeKind == FunctionBlock ? DwTagSubprogram
                                            : DwTagLexicalBlock;
    } else if (kind == SymbolContext) {
        const SymbolRecord& symbol = symbolTable.symbols[static_cast<size_t>(index)];
        switch (symbol.kind) {
        case 10:
            *tag = DwTagMember;
            break;
        case 1: case 2: case 3: case 4: case 7: case 8: case 9:
            *tag = symbol.typeIndex != 0 ? DwTagVariable : 0;
            break;
        default:
            *tag = 0;
        }
    } else {
        // A type record without a tag of its own (a bare kind) is classed like an unknown symbol.
        int32_t typeTag = 0;
        *tag = typeTable.getDwarfTag(static_cast<uint32_t>(index), typeTag) ? typeTag : 0;
    }
    return StoreOk;
}

void TarnUbrofParser::getContextName(uint32_t context, std::string& text) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0)
        return;
    if (kind == ScopeContext)
        getScopeName(index, text);
    else if (kind == SymbolContext)
        text = nameTable.nameText(symbolTable.symbols[static_cast<size_t>(index)].nameIndex);
    else
        text = typeTable.renderTypeName(static_cast<uint32_t>(index));
}

int32_t TarnUbrofParser::getSymbolTypeIndex(int32_t symbol) const
{
    if (symbol < 0 || static_cast<size_t>(symbol) >= symbolTable.symbols.size())
        return -1;
    return symbolTable.symbols[static_cast<size_t>(symbol)].typeIndex;
}

int32_t TarnUbrofParser::getTypeIndexOfContext(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    return index >= 0 && kind == SymbolContext ? getSymbolTypeIndex(index) : -1;
}

int32_t TarnUbrofParser::getSymbolOffset(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0 || kind != SymbolContext)
        return -1;
    return symbolTable.symbols[static_cast<size_t>(index)].memberOffset;
}

int16_t TarnUbrofParser::getSymbolLocation(uint32_t context, uint32_t pc, SymbolLocation* location) const
{
    if (!location)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    const ChunkedVector<SymbolRecord>& symbols = symbolTable.symbols;
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    // A type has no location, and its index would name an unrelated symbol.
    if (index < 0 || static_cast<size_t>(index) >= symbols.size() || kind == TypeContext)
        return StoreIndexOutOfRange;

    size_t symbolIndex = static_cast<size_t>(index);
    if (kind == ScopeContext) {
        // A function's address lives in the symbol that shares its name record. Most scopes
        // have none (modules, blocks, and every function of the older formats, whose names
        // are records of their own); they answer no location rather than another symbol's.
        const int32_t nameIndex = blockTree.blocks[symbolIndex].nameIndex;
        symbolIndex = symbols.size();
        for (size_t i = 0; nameIndex >= 0 && i < symbols.size(); ++i) {
            if (symbols[i].nameIndex == static_cast<uint32_t>(nameIndex)) {
                symbolIndex = i;
                break;
            }
        }
        if (symbolIndex == symbols.size())
            return StoreNotFound;
    }
    const SymbolRecord& symbol = symbols[symbolIndex];

    uint32_t storage = symbol.kind;
    uint32_t addressSpace = symbol.addressSpace;
    uint32_t value = symbol.value;
    if (pc != 0xFFFFFFFF) {
        const ChunkedVector<LocationRecord>& records = symbolTable.locations;
        const LocationRecord* taken = nullptr;
        for (uint64_t i = symbol.firstLocation; i < uint64_t(symbol.firstLocation) + symbol.locationCount; ++i) {
            if (i >= records.size() || records[i].startAddress > pc)
                break;
            taken = &records[i];
        }
        // Kinds 0 and 21 say that the symbol's own location applies from there on.
        if (taken && taken->kind != 0 && taken->kind != 21) {
            storage = taken->kind;
            addressSpace = taken->addressSpace;
            value = taken->value;
        }
    }

    if (typeTable.isIoType(symbol.typeIndex)) {
        location->kind = 1;
        location->memoryClass = IoMemory;
        location->value = value;
        return StoreOk;
    }
    switch (storage) {
    case 1: case 2: case 3: case 4:
        location->kind = 1;
        if (addressSpace == 2)
            location->memoryClass = DataMemory;
        else if (addressSpace == 3 && symbolTable.compilerVersion >= 2.0)
            location->memoryClass = EepromMemory;
        else
            location->memoryClass = CodeMemory;
        location->value = value;
        break;
    case 7:
        location->kind = 2;
        location->value = value;
        break;
    case 8:
        location->kind = 1;
        location->memoryClass = RegisterMemory;
        location->value = registerOfCode(value);
        break;
    case 9: case 22:
        location->kind = 3;
        location->value = value;
        break;
    case 23:
        location->kind = 4;
        break;
    default:
        location->kind = 0;
    }
    return StoreOk;
}

uint32_t TarnUbrofParser::getContextAddress(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    // Only scopes have an address range; a symbol or type index would name an unrelated scope.
    if (index < 0 || kind != ScopeContext)
        return 0;
    std::string name, fileName;
    uint32_t scopeKind = 0, low = 0, size = 0;
    int32_t firstLine = -1;
    if (getScopeInfo(index, &name, &fileName, &scopeKind, &low, &size, &firstLine) != StoreOk)
        return 0;
    return low;
}

int32_t TarnUbrofParser::getContextSize(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0)
        return 0;
    if (kind == ScopeContext) {
        const BlockRecord& block = blockTree.blocks[static_cast<size_t>(index)];
        return static_cast<int32_t>(block.highAddress - block.lowAddress);
    }
    uint32_t type = static_cast<uint32_t>(index);
    if (kind == SymbolContext) {
        type = symbolTable.symbols[static_cast<size_t>(index)].typeIndex;
        if (typeTable.isBitFieldType(type)) {
            uint32_t width = 0, position = 0, storageSize = 0;
            typeTable.getBitFieldLayout(type, width, position, storageSize);
            return static_cast<int32_t>(storageSize);
        }
    }
    TypeInfo info;
    typeTable.getTypeInfo(type, info);
    return static_cast<int32_t>(info.size);
}

int32_t TarnUbrofParser::getContextLength(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0 || kind == ScopeContext)
        return 0;
    const uint32_t type = kind == SymbolContext ? symbolTable.symbols[static_cast<size_t>(index)].typeIndex
                                                : static_cast<uint32_t>(index);
    TypeInfo info;
    typeTable.getTypeInfo(type, info);
    return static_cast<int32_t>(info.count);
}

std::string TarnUbrofParser::getContextTypeName(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0 || kind == ScopeContext)
        return std::string();
    const uint32_t type = kind == SymbolContext ? symbolTable.symbols[static_cast<size_t>(index)].typeIndex
                                                : static_cast<uint32_t>(index);
    return typeTable.renderTypeName(type);
}

int32_t TarnUbrofParser::getTypeOfSymbolNamed(const std::string& name) const
{
    const ChunkedVector<SymbolRecord>& symbols = symbolTable.symbols;
    // No match falls back to symbol 0, whose type the host then shows; an empty table gives -1.
    int32_t found = 0;
    for (size_t i = 0; i < symbols.size(); ++i) {
        if (nameTable.nameIs(symbols[i].nameIndex, name)) {
            found = static_cast<int32_t>(i);
            break;
        }
    }
    return getSymbolTypeIndex(found);
}

uint32_t TarnUbrofParser::categoryOfType(int32_t type) const
{
    TypeInfo info;
    if (type >= 0)
        typeTable.getTypeInfo(static_cast<uint32_t>(type), info);
    return info.category;
}

bool TarnUbrofParser::isBitFieldContext(uint32_t context) const
{
    return categoryOfType(getTypeIndexOfContext(context)) == BitFieldCategory;
}

bool TarnUbrofParser::isArrayTypeIndex(int32_t type) const
{
    return categoryOfType(type) == ArrayCategory;
}

bool TarnUbrofParser::isFunctionTypeContext(uint32_t context) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0 || kind == ScopeContext)
        return false;
    // A symbol answers for its type: its own index would name an unrelated type.
    const uint32_t type = kind == SymbolContext ? symbolTable.symbols[static_cast<size_t>(index)].typeIndex
                                                : static_cast<uint32_t>(index);
    return typeTable.isFunctionType(type);
}

void TarnUbrofParser::getArrayDimensions(uint32_t context, std::vector<int32_t>& out) const
{
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index < 0)
        return;
    if (kind == TypeContext) {
        typeTable.collectArrayDimensions(static_cast<uint32_t>(index), out);
    } else if (kind == SymbolContext) {
        const int32_t type = getSymbolTypeIndex(index);
        if (isArrayTypeIndex(type))
            typeTable.collectArrayDimensions(static_cast<uint32_t>(type), out);
    }
}

void TarnUbrofParser::getBitFieldInfo(uint32_t context, uint32_t* width, uint32_t* position,
                                      uint32_t* storageSize) const
{
    if (!width || !position || !storageSize)
        return;
    const int32_t type = getTypeIndexOfContext(context);
    if (type < 0 || !typeTable.isBitFieldType(static_cast<uint32_t>(type)))
        return;
    typeTable.getBitFieldLayout(static_cast<uint32_t>(type), *width, *position, *storageSize);
}

bool TarnUbrofParser::getReferencedTypeOf(int32_t type, uint32_t* target) const
{
    if (type < 0 || !target)
        return false;
    return typeTable.getReferencedType(static_cast<uint32_t>(type), *target);
}

int16_t TarnUbrofParser::typeRecordAt(int32_t type, const TypeRecord** record) const
{
    if (!isParsed())
        return StoreNotParsed;
    if (type < 0 || static_cast<uint32_t>(type) >= typeTable.getCount())
        return StoreIndexOutOfRange;
    *record = &typeTable.getRecord(static_cast<uint32_t>(type));
    return StoreOk;
}

int16_t TarnUbrofParser::getTypeTarget(int32_t type, int32_t* target, uint32_t* mode) const
{
    if (!target || !mode)
        return StoreBadArgument;
    // A chain that comes back to a type it passed answers as an undefined type would.
    TypeChain chain(static_cast<uint32_t>(type));
    for (;;) {
        const TypeRecord* followed = nullptr;
        if (const int16_t result = typeRecordAt(type, &followed))
            return result;
        const TypeRecord& record = *followed;
        switch (record.kind) {
        case 36: case 42: case 43:
            type = static_cast<int32_t>(record.op2);
            if (!chain.step(record.op2))
                return StoreNotFound;
            continue;
        case 15: case 16: case 23: case 24: case 25: case 26: case 27: case 28: case 29: case 30:
        case 41: case 49:
            *target = static_cast<int32_t>(record.op1);
            *mode = 2;
            return StoreOk;
        case 19:
            *target = static_cast<int32_t>(record.op3);
            *mode = 2;
            return StoreOk;
        case 31: case 32: case 33: case 34: case 37: case 38: case 39: case 40:
            *target = static_cast<int32_t>(record.op1);
            *mode = 1;
            return StoreOk;
        default:
            return StoreNotFound;
        }
    }
}

int16_t TarnUbrofParser::getStructMember(int32_t type, std::string& text, int32_t position,
                                         int32_t* memberType, uint32_t* offset, int32_t* symbol,
                                         uint32_t* memberCount) const
{
    if (!memberType || !offset || !symbol || !memberCount)
        return StoreBadArgument;
    // A typedef or qualifier that comes back to itself names no structure.
    const TypeRecord* composite = nullptr;
    TypeChain chain(static_cast<uint32_t>(type));
    while (!composite) {
        const TypeRecord* followed = nullptr;
        if (const int16_t result = typeRecordAt(type, &followed))
            return result;
        const TypeRecord& record = *followed;
        switch (record.kind) {
        case 36: case 42: case 43:
        case 49: {
            const uint32_t next = record.kind == 49 ? record.op1 : record.op2;
            type = static_cast<int32_t>(next);
            if (!chain.step(next))
                return StoreNotFound;
            break;
        }
        case 17: case 18: case 52:
            composite = &record;
            break;
        default:
            return StoreNotFound;
        }
    }

    const std::vector<MemberRecord>& members = typeTable.members;
    *memberCount = composite->op4;
    uint64_t chosen = members.size();
    if (position == -1) {
        for (uint64_t i = composite->op5; i < uint64_t(composite->op5) + composite->op4 && i < members.size(); ++i) {
            if (nameTable.nameIs(members[i].nameIndex, text)) {
                chosen = i;
                break;
            }
        }
        if (chosen == members.size())
            return StoreNotFound;
    } else {
        // A position past the member count would hand out a member of the next structure.
        if (position < 0 || static_cast<uint32_t>(position) >= composite->op4)
            return StoreIndexOutOfRange;
        chosen = uint64_t(composite->op5) + static_cast<uint32_t>(position);
        if (chosen >= members.size())
            return StoreIndexOutOfRange;
        text = nameTable.nameText(members[chosen].nameIndex);
    }
    const MemberRecord& member = members[chosen];
    *memberType = static_cast<int32_t>(member.typeIndex);
    *offset = member.offset;
    *symbol = static_cast<int32_t>(member.symbolIndex);
    return StoreOk;
}

} // namespace ubrof
