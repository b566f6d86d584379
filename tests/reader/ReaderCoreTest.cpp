// The reader core: dispatch, the skip rule, every error text, and files cut short anywhere.
#include "ReaderFixture.h"

#include "reader/ReaderError.h"
#include "reader/TagCodes.h"

#include <functional>

namespace ubrof::test {
namespace {

using ReaderCore = ReaderTest;

TEST_F(ReaderCore, PassesOverUnknownTagsByTheirSkipCodes)
{
    UbrofWriter w;
    // 0x60: three bytes; 0x61: a byte count; 0x62: a 16-bit count; 0x63: a 32-bit count;
    // 0x64 twice: the first pair counts; 0x4C has a handler, so its skip code is never used.
    w.begFile1().version(8, 0, 0, {{0x60, 3}, {0x61, 0xFD}, {0x62, 0xFE}, {0x63, 0xFF}, {0x64, 1},
                                   {0x64, 0x80}, {0x4C, 0x7F}});
    w.tag(0x60).raw({1, 2, 3});
    w.tag(0x61).u8(5).raw({1, 2, 3, 4, 5});
    w.tag(0x62).u16(0x0102).raw(std::vector<uint8_t>(0x102, 0x4C));
    w.tag(0x63).u32(2).raw({0xEE, 0xEE});
    w.tag(0x64).u8(0x99);
    w.symbolDef(symbol("x")).eof().raw({0x80, 0x81}); // nothing after t_ubrof_eof is read
    EXPECT_EQ("", read(w));
    ASSERT_EQ(1u, store->symbolTable.symbols.size());
    EXPECT_EQ("x", symbolName(0));
}

TEST_F(ReaderCore, NamesEachFailureWithItsText)
{
    using Build = std::function<void(UbrofWriter&)>;
    auto inModule = [](Build build) {
        return [build](UbrofWriter& w) { build(w.begFile1().version(8).begLib("m")); };
    };
    const std::pair<Build, std::string> cases[] = {
        // skip information that comes too late, skip codes that say nothing, none at all
        {[](UbrofWriter& w) { w.begFile1().tag(0x60).version(8, 0, 0, {{0x60, 0}}); }, kUnknownTag},
        {[](UbrofWriter& w) { w.begFile1().version(8, 0, 0, {{0x60, 0x80}}).tag(0x60); }, kUnknownTag},
        {[](UbrofWriter& w) { w.begFile1().version(8, 0, 0, {{0x60, 0xC0}}).tag(0x60); }, kUnknownTag},
        {[](UbrofWriter& w) { w.begFile1().version(8, 0, 0, {{0x60, 0xFC}}).tag(0x60); }, kUnknownTag},
        {[](UbrofWriter& w) { w.begFile1().version(8).tag(0x60); }, kUnknownTag},
        {[](UbrofWriter& w) { w.begFile1().version(9).raw({0, 0x60, 0}); }, kTagProcessingError},
        {inModule([](UbrofWriter& w) { w.funcBegin(); }), kTagProcessingError},
        {inModule([](UbrofWriter& w) { w.blockBegin(); }), kTagProcessingError},
        {inModule([](UbrofWriter& w) { w.aux1("1.0", 0x5C00); }), kTagProcessingError},
        {inModule([](UbrofWriter& w) { w.scopedNameOfForm(4); }), kTagProcessingError},
        // A 32-bit count far beyond the file is refused before anything is allocated for it.
        {[](UbrofWriter& w) { w.begFile1().version(8).tag(uint8_t(Tag::t_key_value)).u32(0).u32(0xFFFFFFF0).raw({'k'}); },
         kUnexpectedEndOfFile},
        // 65535 location entries announced in a t_symbol_def1, one byte there.
        {inModule([](UbrofWriter& w) {
             w.tag(uint8_t(Tag::t_symbol_def1)).u8(1).u16(2).u32(0).text8("x").u16(0).u16(0xFFFF).u8(0);
         }),
         kUnexpectedEndOfFile}};
    for (const auto& [build, text] : cases) {
        UbrofWriter w;
        build(w);
        EXPECT_EQ(text, read(w.eof())) << w.size();
    }
    CParser reader = readerOfStore();
    for (const char* path : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(0, reader.parse(path));
    EXPECT_EQ(0, reader.parse(dir.path("missing.d90").c_str()));
}

// A file with every tag the reader accepts.
UbrofWriter everyFamily()
{
    UbrofWriter w;
    w.begFile1().version(8, 0, 0, {{0xD3, 0xFE}, {0x60, 2}, {0x61, 0xFD}, {0x62, 0xFF}});
    w.segInfo({{"CODE", 1}}).keyValue("key", "value").tag(0xD3).u16(3).raw({1, 2, 3});
    w.tag(0x60).raw({1, 2}).tag(0x61).u8(1).u8(0).tag(0x62).u32(1).u8(0);
    w.begFile().begLib("lib").end().grp(2).symbolDef(symbol("g")).begPgm("main").debug(1).aux(2).aux1("2.10").grpRef(2);
    w.fileRef(0, "main.c").fileRef(1, "io.h").file("lib.c", {"int a;", "int b;"}).newFile(1);
    w.scopedName("outer").scopedFunctionName(0, 1).scopedBlockName(0, 2).macro("N", "1");
    w.symbolDef1({"v", 1, 2, 0x100, 0, {{0x10, 4, 2, 8}}}).scopedName("_A_PORTB");
    w.symbolDef2(5, 1, 2, 0x38, 0, {{0, 1, 2, 0x38}}).subDefObjAttr(1);
    w.funcBegin1("f", {{"p", 2, 2, 4, 0, {{0x200, 2, 2, 6}}}}).org(1, 0x200).srcStat(3, 3, 14);
    w.absVar({1, 2}).sourceRange().blockBegin1({symbol("q")}).blockBegin3(3).blockEnd().blockEnd();
    w.blockEnd().org(2, 0x60).absVar({9}).org(3, 0).absVar({7}).end().endAbs();
    w.defPtrTypes().sizeType(1, 2).memInfo(0, "DATA").typeStruct(20, "S", 2, {{"a", 1, 0}}).eof();
    return w;
}

TEST_F(ReaderCore, FailsAtEveryCutWithoutACrash)
{
    const UbrofWriter w = everyFamily();
    ASSERT_EQ("", read(w));
    ASSERT_EQ(6u, store->symbolTable.symbols.size());
    EXPECT_EQ("PORTB", symbolName(3)); // the look-ahead is part of what gets cut
    for (size_t n = 0; n < w.size(); ++n)
        ASSERT_EQ(kUnexpectedEndOfFile, read(w.prefix(n))) << "cut after " << n << " bytes";
}

} // namespace
} // namespace ubrof::test
