// The type table on its own: graphs no file should hold, texts at their bound, indexes outside it.
#include "reader/TypeTable.h"

#include <gtest/gtest.h>
#include <tuple>

namespace ubrof {
namespace {

TypeRecord record(uint32_t kind, uint32_t op1 = 0, uint32_t op2 = 0, uint32_t op3 = 0, uint32_t op4 = 0,
                  uint32_t op5 = 0)
{
    return TypeRecord{kind, op1, op2, op3, op4, op5};
}

TEST(TypeTable, AWalkAnswersACycleAsAnIndexThatNamesNoType)
{
    NameTable names;
    TypeTable types(names);
    types.storeType(200, record(15, 200));         // pointer to itself
    types.storeType(201, record(49, 201));         // typedef of itself
    types.storeType(202, record(21, 0, 202));      // qualifier of itself
    types.storeType(203, record(16, 203, 4, 3));   // array of itself
    types.storeType(204, record(19, 1, 2, 204));   // bit field stored in itself
    types.storeType(205, record(20, 205, 0, 0, 255, 0));
    types.parameterTypes.assign(255, 205);         // every parameter is the function again
    types.storeType(206, record(42, 255, 207));    // a cycle of two, entered from outside
    types.storeType(207, record(43, 255, 208));
    types.storeType(208, record(42, 255, 207, 2));

    const std::pair<uint32_t, const char*> texts[] = {{200, "undefined_type *"}, {202, "undefined_type"},
                                                      {203, "undefined_type[3]"}, {204, "undefined_type"},
                                                      {206, "undefined_type volatile"}};
    for (const auto& [index, text] : texts)
        EXPECT_EQ(text, types.renderTypeName(index)) << index;
    const std::string function = types.renderTypeName(205);
    EXPECT_EQ(kMaxNameLength, function.size());
    EXPECT_EQ("(undefined_type) (undefined_type, undefined_type", function.substr(0, 48));

    TypeInfo info{9, 9, 9, 9, 9};
    types.getTypeInfo(201, info);
    EXPECT_EQ(std::make_tuple(0u, 0u, 2u), std::make_tuple(info.category, info.size, info.memoryClass));
    for (uint32_t index : {202u, 204u, 206u}) {
        int32_t tag = 0;
        EXPECT_TRUE(types.getDwarfTag(index, tag) && tag == 0x3B) << index;
    }
    std::vector<int32_t> dims;
    types.collectArrayDimensions(203, dims);
    EXPECT_EQ(std::vector<int32_t>{3}, dims);
    uint32_t target = 0;
    EXPECT_FALSE(types.getReferencedType(206, target) || types.isFunctionType(202));
}

TEST(TypeTable, ATypeChainSeesACycleWithinTwiceTheWalkOnceRoundIt)
{
    // A chain of 1,000 distinct indices, then a cycle of length n back into it.
    for (uint32_t n : {1u, 2u, 7u, 64u, 1000u}) {
        TypeChain chain(0);
        uint32_t steps = 0;
        auto next = [n](uint32_t i) { return i < 1000 ? i + 1 : 1000 + (i - 1000 + 1) % n; };
        for (uint32_t i = 0; chain.step(next(i)); i = next(i))
            ++steps;
        EXPECT_GE(steps, 1000u + n - 1) << n;
        EXPECT_LE(steps, 2 * (1000u + n)) << n;
    }
}

TEST(TypeTable, LongTextsAreCutAtTheBufferSize)
{
    NameTable names;
    names.append(NameRecord{0, 0, std::string(2000, 'n'), kNoIndex, -1});
    TypeTable types(names);
    types.storeType(100, record(17, 0, 1, 4));
    EXPECT_EQ("struct " + std::string(kMaxNameLength - 7, 'n'), types.renderTypeName(100));

    // Sixty qualifiers of 35 characters each: far more than fits.
    std::string full = "int";
    for (uint32_t i = 0; i < 60; ++i) {
        types.storeType(200 + i, record(42, 255, i == 0 ? 6 : 199 + i, 0xF));
        full += " const volatile restrict writeonly";
    }
    EXPECT_EQ(full.substr(0, kMaxNameLength), types.renderTypeName(259));

    types.storeType(300, record(16, 301, 0, 7));
    types.storeType(301, record(16, 100, 0, -1));
    EXPECT_EQ(("struct " + std::string(kMaxNameLength - 7, 'n')), types.renderTypeName(300));
    types.storeType(302, record(16, 6, 0, -2));
    EXPECT_EQ("int[-2]", types.renderTypeName(302));
}

// Memory 40 was never described, parameters lie beyond their list, and a built-in base record's
// op1 names its text: none of them may be read as a memory or an entry.
TEST(TypeTable, IndexesOutsideTheTablesAreAnsweredSafely)
{
    NameTable names;
    TypeTable types(names);
    types.memories.resize(2);
    EXPECT_EQ("undefined_type", types.renderTypeName(5000));
    TypeInfo info;
    types.getTypeInfo(5000, info);
    EXPECT_EQ(std::make_tuple(0u, 2u), std::make_tuple(info.category, info.memoryClass));

    types.storeType(100, record(42, 40, 6));
    types.storeType(101, record(15, 100));
    types.storeType(102, record(50, 100, 6));
    types.storeType(105, record(20, 6, 0, 0, 3, 1000));
    types.storeType(106, record(15, 6));      // int *, straight to the base type
    types.storeType(107, record(50, 6, 106)); // member pointer whose target is int
    for (uint32_t index : {101u, 102u}) {
        types.getTypeInfo(index, info);
        EXPECT_EQ(0u, info.size) << index;
    }
    types.getTypeInfo(100, info);
    EXPECT_EQ(std::make_tuple(2u, 0u), std::make_tuple(info.memoryClass, info.extra));
    EXPECT_FALSE(types.isIoType(100));
    EXPECT_EQ("(int) ()", types.renderTypeName(105));
    const uint32_t count = types.getCount();
    types.setTypeSize(5000, 3);
    EXPECT_EQ(count, types.getCount());

    // With 64 memories of 3-byte addresses, a pointer to int in memory 7 takes 3 bytes, one to
    // plain int none from the base record's op1.
    types.memories.resize(64);
    for (MemoryInfo& memory : types.memories)
        memory.addressSize = 3;
    types.storeType(108, record(42, 7, 6));
    types.storeType(109, record(15, 108));
    for (auto [index, size] : {std::make_pair(106u, 0u), std::make_pair(107u, 0u), std::make_pair(109u, 3u)}) {
        types.getTypeInfo(index, info);
        EXPECT_EQ(size, info.size) << index;
    }
}

} // namespace
} // namespace ubrof
