// Names, symbols with their locations, the I/O register twin, and the tree of functions and blocks.
#include "ReaderFixture.h"

#include "reader/ReaderError.h"

namespace ubrof::test {
namespace {

using SymbolTags = ReaderTest;

TEST_F(SymbolTags, RecordsSymbolsNamesAndLocations)
{
    UbrofWriter w = fileStart();
    w.begLib("m").symbolDef(symbol("plain", 3, 2, 0x1234, 7)).macro("LIMIT", "(10)");
    w.symbolDef1({"moving", 6, 1, 0x20, 9, {{0x100, 2, 2, 4}, {0x180, 21, 0, 0}}});
    w.scopedName("outer").scopedName("inner", 2).scopedFunctionName(2, 0x1234).scopedBlockName(3, 9);
    w.symbolDef2(3, 1, 2, 0x60, 5, {{0x200, 4, 3, 0x10}}).subDefObjAttr(0).end().eof();
    ASSERT_EQ("", read(w));

    const ChunkedVector<SymbolRecord>& symbols = store->symbolTable.symbols;
    ASSERT_EQ(3u, symbols.size());
    EXPECT_EQ(3, symbols[0].kind);
    EXPECT_EQ(2, symbols[0].addressSpace);
    EXPECT_EQ(0x1234u, symbols[0].value);
    EXPECT_EQ(7, symbols[0].typeIndex);
    EXPECT_EQ(0u, symbols[0].locationCount);
    EXPECT_EQ("moving", symbolName(1));
    EXPECT_EQ(0u, symbols[1].firstLocation);
    EXPECT_EQ(2u, symbols[1].locationCount);
    EXPECT_EQ(3u, symbols[2].nameIndex); // t_symbol_def2 names through an existing record
    EXPECT_EQ(2u, symbols[2].firstLocation);
    EXPECT_EQ(1u, symbols[2].locationCount);
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2}), store->blockTree.symbols(0));

    const ChunkedVector<LocationRecord>& locations = store->symbolTable.locations;
    ASSERT_EQ(3u, locations.size());
    EXPECT_EQ(0x180u, locations[1].startAddress);
    EXPECT_EQ(21, locations[1].kind);
    EXPECT_EQ(3, locations[2].addressSpace);
    EXPECT_EQ(0x10u, locations[2].value);

    const NameRecords& names = store->nameTable.records;
    ASSERT_EQ(6u, names.size());
    EXPECT_EQ(2u, names[1].nameKind);
    EXPECT_EQ(1u, names[1].number); // a symbol name knows its symbol
    EXPECT_EQ(-1, names[1].parent);
    EXPECT_EQ(2, names[3].parent);
    EXPECT_EQ("inner", store->nameTable.nameText(3)); // enclosing names are not prefixed
    EXPECT_EQ(2u, names[4].scopeKind);
    EXPECT_EQ(0x1234u, names[4].number);
    EXPECT_EQ("outer", store->nameTable.nameText(4)); // a function name borrows its reference's text
    EXPECT_EQ("block9", store->nameTable.nameText(5));
}

TEST_F(SymbolTags, AddsThePlainNameOfAMarkedRegister)
{
    UbrofWriter w = fileStart();
    w.begLib("m").scopedName("io").scopedName("_A_PORTB", 0).scopedName("_A_PORTC");
    w.symbolDef2(1, 1, 2, 0x38, 6, {{0, 1, 2, 0x25}, {0, 3, 3, 0x18}}).subDefObjAttr(3);
    w.symbolDef2(2, 8, 2, 0x35, 6).subDefObjAttr(0x80000001);
    w.symbolDef2(1, 1, 2, 0x38, 6).subDefObjAttr(2); // even: not marked
    w.symbolDef2(1, 1, 2, 0x38, 6).symbolDef(symbol("next")).end(); // no attribute tag follows
    w.symbolDef2(1, 1, 2, 0x38, 6).subDefObjAttr(1).eof(); // registered nowhere, twin too
    ASSERT_EQ("", read(w));

    const ChunkedVector<SymbolRecord>& symbols = store->symbolTable.symbols;
    ASSERT_EQ(9u, symbols.size());
    EXPECT_EQ("PORTB", symbolName(1));
    EXPECT_EQ(1, symbols[1].typeIndex);
    EXPECT_EQ(3, symbols[1].kind); // from the last location entry
    EXPECT_EQ(3, symbols[1].addressSpace);
    EXPECT_EQ(0x18u, symbols[1].value);
    EXPECT_EQ(0u, symbols[1].locationCount);
    EXPECT_EQ(0, store->nameTable.records[symbols[1].nameIndex].parent);
    EXPECT_EQ("PORTC", symbolName(3));
    EXPECT_EQ(8, symbols[3].kind); // no location entries: the symbol's own fields
    EXPECT_EQ(0x35u, symbols[3].value);
    EXPECT_EQ("_A_PORTB", symbolName(4));
    EXPECT_EQ("_A_PORTB", symbolName(5));
    EXPECT_EQ("next", symbolName(6));
    EXPECT_EQ("PORTB", symbolName(8));
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6}), store->blockTree.symbols(0));
}

TEST_F(SymbolTags, NestsFunctionsAndBlocksAndWidensTheirRanges)
{
    UbrofWriter w = fileStart();
    // After t_grp definitions go to the group, but locals still go to their block.
    w.begLib("m").scopedName("named").scopedFunctionName(0, 1).scopedBlockName(0, 7).grp(0);
    w.funcBegin1("f", {{"p", 2, 2, 4, 0, {{0x120, 2, 2, 6}}}, symbol("q")}).org(1, 0x120).srcStat(1, 1);
    w.absVar(std::vector<uint8_t>(0x20, 0)).blockBegin1({symbol("r")}).org(1, 0x100).srcStat(2, 2);
    w.absVar(std::vector<uint8_t>(0x20, 0)).blockEnd().blockBegin1().blockEnd();
    w.blockBegin3(2).blockEnd().blockBegin3(1).blockEnd().blockBegin3(0).blockEnd();
    w.blockBegin3(0xFFFFFFFF).blockEnd().blockBegin3(99).blockEnd().blockEnd();
    // A block end closes even a module, and drops a pending statement also when nothing is open.
    w.org(1, 0x300).srcStat(3, 3).blockEnd().srcStat(4, 4).blockEnd().symbolDef(symbol("loose")).absVar({0});
    w.end().eof();
    ASSERT_EQ("", read(w));

    const BlockTree& tree = store->blockTree;
    const ChunkedVector<BlockRecord>& blocks = tree.blocks;
    ASSERT_EQ(9u, blocks.size());
    std::vector<uint32_t> kinds;
    for (const BlockRecord& block : blocks)
        kinds.push_back(block.kind);
    EXPECT_EQ((std::vector<uint32_t>{2, 1, 3, 3, 3, 1, 1, 3, 3}), kinds);
    EXPECT_EQ((std::vector<uint32_t>{2, 3, 4, 5, 6, 7, 8}), tree.children(1));
    EXPECT_EQ("f", blockName(1));
    EXPECT_EQ("block3", blockName(2));
    EXPECT_EQ("block4", blockName(3));
    EXPECT_EQ("block7", blockName(4));
    EXPECT_EQ("named", blockName(5));
    EXPECT_EQ("named", blockName(6));

    // Locals belong to their block; "loose" came after the block ends and belongs nowhere.
    EXPECT_EQ((std::vector<uint32_t>{0, 1}), tree.symbols(1));
    EXPECT_EQ((std::vector<uint32_t>{2}), tree.symbols(2));
    EXPECT_TRUE(tree.symbols(0).empty());
    EXPECT_TRUE(store->groupTable.at(0).symbols.empty());
    EXPECT_EQ("loose", symbolName(3));
    EXPECT_EQ(1u, store->symbolTable.symbols[0].locationCount);
    const NameRecord& function = store->nameTable.records[static_cast<size_t>(blocks[1].nameIndex)];
    EXPECT_EQ(kNoIndex, function.number);
    EXPECT_EQ(-1, function.parent);

    // The inner block [0x100, 0x120) widened its function's [0x120, 0x140); empty blocks changed nothing.
    EXPECT_EQ(0x100u, blocks[2].lowAddress);
    EXPECT_EQ(0x120u, blocks[2].highAddress);
    EXPECT_EQ(0xFFFFFFFFu, blocks[3].lowAddress);
    EXPECT_EQ(0u, blocks[3].highAddress);
    EXPECT_EQ(0x100u, blocks[1].lowAddress);
    EXPECT_EQ(0x140u, blocks[1].highAddress);
    EXPECT_EQ(0x140u, blocks[0].highAddress);
    EXPECT_EQ(2u, store->lineTable.size());
    EXPECT_EQ(-1, store->blockTree.current);
}

TEST_F(SymbolTags, StoresTheNameTextOfABlockItNamesItself)
{
    // t_block_begin1 makes its block's name, so the text is kept like one read from the file;
    // a form-3 scoped name holds only a number, and its text is derived when asked for. Only a
    // kept text names a function, so only the first is found as one.
    UbrofWriter w = fileStart();
    w.begLib("m").scopedBlockName(0xFFFFFFFF, 1).blockBegin3(0).blockEnd().blockBegin1().blockEnd();
    w.end().eof();
    ASSERT_EQ("", read(w));
    EXPECT_EQ("block1", blockName(1));
    EXPECT_EQ("block3", blockName(2));
    EXPECT_EQ(-1, store->findFunctionByName("block1"));
    EXPECT_EQ(2, store->findFunctionByName("block3"));
}

TEST_F(SymbolTags, NestsBlocksAsDeepAsTheFileDoes)
{
    // 5,000 blocks, each inside the one before, with a statement in each: the tree, the scope
    // lookups and the store's destruction walk them without recursion.
    constexpr uint32_t kDepth = 5000;
    UbrofWriter w = fileStart();
    w.begLib("m").fileRef(0, "deep.c").funcBegin1("f", {symbol("top", 7)}).org(1, 0x100);
    for (uint32_t level = 1; level < kDepth; ++level)
        w.blockBegin1().srcStat(uint16_t(level), uint16_t(level)).absVar({0, 0});
    // Closing and opening again at the deepest level counts once.
    w.blockEnd().blockBegin3(0xFFFFFFFF);
    for (uint32_t level = 0; level < kDepth; ++level)
        w.blockEnd();
    const long before = peakResidentKiB();
    ASSERT_EQ("", read(w.end().eof()));
    EXPECT_EQ(kDepth + 2, store->blockTree.blocks.size());
    EXPECT_EQ(0u, store->blockTree.openBlocks);

    store->stateFlags = 3;
    store->indexScopes();
    const uint32_t deepest = 0x100 + 2 * (kDepth - 2);
    EXPECT_EQ(int32_t(kDepth), store->findScopeAtAddress(deepest)); // the last t_block_begin1
    EXPECT_EQ("block3", store->getScopeNameAtPc(0x100));
    int32_t symbol = -1, found = -1;
    ASSERT_EQ(0, store->lookupSymbolByName("top", store->findScopeAtAddress(deepest), 0, &symbol, &found));
    EXPECT_EQ(std::make_pair(0, 1), std::make_pair(symbol, found));
    store.reset();
    EXPECT_LT(peakResidentKiB() - before, 32 * 1024);
}

} // namespace
} // namespace ubrof::test
