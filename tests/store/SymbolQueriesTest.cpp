// Symbols and types by context number: locations at a pc, sizes, dimensions, bit fields and members.
#include "FilledStore.h"
#include "parser/Vocabulary.h"

#include <gtest/gtest.h>
#include <tuple>

namespace ubrof {
namespace {

using test::FilledStore;
using Where = std::tuple<uint32_t, uint32_t, uint32_t>; // location kind, memory class, value

Where locate(const TarnUbrofParser& store, uint32_t context, uint32_t pc = 0xFFFFFFFF)
{
    SymbolLocation location;
    location.kind = location.memoryClass = location.value = 99;
    EXPECT_EQ(0, store.getSymbolLocation(context, pc, &location));
    return {location.kind, location.memoryClass, location.value};
}

TEST(SymbolLocation, EachStorageKindAndTheRegisterCodes)
{
    FilledStore t;
    auto of = [&](uint8_t kind, uint32_t value, uint16_t space = 2) {
        return locate(t.store, t.store.encodeContextId(SymbolContext, t.symbol("v", kind, 6, value, space)));
    };
    // Before version 2.0 of the compiler, space 3 is code memory.
    t.store.symbolTable.compilerVersion = 2.0;
    EXPECT_EQ((std::vector<Where>{{1, DataMemory, 0x40}, {1, EepromMemory, 0x40}, {1, CodeMemory, 0x40}}),
              (std::vector<Where>{of(1, 0x40, 2), of(4, 0x40, 3), of(2, 0x40, 0)}));
    t.store.symbolTable.compilerVersion = 1.9;
    EXPECT_EQ((std::vector<Where>{{1, CodeMemory, 0x40}, {2, 99, 4}, {3, 99, 5}, {3, 99, 5}, {4, 99, 99}, {0, 99, 99}}),
              (std::vector<Where>{of(3, 0x40, 3), of(7, 4), of(9, 5), of(22, 5), of(23, 5), of(5, 5)}));
    const std::pair<uint32_t, uint32_t> registers[] = {{31, 31}, {32, 0},  {40, 16}, {47, 30}, {48, 0},
                                                       {55, 28}, {56, 0},  {61, 20}, {62, 62}, {73, 73},
                                                       {74, 0},  {76, 16}, {77, 24}, {78, 0},  {80, 0}};
    for (const auto& [code, reg] : registers)
        EXPECT_EQ(Where(1, RegisterMemory, reg), of(8, code)) << code;
}

TEST(SymbolLocation, RecordsAtOrBelowPcOverrideTheSymbolsOwn)
{
    FilledStore t;
    const uint32_t v = t.symbol("v", 1, 6, 0x50, 2);
    for (const LocationRecord& location : {LocationRecord{0x100, 8, 0, 40}, LocationRecord{0x200, 21, 0, 0},
                                           LocationRecord{0x300, 7, 0, 4}})
        t.store.symbolTable.locations.push_back(location);
    t.store.symbolTable.symbols[v].locationCount = 3;
    t.store.typeTable.storeType(61, {21, 0x50, 6});
    const uint32_t io = t.symbol("port", 7, 61, 3);
    const TarnUbrofParser& s = t.store;
    const uint32_t context = s.encodeContextId(SymbolContext, v);
    const Where own(1, DataMemory, 0x50), inRegister(1, RegisterMemory, 16);
    EXPECT_EQ(std::vector<Where>({own, inRegister, inRegister, own, Where(2, 99, 4), own}),
              std::vector<Where>({locate(s, context, 0xFF), locate(s, context, 0x100), locate(s, context, 0x1FF),
                                  locate(s, context, 0x200), locate(s, context, 0x300), locate(s, context)}));
    EXPECT_EQ(Where(1, IoMemory, 3), locate(s, s.encodeContextId(SymbolContext, io)));

    SymbolLocation location;
    EXPECT_EQ(-2, s.getSymbolLocation(context, 0, nullptr));
    EXPECT_EQ(5, s.getSymbolLocation(0, 0, &location));
    EXPECT_EQ(5, s.getSymbolLocation(s.encodeContextId(TypeContext, 6), 0, &location));
    EXPECT_EQ(258, TarnUbrofParser().getSymbolLocation(context, 0, &location));
}

// A scope is located only through a symbol of its own name: a function whose scope and symbol
// share one name record answers the symbol's place; a scope without one answers nothing, never
// the place of another symbol (symbol 0 here, where every nameless scope once pointed).
TEST(SymbolLocation, AScopeAnswersOnlyThroughASymbolOfItsOwnName)
{
    UbrofWriter w;
    w.begFile1().version(8).begLib("m").symbolDef({"first", 1, 2, 0x10, 6, {}});
    w.scopedName("f").symbolDef2(1, 1, 0, 0x400, 0).org(1, 0x400).blockBegin3(1).absVar({0, 0}).blockEnd();
    w.funcBegin1("g").absVar({0, 0}).blockBegin1().absVar({0}).blockEnd().blockEnd();
    w.blockBegin3(0xFFFFFFFF).blockEnd();
    // More symbols than scopes, so that every scope number is also a valid symbol index.
    w.symbolDef({"a", 1, 2, 0x12, 6, {}}).symbolDef({"b", 1, 2, 0x14, 6, {}}).symbolDef({"c", 1, 2, 0x16, 6, {}});
    w.end().eof();
    TarnUbrofParser s;
    ASSERT_EQ(0, test::parseInto(s, w));
    ASSERT_EQ(5u, s.blockTree.blocks.size());
    ASSERT_EQ(FunctionBlock, s.blockTree.blocks[1].kind);

    EXPECT_EQ(Where(1, CodeMemory, 0x400), locate(s, s.encodeContextId(ScopeContext, 1)));
    for (int32_t scope : {0, 2, 3, 4}) {
        SymbolLocation location;
        location.kind = location.memoryClass = location.value = 99;
        EXPECT_EQ(-1, s.getSymbolLocation(s.encodeContextId(ScopeContext, scope), 0x400, &location)) << scope;
        EXPECT_EQ(Where(99, 99, 99), Where(location.kind, location.memoryClass, location.value)) << scope;
    }
    EXPECT_EQ(Where(1, DataMemory, 0x10), locate(s, s.encodeContextId(SymbolContext, 0)));
}

// A typedef of a structure, a two-dimensional array and a bit field, each with a variable.
class TypedSymbols : public ::testing::Test {
protected:
    void SetUp() override
    {
        using S = UbrofWriter::Symbol;
        UbrofWriter w;
        w.begFile1().version(8).scopedName("point_t")
            .typeStruct(60, "point", 4, {{"x", 6, 0}, {"y", 6, 2}}).typeTypedef(61, 60, 0)
            .typeArray(62, 2, 8, 8).typeArray(63, 62, 32, 4).typeBitField(64, 3, 5, 1)
            .begLib("main").symbolDef(S{"p", 1, 2, 0x100, 61, {}}).symbolDef(S{"grid", 1, 2, 0x200, 63, {}})
            .symbolDef(S{"flags", 1, 2, 0x300, 64, {}}).end().eof();
        ASSERT_EQ(0, test::parseInto(store, w));
    }

    uint32_t symbol(int32_t index) const { return store.encodeContextId(SymbolContext, index); }

    TarnUbrofParser store;
};

TEST_F(TypedSymbols, StructMembersByNameAndByPosition)
{
    std::string text = "y";
    int32_t type = -1, symbolIndex = -1;
    uint32_t offset = 99, count = 0;
    ASSERT_EQ(0, store.getStructMember(61, text, -1, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(std::make_tuple(6, 2u, 4, 2u), std::make_tuple(type, offset, symbolIndex, count));
    text.clear();
    ASSERT_EQ(0, store.getStructMember(61, text, 0, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(std::make_tuple(std::string("x"), 0u, 3), std::make_tuple(text, offset, symbolIndex));
    // The member became a symbol of its own.
    int32_t tag = 0;
    std::string name;
    store.getSymbolClass(symbol(4), &tag);
    store.getContextName(symbol(4), name);
    EXPECT_EQ(std::make_tuple(DwTagMember, 2, std::string("y")),
              std::make_tuple(tag, store.getSymbolOffset(symbol(4)), name));

    text = "z";
    EXPECT_EQ(-1, store.getStructMember(61, text, -1, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(5, store.getStructMember(61, text, 2, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(-1, store.getStructMember(6, text, 0, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(5, store.getStructMember(5000, text, 0, &type, &offset, &symbolIndex, &count));
    EXPECT_EQ(-2, store.getStructMember(61, text, 0, &type, nullptr, &symbolIndex, &count));
    EXPECT_EQ(258, TarnUbrofParser().getStructMember(61, text, 0, &type, &offset, &symbolIndex, &count));
}

TEST_F(TypedSymbols, SizesLengthsNamesDimensionsAndBitFields)
{
    const uint32_t p = symbol(0), grid = symbol(1), flags = symbol(2);
    EXPECT_EQ(std::make_tuple(4, 2, std::string("point_t")),
              std::make_tuple(store.getContextSize(p), store.getContextLength(p), store.getContextTypeName(p)));
    EXPECT_EQ(std::make_tuple(32, 4, std::string("char[4][8]")),
              std::make_tuple(store.getContextSize(grid), store.getContextLength(grid), store.getContextTypeName(grid)));
    std::vector<int32_t> dimensions;
    store.getArrayDimensions(grid, dimensions);
    store.getArrayDimensions(p, dimensions);
    EXPECT_EQ(std::vector<int32_t>({4, 8}), dimensions);
    EXPECT_TRUE(store.isBitFieldContext(flags));
    EXPECT_FALSE(store.isBitFieldContext(p));
    EXPECT_EQ(1, store.getContextSize(flags));
    uint32_t width = 0, position = 0, storage = 0;
    store.getBitFieldInfo(flags, &width, &position, &storage);
    store.getBitFieldInfo(p, &width, &position, &storage);
    EXPECT_EQ(std::make_tuple(3u, 5u, 1u), std::make_tuple(width, position, storage));
    EXPECT_EQ(63, store.getTypeOfSymbolNamed("grid"));
    EXPECT_EQ(61, store.getTypeOfSymbolNamed("nobody"));
    EXPECT_EQ(-1, TarnUbrofParser().getTypeOfSymbolNamed("grid"));
}

TEST(TypeWalks, StopWhereACycleClosesAndAnswerAsForNoType)
{
    // A typedef of itself, and two memory qualifiers of each other, each held by a variable.
    UbrofWriter w;
    w.begFile1().version(8).scopedName("loop_t").typeTypedef(100, 100, 0);
    w.typeInMemory(101, 42, 255, 102).typeInMemory(102, 43, 255, 101);
    w.begLib("m").symbolDef({"a", 1, 2, 0, 100, {}}).symbolDef({"b", 1, 2, 2, 101, {}}).end().eof();
    TarnUbrofParser store;
    ASSERT_EQ(0, test::parseInto(store, w));
    std::string text;
    int32_t type = -1, symbol = -1, target = -1;
    uint32_t offset = 0, count = 0, mode = 0;
    for (int32_t walked : {100, 101}) {
        EXPECT_EQ(-1, store.getStructMember(walked, text, 0, &type, &offset, &symbol, &count)) << walked;
        EXPECT_EQ(-1, store.getStructMember(walked, text, -1, &type, &offset, &symbol, &count)) << walked;
    }
    EXPECT_EQ(-1, store.getTypeTarget(101, &target, &mode));
    const uint32_t a = store.encodeContextId(SymbolContext, 0), b = store.encodeContextId(SymbolContext, 1);
    EXPECT_EQ(std::make_tuple(0, 0, std::string("loop_t")),
              std::make_tuple(store.getContextSize(a), store.getContextLength(a), store.getContextTypeName(a)));
    EXPECT_EQ(std::make_tuple(0, std::string("undefined_type")),
              std::make_tuple(store.getContextSize(b), store.getContextTypeName(b)));
}

} // namespace
} // namespace ubrof
