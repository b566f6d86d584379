// Where each tag of a file begins, as the reader meets them: the places a test changes a byte at.
#pragma once

#include "parser/TarnUbrofParser.h"
#include "reader/CParser.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof::test {

/// The offsets of the tags of path, a file of any version the reader knows; fails the test when
/// the reader does not reach its end.
inline std::vector<uint64_t> tagStarts(const std::string& path)
{
    TarnUbrofParser store;
    CParser reader(store.fileHeader, store.nameTable, store.typeTable, store.groupTable, store.moduleTable,
                   store.blockTree, store.symbolTable, store.codeMemory, store.eepromMemory, store.dataMemory,
                   store.sourceFileTable, store.lineTable, store.fileIndex, store.fileLineRanges);
    reader.acceptNewerVersions(true);
    std::vector<uint64_t> starts;
    reader.observeTags([&starts](uint64_t offset, uint8_t) { starts.push_back(offset); });
    EXPECT_EQ(1, reader.parse(path.c_str())) << path;
    return starts;
}

} // namespace ubrof::test
