// Test support: reads a writer-built file into a fresh store and keeps the reader's error text.
#pragma once

#include "TestFiles.h"

#include "parser/TarnUbrofParser.h"
#include "reader/CParser.h"

#include <memory>
#include <string>

namespace ubrof::test {

class ReaderTest : public ::testing::Test {
protected:
    /// Parses the bytes with a reader over a new store: "" on success, else the reader's error text.
    std::string read(const std::vector<uint8_t>& bytes, const std::string& name = "test.d90")
    {
        return parse(bytes, name, false);
    }
    std::string read(const UbrofWriter& w) { return read(w.bytes()); }

    /// As read(), with format versions 10 and 11 allowed and the facts kept in store->facts.
    std::string readNewer(const std::vector<uint8_t>& bytes) { return parse(bytes, "test.d90", true); }
    std::string readNewer(const UbrofWriter& w) { return readNewer(w.bytes()); }

    /// The name text of a symbol.
    std::string symbolName(size_t symbol) const
    {
        return store->nameTable.nameText(store->symbolTable.symbols.at(symbol).nameIndex);
    }

    /// The name text of a block.
    std::string blockName(size_t block) const
    {
        return store->nameTable.nameText(static_cast<uint32_t>(store->blockTree.blocks.at(block).nameIndex));
    }

    /// A reader that fills store.
    CParser readerOfStore()
    {
        return CParser(store->fileHeader, store->nameTable, store->typeTable, store->groupTable, store->moduleTable,
                       store->blockTree, store->symbolTable, store->codeMemory, store->eepromMemory, store->dataMemory,
                       store->sourceFileTable, store->lineTable, store->fileIndex, store->fileLineRanges);
    }

    ScratchDir dir;
    std::string path;
    std::string detail; ///< what the last read's reader said about a limit it reached
    std::unique_ptr<TarnUbrofParser> store;
    std::string failure; ///< the reader's account of the last failed parse: what and where

private:
    std::string parse(const std::vector<uint8_t>& bytes, const std::string& name, bool newer)
    {
        store = std::make_unique<TarnUbrofParser>();
        path = dir.save(bytes, name);
        CParser reader = readerOfStore();
        if (newer) {
            reader.acceptNewerVersions(true);
            reader.keepFacts(&store->facts);
        }
        const int result = reader.parse(path.c_str());
        const std::string error = reader.lastError() ? reader.lastError() : "";
        failure = reader.describeFailure();
        detail = reader.failure().detail;
        EXPECT_EQ(result == 1, error.empty()) << "result " << result << ", error " << error;
        return error;
    }
};

/// A symbol entry for the writer.
inline WriterSymbol symbol(const std::string& name, uint8_t kind = 1, uint16_t addressSpace = 2,
                           uint32_t value = 0, uint16_t typeIndex = 0,
                           std::vector<WriterLocation> locations = {})
{
    return WriterSymbol{name, kind, addressSpace, value, typeIndex, std::move(locations)};
}

/// The start of every well-formed test file; versions 10 and 11 declare the skip codes their files do.
inline UbrofWriter fileStart(uint8_t format = 8)
{
    UbrofWriter w;
    if (format == 10 || format == 11)
        w.begFile1().version(format, 0, 2, UbrofWriter::newerSkipInfo(format));
    else
        w.begFile1().version(format);
    return w;
}

} // namespace ubrof::test
