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

    // kind, space, value, type, name, first location, location count; t_symbol_def2 names
    // through an existing record.
    using Symbol = std::tuple<int, int, uint32_t, int, uint32_t, uint32_t, uint32_t>;
    std::vector<Symbol> symbols;
    for (const SymbolRecord& r : store->symbolTable.symbols)
        symbols.emplace_back(r.kind, r.addressSpace, r.value, r.typeIndex, r.nameIndex, r.firstLocation, r.locationCount);
    EXPECT_EQ((std::vector<Symbol>{{3, 2, 0x1234, 7, 0, 0, 0}, {6, 1, 0x20, 9, 1, 0, 2}, {1, 2, 0x60, 5, 3, 2, 1}}),
              symbols);
    EXPECT_EQ("moving", symbolName(1));
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2}), store->blockTree.symbols(0));
    using Location = std::tuple<uint32_t, int, int, uint32_t>;
    std::vector<Location> locations;
    for (const LocationRecord& r : store->symbolTable.locations)
        locations.emplace_back(r.startAddress, r.kind, r.addressSpace, r.value);
    EXPECT_EQ((std::vector<Location>{{0x100, 2, 2, 4}, {0x180, 21, 0, 0}, {0x200, 4, 3, 0x10}}), locations);

    // A symbol name knows its symbol; enclosing names are not prefixed; a function name borrows
    // its reference's text.
    const NameRecords& names = store->nameTable.records;
    ASSERT_EQ(6u, names.size());
    EXPECT_EQ(std::make_tuple(2u, 1u, -1, 2, 2u, 0x1234u),
              std::make_tuple(names[1].nameKind, names[1].number, names[1].parent, names[3].parent, names[4].scopeKind,
                              names[4].number));
    const NameTable& table = store->nameTable;
    EXPECT_EQ((std::vector<std::string>{"inner", "outer", "block9"}),
              (std::vector<std::string>{table.nameText(3), table.nameText(4), table.nameText(5)}));
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
    std::vector<std::string> texts;
    for (size_t i = 0; i < symbols.size(); ++i)
        texts.push_back(symbolName(i));
    EXPECT_EQ((std::vector<std::string>{"_A_PORTB", "PORTB", "_A_PORTC", "PORTC", "_A_PORTB", "_A_PORTB", "next",
                                        "_A_PORTB", "PORTB"}),
              texts);
    // The twin takes kind, space and value from the last location entry, or with none the
    // symbol's own fields; it keeps no locations, and its name hangs where the marked one does.
    EXPECT_EQ(std::make_tuple(1, 3, 3, 0x18u, 0u, 0),
              std::make_tuple(int(symbols[1].typeIndex), int(symbols[1].kind), int(symbols[1].addressSpace),
                              symbols[1].value, symbols[1].locationCount,
                              int(store->nameTable.records[symbols[1].nameIndex].parent)));
    EXPECT_EQ(std::make_pair(8, 0x35u), std::make_pair(int(symbols[3].kind), symbols[3].value));
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
    EXPECT_EQ((std::vector<std::string>{"f", "block3", "block4", "block7", "named", "named"}),
              (std::vector<std::string>{blockName(1), blockName(2), blockName(3), blockName(4), blockName(5), blockName(6)}));

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
    EXPECT_EQ((std::vector<uint32_t>{0x100, 0x120, 0xFFFFFFFF, 0, 0x100, 0x140, 0x140}),
              (std::vector<uint32_t>{blocks[2].lowAddress, blocks[2].highAddress, blocks[3].lowAddress,
                                     blocks[3].highAddress, blocks[1].lowAddress, blocks[1].highAddress,
                                     blocks[0].highAddress}));
    EXPECT_EQ(std::make_pair(size_t(2), -1), std::make_pair(store->lineTable.size(), int(store->blockTree.current)));
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

} // namespace
} // namespace ubrof::test
