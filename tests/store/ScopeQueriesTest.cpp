// The scope tree: context numbers, the scope at an address, names from a scope outwards, children per tag.
#include "FilledStore.h"

#include <gtest/gtest.h>
#include <random>

namespace ubrof {
namespace {

using test::FilledStore;

TEST(ContextNumbers, EachKindStartsWhereThePreviousEnds)
{
    FilledStore t;
    t.scope(FunctionBlock, t.scope(ModuleBlock, -1, 0, 0), 0, 0);
    for (const char* name : {"a", "b", "c"})
        t.symbol(name);
    const TarnUbrofParser& s = t.store;
    const uint32_t S = 2, N = 3, T = s.typeTable.getCount();
    const std::tuple<uint32_t, uint32_t, int32_t> cases[] = {
        {1, ScopeContext, 0},  {S, ScopeContext, 1},    {S + 1, SymbolContext, 0},
        {S + N, SymbolContext, 2}, {S + N + 1, TypeContext, 0}, {S + N + T, TypeContext, int32_t(T - 1)}};
    for (const auto& [number, kind, index] : cases) {
        uint32_t decoded = 0;
        EXPECT_EQ(index, s.decodeContextId(number, &decoded)) << number;
        EXPECT_EQ(kind, decoded) << number;
        EXPECT_EQ(number, s.encodeContextId(kind, index));
    }
    for (uint32_t invalid : {0u, S + N + T + 1, 0x80000000u}) {
        uint32_t kind = 99;
        EXPECT_EQ(-1, s.decodeContextId(invalid, &kind)) << invalid;
        EXPECT_EQ(99u, kind);
    }
    EXPECT_EQ(0u, s.encodeContextId(ScopeContext, -1));
    EXPECT_EQ(0u, s.encodeContextId(0x4B, 0));
}

// Every answer must hold before and after the tree is indexed.
void expectScopes(FilledStore& t, std::initializer_list<std::pair<uint32_t, int32_t>> answers)
{
    for (bool indexed : {false, true}) {
        if (indexed)
            t.store.indexScopes();
        for (const auto& [pc, scope] : answers)
            EXPECT_EQ(scope, t.store.findScopeAtAddress(pc)) << std::hex << pc << (indexed ? " indexed" : "");
    }
}

TEST(ScopeAtAddress, RangesAreHalfOpenAndTheInnermostScopeWins)
{
    FilledStore t;
    const int32_t m = t.scope(ModuleBlock, -1, 0x100, 0x200);
    const int32_t f = t.scope(FunctionBlock, m, 0x100, 0x180);
    const int32_t b = t.scope(LexicalBlock, f, 0x120, 0x130);
    const int32_t g = t.scope(FunctionBlock, m, 0x180, 0x1A0);
    t.scope(LexicalBlock, g, 0xFFFFFFFF, 0);
    expectScopes(t, {{0xFF, -1}, {0x100, f}, {0x120, b}, {0x12F, b}, {0x130, f}, {0x17F, f},
                     {0x180, g}, {0x1A0, m}, {0x1FF, m}, {0x200, -1}});
}

TEST(ScopeAtAddress, OfTwoModulesTheLaterWinsUnlessTheEarlierClaimsPc)
{
    FilledStore t;
    const int32_t first = t.scope(ModuleBlock, -1, 0x100, 0x200);
    const int32_t f = t.scope(FunctionBlock, first, 0x100, 0x140);
    // Only the last record of a range claims its addresses for the module.
    t.lineRange(first, {{0x160, 4}, {0x180, 4}});
    t.lineRange(first, {});
    const int32_t second = t.scope(ModuleBlock, -1, 0x100, 0x300);
    const int32_t h = t.scope(FunctionBlock, second, 0x190, 0x1A0);
    expectScopes(t, {{0x120, f}, {0x182, first}, {0x184, second}, {0x162, second}, {0x195, h}, {0x250, second}});
}

// Children laid side by side in slots of their parent are searched; children thrown anywhere
// (overlapping, empty, outside the parent) are scanned; the answers must not differ.
TEST(ScopeAtAddress, TheIndexAnswersAsThePlainWalkOnRandomTrees)
{
    std::mt19937 random(611);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 300; ++round) {
        // Now and then hundreds of modules, enough for the index to cut its bounds into stretches.
        const bool many = round % 30 == 0;
        FilledStore t;
        for (uint32_t i = 0, scopes = 1 + pick(many ? 600 : 40); i < scopes; ++i) {
            const int32_t parent = i == 0 || pick(4) == 0 ? -1 : static_cast<int32_t>(pick(i));
            const auto& tree = t.store.blockTree;
            const size_t slot = parent < 0 ? tree.roots.size() : tree.children(uint32_t(parent)).size();
            const bool sideBySide = parent < 0 ? round % 2 == 0 : parent % 2 == 0;
            const uint32_t base = parent < 0 ? 0 : tree.blocks[parent].lowAddress & 0xFFF;
            uint32_t low = sideBySide ? base + uint32_t(slot) * (parent < 0 ? 0x100 : 0x10) + pick(4) : pick(0x400);
            uint32_t high = low + pick(sideBySide ? 12 : 0x100);
            if (pick(10) == 0)
                std::tie(low, high) = std::make_pair(0xFFFFFFFFu, 0u);
            const int32_t scope = t.scope(parent < 0 ? ModuleBlock : FunctionBlock, parent, low, high);
            for (uint32_t range = 0, ranges = parent < 0 ? pick(4) : 0; range < ranges; ++range)
                t.lineRange(scope, {{pick(0x400), pick(8)}, {pick(0x400), pick(8)}});
        }
        const uint32_t end = many ? 0x20000 : 0x1000, step = many ? 7 : 1;
        std::vector<int32_t> plain;
        for (uint32_t pc = 0; pc < end; pc += step)
            plain.push_back(t.store.findScopeAtAddress(pc));
        t.store.indexScopes();
        for (uint32_t pc = 0; pc < end; pc += step)
            ASSERT_EQ(plain[pc / step], t.store.findScopeAtAddress(pc)) << "round " << round << " pc " << pc;
        // A block in no list changes no answer but leaves the index stale, so the tree is walked.
        t.store.blockTree.blocks.emplace_back();
        for (uint32_t pc = 0; pc < end; pc += step * 13)
            ASSERT_EQ(plain[pc / step], t.store.findScopeAtAddress(pc)) << "round " << round << " stale pc " << pc;
    }
}

// A group symbol q; modules main (g, and symbols of kinds 6 and 9), its function f (locals, a
// prototype, a block), other (h, groups 7 and 0) and a hidden one. Scopes: main 0, f 1, block 2,
// other 3, ?lib 4.
class NamedScopes : public ::testing::Test {
protected:
    void SetUp() override
    {
        using S = UbrofWriter::Symbol;
        UbrofWriter w;
        w.begFile1().version(8).typeFunction(60, 6, 0, {}).grp(0).symbolDef(S{"q", 1, 2, 0x40, 6, {}});
        w.begLib("main").fileRef(0, "Src/Main.c").symbolDef(S{"g", 1, 2, 0x10, 6, {}})
            .symbolDef(S{"six", 6, 2, 0, 6, {}}).symbolDef(S{"nine", 9, 2, 0, 6, {}})
            .funcBegin1("f", {S{"g", 7, 0, 2, 6, {}}, S{"x", 7, 0, 4, 6, {}}, S{"proto", 1, 0, 0, 60, {}}})
            .blockBegin1({S{"y", 7, 0, 6, 6, {}}}).blockEnd().blockEnd().end();
        w.begLib("other").grpRef(7).grpRef(0).symbolDef(S{"h", 1, 2, 0x20, 6, {}}).end();
        w.begLib("?lib").symbolDef(S{"z", 1, 2, 0x30, 6, {}}).end().eof();
        ASSERT_EQ(0, test::parseInto(store, w));
    }

    uint32_t symbolNamed(const std::string& name, int32_t scope) const
    {
        return store.encodeContextId(SymbolContext, store.findSymbolInScope(scope, name));
    }

    TarnUbrofParser store;
};

TEST_F(NamedScopes, NamesAreFoundFromTheScopeOutwardsThenInOtherModules)
{
    // name, from scope, search mode, found scope, the found symbol's value
    const std::tuple<const char*, int32_t, uint32_t, int32_t, uint32_t> cases[] = {
        {"y", 2, 0, 2, 6},     {"x", 2, 0, 1, 4},       {"g", 2, 0, 1, 2},      {"g", 2, 1, -1, 0x10},
        {"h", 2, 0, -1, 0x20}, {"g", -1, 0, -1, 0x10}, {"q", 2, 0, -1, 0x40}, {"q", 3, 0, 3, 0x40}};
    for (const auto& [name, from, mode, foundScope, value] : cases) {
        int32_t symbol = -1, scope = 99;
        ASSERT_EQ(0, store.lookupSymbolByName(name, from, mode, &symbol, &scope)) << name;
        EXPECT_EQ(value, store.symbolTable.symbols[symbol].value) << name;
        EXPECT_EQ(foundScope, scope) << name;
    }
    int32_t symbol = 77, scope = 77;
    for (const char* neverFound : {"six", "nine", "nobody"})
        EXPECT_EQ(-1, store.lookupSymbolByName(neverFound, 0, 0, &symbol, &scope)) << neverFound;
    EXPECT_EQ(77, symbol);
    EXPECT_EQ(-2, store.lookupSymbolByName("", 0, 0, &symbol, &scope));
    EXPECT_EQ(-2, store.lookupSymbolByName("g", 0, 0, nullptr, &scope));
    EXPECT_EQ(5, store.lookupSymbolByName("g", 5, 0, &symbol, &scope));
    EXPECT_EQ(258, TarnUbrofParser().lookupSymbolByName("g", 0, 0, &symbol, &scope));
}

TEST_F(NamedScopes, ChildrenDependOnTheTagAsked)
{
    auto children = [&](uint32_t context, int32_t tag) {
        std::vector<uint32_t> out;
        const bool any = store.getChildren(context, tag, out);
        EXPECT_EQ(any, !out.empty());
        return out;
    };
    using List = std::vector<uint32_t>;
    const uint32_t main = 1, f = 2, block = 3, other = 4;
    const uint32_t g = symbolNamed("g", 0), localG = symbolNamed("g", 1), x = symbolNamed("x", 1);
    EXPECT_EQ(List({main, other}), children(0, DwTagCompileUnit));
    EXPECT_EQ(List({g, g + 1, g + 2, symbolNamed("h", 3), symbolNamed("z", 4)}), children(0, 0));
    EXPECT_EQ(children(0, 0), children(0, DwTagVariable));
    EXPECT_EQ(List(), children(0, DwTagSubprogram));
    EXPECT_EQ(List({f}), children(main, DwTagSubprogram));
    EXPECT_EQ(List(), children(f, DwTagSubprogram));
    EXPECT_EQ(List(), children(main, DwTagLexicalBlock));
    EXPECT_EQ(List({block}), children(f, DwTagLexicalBlock));
    // The prototype has a function type and is left out.
    EXPECT_EQ(List({block, localG, x}), children(f, 0));
    EXPECT_EQ(List({localG, x}), children(f, DwTagVariable));
    EXPECT_EQ(List(), children(g, 0));
}

TEST_F(NamedScopes, GlobalLookupByFileFunctionAndVariable)
{
    auto global = [&](uint32_t context, const std::string& name, int32_t tag, int16_t code = 0) {
        uint32_t out = 99;
        EXPECT_EQ(code, store.lookupGlobal(context, name, tag, &out)) << name;
        return out;
    };
    using List = std::vector<uint32_t>;
    const uint32_t x = symbolNamed("x", 1);
    EXPECT_EQ(List({1, 1, 2, 2, 0}), List({global(0, "SRC/main.C", DwTagCompileUnit), global(0, "src/main.c", 0),
                                           global(0, "f", 0), global(0, "f", DwTagSubprogram),
                                           global(0, "f", DwTagCompileUnit, -1)}));
    EXPECT_EQ(symbolNamed("h", 3), global(0, "h", DwTagVariable));
    EXPECT_EQ(0u, global(0, "h", DwTagMember, -1));
    EXPECT_EQ(2u, global(1, "f", DwTagSubprogram));
    EXPECT_EQ(3u, global(2, "block3", DwTagLexicalBlock));
    EXPECT_EQ(x, global(2, "x", DwTagVariable));
    EXPECT_EQ(0u, global(2, "nobody", DwTagVariable));
    EXPECT_EQ(0u, global(2, "x", DwTagMember, -1));
    EXPECT_EQ(0u, global(x, "x", 0, -1));
    EXPECT_EQ(-2, store.lookupGlobal(0, "f", 0, nullptr));
}

} // namespace
} // namespace ubrof
