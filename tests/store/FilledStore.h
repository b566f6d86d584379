// A store filled table by table, as a parse would leave it, for tree shapes the tags make awkward to build.
#pragma once

#include "parser/TarnUbrofParser.h"

#include <string>

namespace ubrof::test {

struct FilledStore {
    TarnUbrofParser store;

    FilledStore() { store.stateFlags = 3; }

    uint32_t name(const std::string& text, uint32_t nameKind = 2)
    {
        NameRecord record;
        record.nameKind = nameKind;
        record.scopeKind = nameKind == 3 ? 2 : 0;
        record.text = text;
        return store.nameTable.append(record);
    }

    /// A scope under parent (-1: a new root) covering [low, high); unnamed when name is empty.
    uint32_t scope(uint32_t kind, int32_t parent, uint32_t low, uint32_t high, const std::string& text = "")
    {
        BlockRecord block;
        block.kind = kind;
        block.parent = parent;
        block.lowAddress = low;
        block.highAddress = high;
        if (!text.empty())
            block.nameIndex = static_cast<int32_t>(name(text, 3));
        const auto index = static_cast<uint32_t>(store.blockTree.blocks.size());
        store.blockTree.blocks.push_back(block);
        if (parent < 0)
            store.blockTree.roots.push_back(index);
        else
            store.blockTree.blocks[static_cast<size_t>(parent)].children.push_back(index);
        return index;
    }

    /// A symbol, listed in scope's symbols unless scope is -1.
    uint32_t symbol(int32_t scope, const std::string& text, uint8_t kind = 1, uint16_t type = 6,
                    uint32_t value = 0, uint16_t addressSpace = 2)
    {
        SymbolRecord symbol;
        symbol.kind = kind;
        symbol.typeIndex = type;
        symbol.value = value;
        symbol.addressSpace = addressSpace;
        symbol.nameIndex = name(text);
        symbol.firstLocation = static_cast<uint32_t>(store.symbolTable.locations.size());
        const auto index = static_cast<uint32_t>(store.symbolTable.symbols.size());
        store.symbolTable.symbols.push_back(symbol);
        if (scope >= 0)
            store.blockTree.blocks[static_cast<size_t>(scope)].symbols.push_back(index);
        return index;
    }

    /// A run of line records [address, address + size) for scope, as one FileLineRange.
    void lineRange(uint32_t scope, std::initializer_list<std::pair<uint32_t, uint32_t>> records)
    {
        FileLineRange range;
        range.firstLineRecord = static_cast<uint32_t>(store.lineTable.size());
        for (const auto& [address, size] : records) {
            LineRecord line;
            line.address = address;
            line.size = size;
            store.lineTable.push_back(line);
            ++range.lineRecordCount;
        }
        store.blockTree.blocks[scope].lineRanges.push_back(static_cast<uint32_t>(store.fileLineRanges.size()));
        store.fileLineRanges.push_back(range);
    }
};

} // namespace ubrof::test
