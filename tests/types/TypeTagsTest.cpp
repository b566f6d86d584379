// Type tags read back from writer-built files: every kind's text, facts, DWARF tag and structure.
#include "TestFiles.h"

#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

#include <gtest/gtest.h>
#include <memory>
#include <tuple>

namespace ubrof {
namespace {

using test::ScratchDir;

std::unique_ptr<TarnUbrofParser> parse(const UbrofWriter& w, int16_t expected = 0)
{
    ScratchDir dir;
    auto store = std::make_unique<TarnUbrofParser>();
    store->initialize();
    EXPECT_EQ(expected, store->parseFile(dir.save(w)));
    return store;
}

constexpr uint32_t kNone = 77; // what getTypeInfo leaves in a field it does not answer

// Names 0 and 1 come first so that the index-named kinds can refer to them.
UbrofWriter everyKind()
{
    UbrofWriter w;
    w.begFile1().version(8).scopedName("Widget").scopedName("handle_t").defPtrTypes();
    w.memInfo(1, "__near", 2).memInfo(4, "__flash", 2).memInfo(20, "__io", 1, 8);
    w.typeStruct(100, "point", 4, {{"x", 6, 0}, {"y", 6, 2}}).typeUnion(101, "u", 2, {{"a", 2, 9}, {"b", 6, 9}});
    w.typeClass(102, 0, 3, 6, {{1, 1, 6, 0xABCD}}).typeBitField(103, 3, 5, 1).typeFunction(104, 6, 4, {6, 2});
    w.typeFunction35(105, 12, 0, 0x210, {}).typeQualified(106, 7, 6).typeQualified(107, 0x52, 1);
    w.typeAttributed(108, 0x8000 | (19 << 4), 6).typeAttributed(109, 33 << 4, 104);
    w.typeInMemory(110, 42, 1, 6, 0xF, {0xAA, 0xBB}).typeInMemory(111, 43, 4, 104, 0).typePointer(112, 15, 110);
    w.typePointer(113, 15, 111).typeInMemory(114, 42, 255, 12).typePointer(115, 15, 114).typePointer(116, 25, 6);
    w.typePointer(117, 53, 100).typeArray(118, 119, 64, 4).typeArray(119, 2, 8, 8, 41);
    w.typeEnum(120, 1, "color", {{"red", 0}, {"green", 1}}).typeEnum51(121, 6, 0, {{1, 5}}).typeTypedef(122, 116, 1);
    w.typeMemberPointer(123, 124, 100).typeInMemory(124, 42, 1, 6).typeBare(125, 22).typeBare(126, 47);
    w.typeBare(127, 60).typeBare(128, 5).typePointer(130, 27, 12).typePointer(131, 29, 6).typeQualified(132, 0, 116);
    w.typeInMemory(133, 42, 1, 118).typeInMemory(134, 42, 20, 1);
    return w.eof();
}

TEST(TypeTags, EveryKindRendersClassifiesAndTagsAsItsLayoutSays)
{
    auto store = parse(everyKind());
    const TypeTable& types = store->typeTable;
    struct Row {
        uint32_t index;
        const char* text;
        uint32_t category, size, count, memoryClass, extra;
        int32_t tag; // -1: no tag
    };
    const uint32_t n = kNone;
    const Row rows[] = {
        {6, "int", 1, 2, 0, 2, 0, 0x24}, {99, "undefined_type", 0, 0, 0, 2, 0, 0x3B},
        {100, "struct point", 4, 4, 2, 2, 0, 0x13}, {101, "union u", 4, 2, 2, 2, 0, 0x17},
        {102, "class Widget", 4, 6, 1, 2, 0, 0x13}, {103, "unsigned char", 12, 3, 0, 2, 5, 0x24},
        {104, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 0, 0x15}, {105, "(void) ()", 7, 0, 0, 1, 0, 0x15},
        {106, "int register const volatile", 1, 2, 0, 2, 0, 0x24}, {107, "unsigned char const", 2, 1, 0, 2, 0, 0x24},
        {108, "int", 1, 2, 0, 2, 4, 0x24}, {109, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 2, 0x15},
        {110, "int const volatile restrict writeonly", 1, 2, 0, 2, 2, 0x24},
        {111, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 2, 0x15},
        {112, "int const volatile restrict writeonly *", 5, 2, 1, 2, 0, 0x0F},
        {113, "[interrupt] (int) (int, char) *", 5, 2, 0, 2, 0, 0x0F}, {114, "void", 8, 0, 0, 2, 0, 0x24},
        {115, "void *", 5, 0, 0, 2, 0, 0x0F}, {116, "int *", 5, 4, 1, 2, 0, 0x1F},
        {117, "struct point &", 4, 4, 2, 2, 0, 0x10}, {118, "char[4][8]", 6, 64, 4, 2, 0, 0x01},
        {119, "char[8]", 6, 8, 8, 2, 0, 0x01}, {120, "enum color", 2, 1, 0, 2, 0, 0x04},
        {121, "enum Widget", 1, 2, 0, 2, 0, 0x04}, {122, "handle_t", 5, 4, 1, 2, 0, 0x16},
        {123, "struct point::int *", 2, 2, 0, 2, 0, 0x1F}, {125, "", n, n, n, n, n, -1}, {126, "", n, n, n, n, n, -1},
        {127, "", n, n, n, n, n, -1}, {128, "", n, n, n, n, n, -1}, {130, "void *", 5, 3, 1, 2, 0, 0x1F},
        {131, "int *", 5, 0, 1, 2, 0, 0x1F},
    };
    for (const Row& row : rows) {
        TypeInfo info{n, n, n, n, n};
        types.getTypeInfo(row.index, info);
        int32_t tag = -1;
        const bool tagged = types.getDwarfTag(row.index, tag);
        EXPECT_EQ(std::make_tuple(std::string(row.text), row.category, row.size, row.count, row.memoryClass, row.extra,
                                  row.tag != -1, row.tag),
                  std::make_tuple(types.renderTypeName(row.index), info.category, info.size, info.count,
                                  info.memoryClass, info.extra, tagged, tag))
            << row.index;
    }
}

TEST(TypeTags, CompositesEnumsAndFunctionsKeepTheirEntries)
{
    auto store = parse(everyKind());
    const TypeTable& types = store->typeTable;
    const NameTable& names = store->nameTable;
    // Union members have no offset on file: the 9s the writer was given are not written.
    std::vector<std::tuple<std::string, uint32_t, uint32_t, uint32_t>> members;
    for (const auto& m : types.members)
        members.emplace_back(names.nameText(m.nameIndex), m.offset, m.typeIndex, m.attribute);
    EXPECT_EQ((decltype(members){{"x", 0, 6, 0}, {"y", 2, 6, 0}, {"a", 0, 2, 0}, {"b", 0, 6, 0}, {"handle_t", 1, 6, 0xABCD}}),
              members);
    const TypeRecord& color = types.getRecord(120);
    EXPECT_EQ("green", names.nameText(types.enumConstants[color.op4 + color.op3 - 1].nameIndex));
    EXPECT_EQ(5u, types.enumConstants[types.getRecord(121).op4].value);
    // Names of the tag go to the store's name table as plain names.
    const NameRecord& colorName = names.records[color.op2];
    EXPECT_EQ(std::make_tuple(0u, kNoIndex, -1), std::make_tuple(colorName.nameKind, colorName.number, colorName.parent));
    EXPECT_EQ(std::make_tuple(0u, 0x210u, 0xFu), std::make_tuple(types.getRecord(104).op3, types.getRecord(105).op3,
                                                                 types.getRecord(110).op3));
    EXPECT_EQ((std::vector<uint32_t>{6, 2}), types.parameterTypes);
}

TEST(TypeTags, StructuralQuestionsFollowQualifiersAndStopAtTheRightKinds)
{
    auto store = parse(everyKind());
    const TypeTable& types = store->typeTable;
    // index, referenced type (0: none), function, I/O
    const std::tuple<uint32_t, uint32_t, bool, bool> rows[] = {
        {6, 0, false, false},     {100, 0, false, false},  {104, 0, true, false},  {105, 0, true, false},
        {106, 0, false, false},   {107, 0, false, true},   {108, 0, false, true},  {109, 0, true, false},
        {110, 0, false, false},   {111, 0, true, false},   {112, 110, false, false}, {113, 111, false, false},
        {114, 0, false, false},   {116, 6, false, false},  {117, 100, false, false}, {118, 119, false, false},
        {119, 2, false, false},   {120, 0, false, false},  {122, 116, false, false}, {123, 124, false, false},
        {130, 12, false, false},  {132, 6, false, false},  {134, 0, false, true}};
    for (const auto& [index, referenced, function, io] : rows) {
        uint32_t target = 0;
        const bool refers = types.getReferencedType(index, target);
        EXPECT_EQ(std::make_tuple(referenced != 0, referenced, function, io),
                  std::make_tuple(refers, refers ? target : 0, types.isFunctionType(index), types.isIoType(index)))
            << index;
    }
    std::vector<int32_t> dims;
    types.collectArrayDimensions(133, dims);
    types.collectArrayDimensions(6, dims);
    EXPECT_EQ((std::vector<int32_t>{4, 8}), dims);
    uint32_t width = 9, position = 9, storage = 9;
    types.getBitFieldLayout(103, width, position, storage);
    EXPECT_EQ(std::make_tuple(3u, 5u, 1u), std::make_tuple(width, position, storage));
    types.getBitFieldLayout(6, width, position, storage);
    EXPECT_EQ(std::make_tuple(0u, 0u, 0u), std::make_tuple(width, position, storage));
    EXPECT_TRUE(types.isBitFieldType(103) && !types.isBitFieldType(6));
}

TEST(TypeTags, MemoryDescriptionsGetTheirClassByTheFirstKeywordAndFillTheGaps)
{
    const std::pair<const char*, uint8_t> keywords[] = {
        {"__flash", 1}, {"__nearfunc", 1}, {"flashio", 1}, {"__io", 8},   {"regio", 8},
        {"io_regs", 8}, {"__eeprom", 4},   {"ioeeprom", 8}, {"EEPROM", 2}, {"__regvar", 16},
        {"FLASH", 2},   {"data", 2},       {"", 2}};
    for (const auto& [name, memoryClass] : keywords)
        EXPECT_EQ(memoryClass, memoryClassOfName(name)) << name;

    UbrofWriter w;
    w.begFile1().version(8).memInfo(0, "io_regs", 1, 8, 3).memInfo(2, "data", 2).memInfo(5, "regio", 1, 8, 3);
    auto store = parse(w.memInfo(5, "__eeprom", 2).eof());
    const std::vector<MemoryInfo>& memories = store->typeTable.memories;
    ASSERT_EQ(6u, memories.size());
    for (size_t i : {1, 3, 4})
        EXPECT_EQ(std::make_tuple(std::string(), 0, 0),
                  std::make_tuple(memories[i].name, memories[i].memoryClass, memories[i].addressSize));
    const MemoryInfo& io = memories[0];
    EXPECT_EQ(std::make_tuple(8, 1, 3u, 8u), std::make_tuple(io.memoryClass, io.addressSize, io.attribute2, io.attributes));
    EXPECT_EQ(2u, memories[2].memoryClass);
    EXPECT_EQ(std::make_tuple(std::string("__eeprom"), 4, 0u), // a second description replaces the first
              std::make_tuple(memories[5].name, memories[5].memoryClass, memories[5].attributes));
}

TEST(TypeTags, HostileCountsAndCutRecordsStoreOnlyWhatWasRead)
{
    // Counts with the top bit set read no entries.
    UbrofWriter w;
    w.begFile1().version(8);
    w.tag(0x4A).u16(100).u8(44).u16(6).text8("e").u32(0x80000000);
    w.tag(0x4A).u16(101).u8(51).u16(6).u32(0).u32(0xFFFFFFFF);
    w.tag(0x4A).u16(102).u8(52).u32(0).u32(1).u32(4).u32(0x80000001);
    w.typeStruct(103, "after", 2, {{"m", 6, 0}}).eof();
    auto store = parse(w);
    const TypeTable& types = store->typeTable;
    EXPECT_EQ(std::make_tuple(size_t(0), 0x80000000u, 51u, size_t(1), std::string("struct after")),
              std::make_tuple(types.enumConstants.size(), types.getRecord(100).op3, types.getRecord(101).kind,
                              types.members.size(), types.renderTypeName(103)));

    // A record cut short is not stored, but the entries read before the cut stay.
    UbrofWriter cut;
    cut.begFile1().version(8).typeStruct(100, "cut", 4, {{"a", 6, 0}, {"b", 6, 2}});
    auto cutStore = parse(UbrofWriter().raw(cut.prefix(cut.size() - 1)), 3);
    EXPECT_EQ(std::make_pair(0u, size_t(1)), std::make_pair(cutStore->typeTable.getRecord(100).kind,
                                                            cutStore->typeTable.members.size()));
    // A class claiming two billion members fails at the end of the file, holding only what it read.
    UbrofWriter huge;
    huge.begFile1().version(8).tag(0x4A).u16(100).u8(52).u32(0).u32(1).u32(4).u32(0x7FFFFFFF);
    for (int i = 0; i < 3; ++i)
        huge.u32(0).u32(0).u16(6).u32(0);
    auto hostile = parse(huge.eof(), 3);
    EXPECT_EQ(std::make_pair(0u, size_t(3)), std::make_pair(hostile->typeTable.getRecord(100).kind,
                                                            hostile->typeTable.members.size()));
}

TEST(TypeTags, RecordsGrowReplaceAndLetBareKindsAlone)
{
    UbrofWriter w;
    w.begFile1().version(8).typeBare(300, 22).typeBare(25, 1).sizeType(25, 7).typePointer(101, 25, 6).typeBare(2, 1).sizeType(10, 8).eof();
    auto store = parse(w);
    const TypeTable& types = store->typeTable;
    EXPECT_EQ(301u, types.getCount());
    EXPECT_EQ("undefined_type", types.renderTypeName(150));
    EXPECT_EQ(0u, types.getRecord(299).kind);
    // A kind-1 record read from the file has no name; its op1 is not read as one.
    EXPECT_EQ("", types.renderTypeName(2));
    TypeInfo info;
    types.getTypeInfo(101, info);
    EXPECT_EQ(7u, info.size); // from the record that replaced "far *", not its 4 bytes
    types.getTypeInfo(10, info);
    EXPECT_EQ(8u, info.size);
}

TEST(TypeTags, RealFilesDescribeTheirMemoriesAndRenderEveryType)
{
    UBROF_NEED_REAL_FILES();
    auto store = std::make_unique<TarnUbrofParser>();
    store->initialize();
    ASSERT_EQ(0, store->parseFile(test::realFile("avr-ethradio/NikeE1B.d90")));
    const TypeTable& types = store->typeTable;
    ASSERT_EQ(32u, types.memories.size());
    for (auto [number, name, memoryClass] : {std::make_tuple(4, "__flash", 1), std::make_tuple(19, "__eeprom", 4),
                                             std::make_tuple(20, "__io", 8), std::make_tuple(22, "__regvar", 16)})
        EXPECT_EQ(std::make_tuple(std::string(name), memoryClass),
                  std::make_tuple(types.memories[number].name, int(types.memories[number].memoryClass)));
    size_t functions = 0;
    for (uint32_t index = 0; index < types.getCount(); ++index) {
        EXPECT_LE(types.renderTypeName(index).size(), kMaxNameLength);
        functions += types.isFunctionType(index);
    }
    EXPECT_GT(functions, 100u);
}

} // namespace
} // namespace ubrof
