// Type tags read back from writer-built files: every kind's text, facts, DWARF tag and structure.
#include "TestFiles.h"

#include "parser/TarnUbrofParser.h"

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
    w.typeStruct(100, "point", 4, {{"x", 6, 0}, {"y", 6, 2}})
        .typeUnion(101, "u", 2, {{"a", 2, 9}, {"b", 6, 9}})
        .typeClass(102, 0, 3, 6, {{1, 1, 6, 0xABCD}})
        .typeBitField(103, 3, 5, 1)
        .typeFunction(104, 6, 4, {6, 2})
        .typeFunction35(105, 12, 0, 0x210, {})
        .typeQualified(106, 7, 6)
        .typeQualified(107, 0x52, 1)
        .typeAttributed(108, 0x8000 | (19 << 4), 6)
        .typeAttributed(109, 33 << 4, 104)
        .typeInMemory(110, 42, 1, 6, 0xF, {0xAA, 0xBB})
        .typeInMemory(111, 43, 4, 104, 0)
        .typePointer(112, 15, 110)
        .typePointer(113, 15, 111)
        .typeInMemory(114, 42, 255, 12)
        .typePointer(115, 15, 114)
        .typePointer(116, 25, 6)
        .typePointer(117, 53, 100)
        .typeArray(118, 119, 64, 4)
        .typeArray(119, 2, 8, 8, 41)
        .typeEnum(120, 1, "color", {{"red", 0}, {"green", 1}})
        .typeEnum51(121, 6, 0, {{1, 5}})
        .typeTypedef(122, 116, 1)
        .typeMemberPointer(123, 124, 100)
        .typeInMemory(124, 42, 1, 6)
        .typeBare(125, 22)
        .typeBare(126, 47)
        .typeBare(127, 60)
        .typeBare(128, 5)
        .typePointer(130, 27, 12)
        .typePointer(131, 29, 6)
        .typeQualified(132, 0, 116)
        .typeInMemory(133, 42, 1, 118)
        .typeInMemory(134, 42, 20, 1);
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
        {6, "int", 1, 2, 0, 2, 0, 0x24},
        {99, "undefined_type", 0, 0, 0, 2, 0, 0x3B},
        {100, "struct point", 4, 4, 2, 2, 0, 0x13},
        {101, "union u", 4, 2, 2, 2, 0, 0x17},
        {102, "class Widget", 4, 6, 1, 2, 0, 0x13},
        {103, "unsigned char", 12, 3, 0, 2, 5, 0x24},
        {104, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 0, 0x15},
        {105, "(void) ()", 7, 0, 0, 1, 0, 0x15},
        {106, "int register const volatile", 1, 2, 0, 2, 0, 0x24},
        {107, "unsigned char const", 2, 1, 0, 2, 0, 0x24},
        {108, "int", 1, 2, 0, 2, 4, 0x24},
        {109, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 2, 0x15},
        {110, "int const volatile restrict writeonly", 1, 2, 0, 2, 2, 0x24},
        {111, "[interrupt] (int) (int, char)", 7, 0, 0, 1, 2, 0x15},
        {112, "int const volatile restrict writeonly *", 5, 2, 1, 2, 0, 0x0F},
        {113, "[interrupt] (int) (int, char) *", 5, 2, 0, 2, 0, 0x0F},
        {114, "void", 8, 0, 0, 2, 0, 0x24},
        {115, "void *", 5, 0, 0, 2, 0, 0x0F},
        {116, "int *", 5, 4, 1, 2, 0, 0x1F},
        {117, "struct point &", 4, 4, 2, 2, 0, 0x10},
        {118, "char[4][8]", 6, 64, 4, 2, 0, 0x01},
        {119, "char[8]", 6, 8, 8, 2, 0, 0x01},
        {120, "enum color", 2, 1, 0, 2, 0, 0x04},
        {121, "enum Widget", 1, 2, 0, 2, 0, 0x04},
        {122, "handle_t", 5, 4, 1, 2, 0, 0x16},
        {123, "struct point::int *", 2, 2, 0, 2, 0, 0x1F},
        {125, "", n, n, n, n, n, -1},
        {126, "", n, n, n, n, n, -1},
        {127, "", n, n, n, n, n, -1},
        {128, "", n, n, n, n, n, -1},
        {130, "void *", 5, 3, 1, 2, 0, 0x1F},
        {131, "int *", 5, 0, 1, 2, 0, 0x1F},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.index);
        EXPECT_EQ(row.text, types.renderTypeName(row.index));
        TypeInfo info{n, n, n, n, n};
        types.getTypeInfo(row.index, info);
        EXPECT_EQ(row.category, info.category);
        EXPECT_EQ(row.size, info.size);
        EXPECT_EQ(row.count, info.count);
        EXPECT_EQ(row.memoryClass, info.memoryClass);
        EXPECT_EQ(row.extra, info.extra);
        int32_t tag = -1;
        EXPECT_EQ(row.tag != -1, types.getDwarfTag(row.index, tag));
        EXPECT_EQ(row.tag, tag);
    }
}

TEST(TypeTags, CompositesEnumsAndFunctionsKeepTheirEntries)
{
    auto store = parse(everyKind());
    const TypeTable& types = store->typeTable;
    const NameTable& names = store->nameTable;
    const TypeRecord& point = types.getRecord(100);
    ASSERT_EQ(0u, point.op5);
    const TypeRecord& onion = types.getRecord(101);
    ASSERT_EQ(2u, onion.op5);
    EXPECT_EQ(2u, types.members[1].offset);
    EXPECT_EQ("y", names.nameText(types.members[1].nameIndex));
    // Union members have no offset on file; the 9s the writer was given are not written.
    EXPECT_EQ(0u, types.members[2].offset);
    EXPECT_EQ(0u, types.members[3].offset);
    EXPECT_EQ(6u, types.members[3].typeIndex);
    EXPECT_EQ(0xABCDu, types.members[4].attribute);
    EXPECT_EQ(0u, types.members[0].attribute);

    const TypeRecord& color = types.getRecord(120);
    ASSERT_EQ(2u, color.op3);
    EXPECT_EQ("green", names.nameText(types.enumConstants[color.op4 + 1].nameIndex));
    EXPECT_EQ(5u, types.enumConstants[types.getRecord(121).op4].value);
    // Names of the tag go to the store's name table as plain names.
    const NameRecord& colorName = names.records[color.op2];
    EXPECT_EQ(std::make_tuple(0u, kNoIndex, -1), std::make_tuple(colorName.nameKind, colorName.number, colorName.parent));

    EXPECT_EQ(0u, types.getRecord(104).op3);
    EXPECT_EQ(0x210u, types.getRecord(105).op3);
    EXPECT_EQ((std::vector<uint32_t>{6, 2}), types.parameterTypes);
    EXPECT_EQ(0xFu, types.getRecord(110).op3);
    EXPECT_EQ(5u, types.members.size());
}

TEST(TypeTags, StructuralQuestionsFollowQualifiersAndStopAtTheRightKinds)
{
    auto store = parse(everyKind());
    const TypeTable& types = store->typeTable;
    const std::pair<uint32_t, uint32_t> referenced[] = {
        {112, 110}, {116, 6}, {117, 100}, {118, 119}, {119, 2}, {122, 116}, {123, 124}, {130, 12}, {132, 6}};
    for (auto [index, expected] : referenced) {
        uint32_t target = 0;
        EXPECT_TRUE(types.getReferencedType(index, target)) << index;
        EXPECT_EQ(expected, target) << index;
    }
    uint32_t target = 0;
    for (uint32_t index : {6u, 100u, 104u, 107u, 110u, 120u})
        EXPECT_FALSE(types.getReferencedType(index, target)) << index;

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

    for (uint32_t index : {104u, 105u, 109u, 111u})
        EXPECT_TRUE(types.isFunctionType(index)) << index;
    for (uint32_t index : {106u, 113u, 6u})
        EXPECT_FALSE(types.isFunctionType(index)) << index;

    for (uint32_t index : {107u, 108u, 134u})
        EXPECT_TRUE(types.isIoType(index)) << index;
    for (uint32_t index : {106u, 109u, 110u, 114u, 6u})
        EXPECT_FALSE(types.isIoType(index)) << index;
}

TEST(TypeTags, MemoryDescriptionsGetTheirClassAndFillTheGaps)
{
    UbrofWriter w;
    w.begFile1().version(8).memInfo(5, "io_regs", 1, 8, 3).memInfo(2, "data", 2).memInfo(5, "__eeprom", 2).eof();
    auto store = parse(w);
    const std::vector<MemoryInfo>& memories = store->typeTable.memories;
    ASSERT_EQ(6u, memories.size());
    for (size_t i : {0, 1, 3, 4})
        EXPECT_EQ(std::make_tuple(std::string(), 0, 0),
                  std::make_tuple(memories[i].name, memories[i].memoryClass, memories[i].addressSize));
    EXPECT_EQ(2u, memories[2].memoryClass);
    EXPECT_EQ(std::make_tuple(std::string("__eeprom"), 4, 0u), // a second description replaces the first
              std::make_tuple(memories[5].name, memories[5].memoryClass, memories[5].attributes));

    UbrofWriter first;
    first.begFile1().version(8).memInfo(0, "io_regs", 1, 8, 3).eof();
    auto firstStore = parse(first);
    const MemoryInfo& io = firstStore->typeTable.memories.at(0);
    EXPECT_EQ(std::make_tuple(8, 1, 3u, 8u), std::make_tuple(io.memoryClass, io.addressSize, io.attribute2, io.attributes));
}

TEST(TypeTags, CountsWithTheTopBitSetReadNoEntries)
{
    UbrofWriter w;
    w.begFile1().version(8);
    w.tag(0x4A).u16(100).u8(44).u16(6).text8("e").u32(0x80000000);
    w.tag(0x4A).u16(101).u8(51).u16(6).u32(0).u32(0xFFFFFFFF);
    w.tag(0x4A).u16(102).u8(52).u32(0).u32(1).u32(4).u32(0x80000001);
    w.typeStruct(103, "after", 2, {{"m", 6, 0}}).eof();
    auto store = parse(w);
    const TypeTable& types = store->typeTable;
    EXPECT_TRUE(types.enumConstants.empty());
    EXPECT_EQ(0x80000000u, types.getRecord(100).op3);
    EXPECT_EQ(51u, types.getRecord(101).kind);
    EXPECT_EQ(1u, types.members.size());
    EXPECT_EQ("struct after", types.renderTypeName(103));
}

TEST(TypeTags, ARecordCutShortIsNotStoredButItsEntriesStay)
{
    UbrofWriter w;
    w.begFile1().version(8).typeStruct(100, "cut", 4, {{"a", 6, 0}, {"b", 6, 2}});
    auto cut = parse(UbrofWriter().raw(w.prefix(w.size() - 1)), 3);
    EXPECT_EQ(0u, cut->typeTable.getRecord(100).kind);
    EXPECT_EQ(1u, cut->typeTable.members.size());

    // A class claiming two billion members fails at the end of the file, holding only what it read.
    UbrofWriter huge;
    huge.begFile1().version(8).tag(0x4A).u16(100).u8(52).u32(0).u32(1).u32(4).u32(0x7FFFFFFF);
    for (int i = 0; i < 3; ++i)
        huge.u32(0).u32(0).u16(6).u32(0);
    auto hostile = parse(huge.eof(), 3);
    EXPECT_EQ(3u, hostile->typeTable.members.size());
    EXPECT_EQ(0u, hostile->typeTable.getRecord(100).kind);
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
