// Stores for the query tests: one parsed from a writer-built file, or one filled table by table,
// as a parse would leave it, for tree shapes the tags make awkward to build.
#pragma once

#include "TestFiles.h"

#include "parser/TarnUbrofParser.h"

#include <string>

namespace ubrof::test {

/// Parses the writer's file into store: 0 on success, else the store's code.
inline int parseInto(TarnUbrofParser& store, const UbrofWriter& w)
{
    ScratchDir dir;
    return store.initialize() ? store.parseFile(dir.save(w)) : -1;
}

struct FilledStore {
    TarnUbrofParser store;

    FilledStore() { store.stateFlags = 3; }

    /// A scope under parent (-1: a new root) covering [low, high); unnamed when text is empty.
    int32_t scope(uint32_t kind, int32_t parent, uint32_t low, uint32_t high, const std::string& text = "")
    {
        BlockRecord block;
        block.kind = kind;
        block.parent = parent;
        block.lowAddress = low;
        block.highAddress = high;
        if (!text.empty())
            block.nameIndex = static_cast<int32_t>(store.nameTable.append({3, 2, text, 0, -1}));
        const auto index = static_cast<uint32_t>(store.blockTree.blocks.size());
        store.blockTree.blocks.push_back(block);
        if (parent < 0)
            store.blockTree.roots.push_back(index);
        else
            store.blockTree.addChild(static_cast<uint32_t>(parent), index);
        return static_cast<int32_t>(index);
    }

    /// A symbol that no scope lists.
    uint32_t symbol(const std::string& text, uint8_t kind = 1, uint16_t type = 6, uint32_t value = 0,
                    uint16_t addressSpace = 2)
    {
        SymbolRecord symbol;
        symbol.kind = kind;
        symbol.typeIndex = type;
        symbol.value = value;
        symbol.addressSpace = addressSpace;
        symbol.nameIndex = store.nameTable.append({2, 0, text, 0, -1});
        store.symbolTable.symbols.push_back(symbol);
        return static_cast<uint32_t>(store.symbolTable.symbols.size() - 1);
    }

    /// Line records [address, address + size) of scope, as one FileLineRange.
    void lineRange(int32_t scope, const std::vector<std::pair<uint32_t, uint32_t>>& records)
    {
        FileLineRange range{-1, 0, static_cast<uint32_t>(store.lineTable.size()), uint32_t(records.size())};
        for (const auto& [address, size] : records)
            store.lineTable.push_back({address, size});
        store.blockTree.addLineRange(static_cast<uint32_t>(scope), static_cast<uint32_t>(store.fileLineRanges.size()));
        store.fileLineRanges.push_back(range);
    }
};

} // namespace ubrof::test
