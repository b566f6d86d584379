// File, module, group and origin tags, dates, and where t_abs_var puts its bytes.
#include "ReaderFixture.h"

#include "reader/OleDate.h"
#include "reader/ReaderError.h"

#include <array>
#include <cmath>

namespace ubrof::test {
namespace {

using ModuleTags = ReaderTest;

TEST_F(ModuleTags, RecordsModulesWithTheirBlocks)
{
    UbrofWriter w;
    w.begFile1({2000, 1, 1, 12, 0, 0}).version(6, 7, 8).segInfo({{"CODE", 2}, {"DATA", 0}});
    w.keyValue("producer", "compiler").begLib("?C_STARTUP", {2000, 2, 29}, {1, 2, 3});
    w.debug(0x11).aux(0x2233).aux1("1.5", 0x5A05).endAbs();
    // t_end_abs leaves the module open, so the next module nests inside it.
    w.begPgm("main", {1900, 2, 29}).aux1("2.10", 0x5BFF).aux1("1.0").end().end().eof();
    ASSERT_EQ("", read(w));

    EXPECT_DOUBLE_EQ(36526.5, store->fileHeader.creationTime);
    EXPECT_EQ((std::array<uint8_t, 3>{6, 7, 8}), store->fileHeader.versionBytes);
    ASSERT_EQ(2u, store->moduleTable.size());
    const ModuleRecord& startup = store->moduleTable[0];
    EXPECT_EQ(std::make_tuple(std::string("?C_STARTUP"), std::array<uint8_t, 3>{1, 2, 3}, 36585.0, 0x11, 0x2233, 0x5A05,
                              std::string("1.5")),
              std::make_tuple(startup.name, startup.attributes, startup.creationDate, int(startup.debugByte),
                              int(startup.auxWord), int(startup.versionCode), startup.versionText.value_or("none")));
    // 1900 was no leap year; the highest version text counts, not the last one.
    const ModuleRecord& main = store->moduleTable[1];
    EXPECT_EQ(std::make_pair(0.0, std::string("1.0")), std::make_pair(main.creationDate, main.versionText.value_or("none")));
    EXPECT_DOUBLE_EQ(2.10, store->symbolTable.compilerVersion);

    const BlockTree& tree = store->blockTree;
    ASSERT_EQ(2u, tree.blocks.size());
    EXPECT_EQ((std::vector<uint32_t>{0}), tree.roots);
    EXPECT_EQ(std::make_tuple(uint32_t(ModuleBlock), 1, 0, 1, -1, 0, -1, -1),
              std::make_tuple(tree.blocks[0].kind, int(tree.blocks[0].isHidden), int(tree.blocks[1].isHidden),
                              int(tree.blocks[1].moduleIndex), int(tree.blocks[1].nameIndex), int(tree.blocks[1].parent),
                              int(tree.current), int(tree.currentTopLevel)));
}

// To OLE days and back, for showing a file's date: every date a file can carry comes back as it
// went in, to the second, across leap days, centuries and day 0; before day 0 the time of day
// counts backwards.
TEST_F(ModuleTags, ConvertsDatesToOleDaysAndBack)
{
    const std::pair<std::array<uint32_t, 6>, double> dates[] = {
        {{1899, 12, 30, 0, 0, 0}, 0.0},          {{1899, 12, 29, 6, 0, 0}, -1.25},
        {{1, 1, 1, 0, 0, 0}, -693593.0},         {{1900, 2, 28, 23, 59, 59}, 60 + 86399.0 / 86400},
        {{1900, 3, 1, 0, 0, 1}, 61 + 1.0 / 86400}, {{2000, 2, 29, 12, 30, 45}, 36585 + 45045.0 / 86400},
        {{2011, 6, 26, 10, 22, 26}, 40720 + 37346.0 / 86400}, {{9999, 12, 31, 23, 59, 59}, 2958465.0 + 86399.0 / 86400}};
    for (const auto& [date, expected] : dates) {
        double days = 0;
        ASSERT_TRUE(toOleDate(date[0], date[1], date[2], date[3], date[4], date[5], days)) << date[0];
        EXPECT_DOUBLE_EQ(expected, days) << date[0];
        CivilTime time;
        ASSERT_TRUE(fromOleDate(days, time)) << days;
        EXPECT_EQ(date, (std::array<uint32_t, 6>{time.year, time.month, time.day, time.hour, time.minute, time.second}));
    }
    double date = 5;
    for (auto bad : std::vector<std::array<uint32_t, 6>>{{10000, 1, 1, 0, 0, 0}, {2001, 2, 29, 0, 0, 0},
                                                         {2000, 4, 31, 0, 0, 0}, {2000, 13, 1, 0, 0, 0},
                                                         {2000, 0, 1, 0, 0, 0}, {2000, 1, 0, 0, 0, 0},
                                                         {2000, 1, 1, 24, 0, 0}, {2000, 1, 1, 0, 60, 0},
                                                         {2000, 1, 1, 0, 0, 60}})
        EXPECT_FALSE(toOleDate(bad[0], bad[1], bad[2], bad[3], bad[4], bad[5], date)) << bad[0];
    EXPECT_EQ(5.0, date);
    CivilTime time;
    EXPECT_TRUE(fromOleDate(40720.99999999, time)); // rounds up into the next day
    EXPECT_EQ(std::make_pair(27u, 0u), std::make_pair(time.day, time.hour));
    time.year = 77;
    for (double bad : {2958466.0, -693594.5, std::nan(""), HUGE_VAL, -HUGE_VAL})
        EXPECT_FALSE(fromOleDate(bad, time)) << bad;
    EXPECT_EQ(77u, time.year);
}

TEST_F(ModuleTags, RegistersDefinitionsByContext)
{
    UbrofWriter w = fileStart();
    w.grp(3).symbolDef(symbol("g3")).grp(1).symbolDef(symbol("inLastGroup")).begLib("m").grpRef(3).grpRef(1);
    w.symbolDef(symbol("inModule")).end().symbolDef(symbol("nowhere")).grpRef(0x4D4D).eof();
    ASSERT_EQ("", read(w));
    ASSERT_EQ(4u, store->groupTable.size());
    EXPECT_EQ((std::vector<uint32_t>{0, 1}), store->groupTable[3].symbols);
    EXPECT_TRUE(store->groupTable[1].symbols.empty());
    EXPECT_EQ((std::vector<uint32_t>{2}), store->blockTree.symbols(0));
    EXPECT_EQ((std::vector<uint32_t>{3, 1}), store->blockTree.groups(0));
    // Outside a module t_grp_ref reads nothing: its bytes 0x4D 0x4D are read as two t_beg_file tags.
    EXPECT_EQ(4u, store->symbolTable.symbols.size());
    EXPECT_EQ("nowhere", symbolName(3));
}

TEST_F(ModuleTags, PlacesBytesBySegmentTypeAndVersion)
{
    UbrofWriter w = fileStart();
    w.org(1, 0x10).absVar({0xC1}).org(2, 0x20).absVar({0xD1}).org(7, 0x30).absVar({0xD2});
    w.org(4, 0x500).absVar({0x44, 0x44}).absVar({0xD3}); // type 4 keeps nothing, moves nothing
    w.org(3, 0x40).absVar({0xC2}); // before version 2.0 type 3 is code memory
    w.aux1("2.0").absVar({0xE1});  // now the same type means EEPROM, from eepromAddress
    w.aux1("1.0").org(3, 0x8).absVar({0xE2, 0xE3}); // a lower version later changes nothing
    w.org(9, 0x50).absVar({0xC3}).org(5, 0).absVar({}).eof();
    ASSERT_EQ("", read(w));
    auto bytes = [](const DMemory& image, uint32_t address, uint32_t count) {
        std::vector<uint8_t> out(count);
        image.read(address, count, out.data());
        return out;
    };
    std::vector<uint8_t> code(0x41, 0xFF), data(0x11, 0xFF);
    code[0] = 0xC1, code[0x30] = 0xC2, code[0x40] = 0xC3, data[0] = 0xD1, data[0x10] = 0xD2;
    EXPECT_EQ(code, bytes(store->codeMemory, 0x10, 0x41));
    EXPECT_EQ(data, bytes(store->dataMemory, 0x20, 0x11));
    EXPECT_EQ((std::vector<uint8_t>{0xE1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xE2, 0xE3}),
              bytes(store->eepromMemory, 0, 10));
    // The empty t_abs_var at address 0 widened nothing.
    EXPECT_EQ((std::vector<uint32_t>{0x10, 0x50, 0x20, 0x30, 9}),
              (std::vector<uint32_t>{store->codeMemory.lowAddress(), store->codeMemory.highAddress(),
                                     store->dataMemory.lowAddress(), store->dataMemory.highAddress(),
                                     store->eepromMemory.highAddress()}));
}

} // namespace
} // namespace ubrof::test
