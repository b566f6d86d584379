// The views walked as a debugger walks them, over one writer-built program with a function, a nested
// block, a shadowed global, structures, bit fields, a register pair and an I/O variable.
#include "TestFiles.h"

#include "fuzz/ViewWalker.h"
#include "host/CoreException.h"
#include "host/FileMapper.h"
#include "info/UbrofSymbolContext.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace ubrof {
namespace {

using Ctx = tarn::ISymbolContext;
using Piece = std::tuple<uint64_t, int32_t, std::string, uint32_t, uint32_t>;
using Location = std::pair<int, std::vector<Piece>>;

Location locationAt(const Ctx::Ptr& context, uint64_t pc)
{
    const auto location = context->getLocation(walk::frameAt(pc));
    std::vector<Piece> pieces;
    for (const tarn::MemoryPiece& p : location->getPieces())
        pieces.emplace_back(p.address, p.offset, p.memorySpace, p.registerNumber, p.size);
    return {location->getAddressingMode(), pieces};
}

std::vector<std::string> namesOf(const std::vector<Ctx::Ptr>& contexts)
{
    std::vector<std::string> names;
    for (const auto& context : contexts)
        names.push_back(context->getName());
    return names;
}

class DebuggerWalk : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        UbrofWriter w;
        w.begFile1().version(8).begPgm("main").aux1("2.50");
        w.typeStruct(100, "point", 4, {{"x", 6, 0}, {"y", 6, 2}})
            .typeQualified(101, 0x50, 2) // a char in I/O space
            .typeBitField(102, 3, 5, 1)
            .typeBitField(103, 3, 0, 1)
            .typeStruct(104, "flags", 1, {{"mode", 102, 0}, {"low", 103, 0}})
            .typeArray(105, 6, 8, 4)
            .typeStruct(106, "huge", 0x7FFFFFFF, {});
        w.symbolDef({"count", 1, 2, 0x200, 6, {}})
            .symbolDef({"pt", 1, 2, 0x210, 100, {}})
            .symbolDef({"PORTB", 1, 2, 0x38, 101, {}})
            .symbolDef({"f", 1, 2, 0x220, 104, {}})
            .symbolDef({"buf", 1, 2, 0x230, 105, {}});
        w.fileRef(0, "main.c").org(1, 0x100);
        w.funcBegin1("main", {{"r", 8, 0, 24, 6, {}}, {"big", 8, 0, 2, 106, {}}}).srcStat(3, 3).absVar({0, 0, 0, 0});
        // A local that shadows the global: in a frame slot first, then in data memory.
        w.blockBegin1({{"count", 7, 0, 2, 6, {{0x104, 7, 0, 4}, {0x10A, 1, 2, 0x300}}}})
            .srcStat(5, 6)
            .absVar({0, 0, 0, 0, 0, 0, 0, 0})
            .blockEnd();
        w.srcStat(8, 8).absVar({0, 0}).blockEnd().end().eof();
        parser = new UbrofParser(dir.save(w));
    }
    static void TearDownTestSuite() { delete parser; }

    static inline test::ScratchDir dir;
    static inline UbrofParser* parser = nullptr;
    boost::shared_ptr<tarn::ISymbolInformation> symbols = parser->createSymbolInformation();
};

TEST_F(DebuggerWalk, FindsTheLocalAtAPcInANestedBlockAndFollowsItsLocationList)
{
    const Ctx::Ptr scope = symbols->getScopeContextFromPc(0x106);
    ASSERT_TRUE(scope);
    EXPECT_EQ("block3", scope->getName());
    EXPECT_FALSE(symbols->getScopeContextFromPc(0x10E));

    const Ctx::Ptr local = symbols->lookupSymbolFromPc("count", 0x106, false);
    const Ctx::Ptr global = symbols->lookupGlobalSymbol("count", false);
    ASSERT_TRUE(local && global);
    EXPECT_FALSE(local->isEquivalent(global));
    EXPECT_TRUE(global->isEquivalent(symbols->lookupSymbolFromPc("count", 0x10C, false))); // main, not the block
    EXPECT_TRUE(global->isEquivalent(symbols->lookupSymbolFromPc("count", 0x500, false))); // no scope at all

    EXPECT_EQ((Location{tarn::ILocation::FrameOffset, {{0, 4, "data", 0, 2}}}), locationAt(local, 0x106));
    EXPECT_EQ((Location{tarn::ILocation::Memory, {{0x300, 0, "data", 0, 2}}}), locationAt(local, 0x10A));
    EXPECT_EQ((Location{tarn::ILocation::Memory, {{0x200, 0, "data", 0, 2}}}), locationAt(global, 0x10A));

    const Ctx::Ptr type = local->getTypeContext();
    ASSERT_TRUE(type);
    EXPECT_EQ(std::make_tuple(std::string("int"), Ctx::TypeSymbol, Ctx::SignedType, 2),
              std::make_tuple(type->getName(), type->getSymbolClass(), type->getTypeClass(), type->getSize()));
    EXPECT_TRUE(type->isEquivalent(type->getTypeContext()));

    // Neither main nor the block has a symbol of its own; count, the file's first symbol, must
    // not lend them its place, though the scope's own range still places main.
    const Ctx::Ptr main = symbols->lookupGlobalSymbol("main", false);
    ASSERT_TRUE(main);
    EXPECT_EQ((Location{tarn::ILocation::Unknown, {{0, 0, "", 0, 14}}}), locationAt(main, 0x100));
    EXPECT_EQ((Location{tarn::ILocation::Unknown, {{0, 0, "", 0, 8}}}), locationAt(scope, 0x106));
    EXPECT_EQ(0x100u, main->getAddress());
}

TEST_F(DebuggerWalk, ListsMembersAndPlacesRegisterPairsAndIoVariables)
{
    const Ctx::Ptr pt = symbols->lookupGlobalSymbol("pt", false);
    EXPECT_EQ(Ctx::CompositeType, pt->getTypeClass());
    const auto members = pt->getChildren(Ctx::OtherSymbol);
    EXPECT_EQ((std::vector<std::string>{"x", "y"}), namesOf(members));
    ASSERT_EQ(2u, members.size());
    EXPECT_EQ(std::make_tuple(2, Ctx::MemberStorage, Ctx::OtherSymbol),
              std::make_tuple(members[1]->getOffset(), members[1]->getStorageClass(), members[1]->getSymbolClass()));
    const auto typeMembers = pt->getTypeContext()->getChildren(Ctx::OtherSymbol);
    ASSERT_EQ(2u, typeMembers.size());
    EXPECT_TRUE(typeMembers[1]->isEquivalent(members[1]));

    // Bit offsets count from the other end: position 5 is offset 0, the top three bits of the byte.
    std::vector<std::tuple<bool, int, int>> bits;
    for (const Ctx::Ptr& member : symbols->lookupGlobalSymbol("f", false)->getChildren(Ctx::OtherSymbol))
        bits.emplace_back(member->isBitField(), member->getBitSize(), member->getBitOffset());
    EXPECT_EQ((decltype(bits){{true, 3, 0}, {true, 3, 5}}), bits); // position 0: offset 5

    const Ctx::Ptr pair = symbols->lookupSymbolFromPc("r", 0x102, false);
    EXPECT_EQ((Location{tarn::ILocation::RegisterPieces, {{24, 0, "registers", 24, 1}, {24, 0, "registers", 25, 1}}}),
              locationAt(pair, 0x102));
    // A register variable of a hostile size gets a bounded number of pieces.
    EXPECT_EQ(256u, locationAt(symbols->lookupSymbolFromPc("big", 0x102, false), 0x102).second.size());
    EXPECT_EQ((Location{tarn::ILocation::Memory, {{0x38, 0, "", 0, 1}}}),
              locationAt(symbols->lookupGlobalSymbol("PORTB", false), 0x102));
}

TEST_F(DebuggerWalk, DescribesContextsAsPropertyListsInTheHostsKeyOrder)
{
    const Ctx::Ptr buf = symbols->lookupGlobalSymbol("buf", false);
    const tarn::PropertyList properties = buf->getProperties();
    std::vector<std::string> keys;
    for (const auto& entry : properties)
        keys.emplace_back(entry.key());
    EXPECT_EQ((std::vector<std::string>{"ID", "Name", "Class", "TypeClass", "TypeID", "BaseTypeID", "IndexTypeID",
                                        "Size", "Length", "Offset", "Address", "Value"}),
              keys);
    EXPECT_EQ(5, properties.at("TypeClass").as_int64());
    EXPECT_EQ(8, properties.at("Size").as_int64());
    EXPECT_EQ(4, properties.at("Length").as_int64());
    EXPECT_TRUE(properties.at("Address").is_uint64());
    EXPECT_TRUE(properties.at("Value").as_array().empty());
    const Ctx::Ptr array = buf->getTypeContext();
    EXPECT_EQ(properties.at("IndexTypeID").as_string(), array->getId());
    EXPECT_FALSE(array->getIndexTypeContext());
    EXPECT_EQ("int", array->getBaseTypeContext()->getName());

    const tarn::PropertyList main = symbols->lookupGlobalSymbol("main", false)->getProperties();
    EXPECT_EQ(0x100u, main.at("Address").as_uint64());
    EXPECT_EQ(boost::json::array({0, 1, 0, 0}), main.at("Value").as_array());
    EXPECT_EQ(main.at("ID"), main.at("TypeID")); // a code scope is its own type
}

TEST_F(DebuggerWalk, NamesContextsByIdsThatRoundTrip)
{
    const Ctx::Ptr root = symbols->getSymbolContextFromID("not a number");
    EXPECT_EQ(std::make_tuple(std::string("0"), std::string("Root Context"), Ctx::OtherSymbol, Ctx::NoType),
              std::make_tuple(root->getId(), root->getName(), root->getSymbolClass(), root->getTypeClass()));
    const auto modules = root->getChildren(Ctx::OtherSymbol);
    ASSERT_EQ(1u, modules.size());
    EXPECT_FALSE(modules[0]->getTypeContext());
    EXPECT_EQ((std::vector<std::string>{"main"}), namesOf(modules[0]->getChildren(Ctx::CodeSymbol)));
    EXPECT_EQ(5u, root->getChildren(Ctx::DataSymbol).size());

    const Ctx::Ptr local = symbols->lookupSymbolFromPc("count", 0x106, false);
    EXPECT_TRUE(local->isEquivalent(symbols->getSymbolContextFromID("  " + local->getId() + "abc")));
    EXPECT_EQ("12", symbols->getSymbolContextFromID(" 12abc")->getId());
    EXPECT_EQ("5", symbols->getSymbolContextFromID("4294967301")->getId());
    EXPECT_EQ("5", UbrofSymbolContext::createContext(parser->getStore(), (uint64_t(1) << 32) + 5)->getId());
    EXPECT_FALSE(local->isEquivalent(nullptr));
    EXPECT_THROW(local->getLocation(nullptr), tarn::CoreException);
}

TEST_F(DebuggerWalk, LooksNamesUpFromAScopeOrAtModuleLevel)
{
    std::string text = "kept";
    try {
        symbols->lookupSymbol("", nullptr, text, false);
        ADD_FAILURE() << "no exception for an empty name";
    } catch (const tarn::CoreException& e) {
        EXPECT_EQ(tarn::ErrorCode::EmptySymbolName, e.getErrorCode());
        EXPECT_EQ(tarn::Severity::Critical, e.getStatus()->getSeverity());
        EXPECT_EQ("Empty name passed to UbrofSymbolInformation::lookupSymbol.", e.getStatus()->getMessage());
    }
    const Ctx::Ptr global = symbols->lookupGlobalSymbol("count", false);
    const Ctx::Ptr main = symbols->lookupGlobalSymbol("main", false);
    EXPECT_FALSE(symbols->lookupSymbol("r", nullptr, text, false)); // a local is not at module level
    EXPECT_EQ("kept", text);
    EXPECT_TRUE(symbols->lookupSymbol("r", main, text, false));
    EXPECT_EQ("", text);
    EXPECT_TRUE(global->isEquivalent(symbols->lookupSymbol("count", symbols->getSymbolContextFromID("0"), text, false)));
    EXPECT_FALSE(symbols->lookupSymbol("count", global, text, false)); // a variable holds no names
    EXPECT_FALSE(symbols->lookupGlobalSymbol("", false));
}

TEST_F(DebuggerWalk, MapsLinesToAddressesAndAddressesToCodeAreas)
{
    const auto source = parser->createSourceInformation();
    tarn::Status status;
    std::vector<std::string> files;
    EXPECT_TRUE(source->getSourcefiles(status, files) && files == std::vector<std::string>{"main.c"});
    std::vector<tarn::AddressNamePair> found;
    auto lookup = [&](uint32_t line) {
        return source->getAddressesFromSingleStatement(status, "MAIN.C", tarn::CodeLocation{line, 0}, found);
    };
    ASSERT_TRUE(lookup(3) && found.size() == 1);
    EXPECT_EQ(0x100u, found[0].address);
    EXPECT_EQ("main", found[0].name);
    ASSERT_TRUE(lookup(6));
    EXPECT_EQ("block3", found.at(0).name);
    EXPECT_FALSE(lookup(7));
    EXPECT_TRUE(found.empty());
    EXPECT_EQ("getAddressesFromSingleStatement failed", status.getMessage());
}

// Each file once, in declaration order, under its public path; a file with none is an error.
TEST(SourceInformation, ListsEachFileOnceInDeclarationOrderUnderItsPublicPath)
{
    test::ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8);
    w.begLib("first").fileRef(0, "C:\\src\\b.c").fileRef(1, "C:\\src\\a.c").end();
    w.begLib("second").fileRef(0, "c:\\SRC\\B.C").fileRef(1, "C:\\src\\c.c").end().eof();
    tarn::FileMapper::addSubstitution("C:\\src\\", "/home/dev/src/");
    const auto source = UbrofParser(dir.save(w)).createSourceInformation();
    tarn::Status status;
    std::vector<std::string> files;
    EXPECT_TRUE(source->getSourcefiles(status, files));
    tarn::FileMapper::clearSubstitutions();
    EXPECT_EQ((std::vector<std::string>{"/home/dev/src/b.c", "/home/dev/src/a.c", "/home/dev/src/c.c"}), files);
    EXPECT_TRUE(status.isOk());

    UbrofWriter none;
    const auto empty = UbrofParser(dir.save(none.begFile1().version(8).begLib("main").end().eof(), "none.d90"))
                           .createSourceInformation();
    files.clear();
    EXPECT_FALSE(empty->getSourcefiles(status, files));
    EXPECT_EQ(tarn::ErrorCode::NoSourceFiles, status.getErrorCode());
    EXPECT_EQ("No source file found in Ubrofs objectfile.", status.getMessage());
    files.push_back("given.c");
    EXPECT_TRUE(empty->getSourcefiles(status, files));
}

TEST(SymbolInformation, FollowsATypedefToItsStructureAndPrefersAFunctionToAVariableOfItsName)
{
    test::ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).scopedName("point_t").begPgm("main");
    w.typeStruct(100, "point", 4, {{"x", 6, 0}, {"y", 6, 2}}).typeTypedef(101, 100, 0);
    w.symbolDef({"p", 1, 2, 0x200, 101, {}}).symbolDef({"main", 1, 2, 0x210, 6, {}});
    w.fileRef(0, "main.c").org(1, 0x100).funcBegin1("main").srcStat(3, 3).absVar({0, 0}).blockEnd().end().eof();
    const auto symbols = UbrofParser(dir.save(w)).createSymbolInformation();

    // The variable's type text is the typedef's name, which names no class; the host reaches the
    // structure through the typedef's own type context.
    const Ctx::Ptr p = symbols->lookupGlobalSymbol("p", false);
    EXPECT_EQ(Ctx::NoType, p->getTypeClass());
    const Ctx::Ptr alias = p->getTypeContext();
    ASSERT_TRUE(alias);
    EXPECT_EQ(std::make_tuple(std::string("point_t"), Ctx::TypeSymbol),
              std::make_tuple(alias->getName(), alias->getSymbolClass()));
    const Ctx::Ptr point = alias->getTypeContext();
    ASSERT_TRUE(point);
    EXPECT_EQ(std::make_tuple(std::string("struct point"), Ctx::CompositeType),
              std::make_tuple(point->getName(), point->getTypeClass()));
    EXPECT_EQ((std::vector<std::string>{"x", "y"}), namesOf(point->getChildren(Ctx::OtherSymbol)));

    const auto mains = symbols->lookupGlobalSymbols("main");
    ASSERT_EQ(1u, mains.size());
    EXPECT_EQ(Ctx::CodeSymbol, mains[0]->getSymbolClass());
    EXPECT_TRUE(symbols->lookupGlobalSymbols("absent").empty());
}

TEST_F(DebuggerWalk, ViewsOutliveTheirParserAndAnswerAlike)
{
    // A parser of its own, so that nothing else keeps its store alive.
    auto own = boost::make_shared<UbrofParser>(parser->getStore()->filePath);
    const auto binary = own->createBinaryInformation();
    const auto first = own->createSymbolInformation();
    const auto second = own->createSymbolInformation();
    own.reset();
    EXPECT_NE(first, second);
    const auto segments = binary->getProgramSegments();
    ASSERT_EQ(1u, segments.size());
    EXPECT_EQ(0xEu, segments[0]->getSize());
    EXPECT_EQ(first->lookupSymbolFromPc("count", 0x106, false)->getId(),
              second->lookupSymbolFromPc("count", 0x106, false)->getId());
}

} // namespace
} // namespace ubrof
