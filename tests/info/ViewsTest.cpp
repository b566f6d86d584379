// The views a debugger asks first: program segments (which images, in what order, reads clipped to
// them), compiler information (base types over the defaults, the type-width words) and the
// type-class rules on type texts as the type table renders them.
#include "TestFiles.h"

#include "info/UbrofSymbolContext.h"
#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

namespace ubrof {

struct UbrofSymbolContextProbe {
    static int typeClassOf(const std::string& text) { return UbrofSymbolContext::GetTypeClassFromTypeName(text); }
};

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<boost::shared_ptr<tarn::IProgramSegment>> segmentsOf(UbrofWriter& w)
{
    test::ScratchDir dir;
    return UbrofParser(dir.save(w.end().eof())).createBinaryInformation()->getProgramSegments();
}

TEST(BinaryInformation, ListsOneSegmentPerWrittenImageCodeThenEepromThenData)
{
    UbrofWriter none;
    EXPECT_TRUE(segmentsOf(none.begFile1().version(8).begLib("main")).empty());

    UbrofWriter all;
    // EEPROM bytes need a compiler of version 2.0 or later.
    all.begFile1().version(8).begLib("main").aux1("2.5");
    all.org(2, 0x60).absVar({1, 2}).org(3, 0x10).absVar({3}).org(1, 0x100).absVar({4, 5, 6, 7});
    std::vector<std::tuple<std::string, uint64_t, uint32_t, uint64_t>> seen;
    for (const auto& segment : segmentsOf(all))
        seen.emplace_back(segment->getMemoryType(), segment->getStartAddress(), segment->getSize(),
                          segment->getLoadAddress());
    EXPECT_EQ((decltype(seen){{"prog", 0x100, 4, 0x100}, {"eeprom", 0x10, 1, 0x10}, {"data", 0x60, 2, 0x60}}),
              seen);
}

TEST(BinaryInformation, ReadsAreClippedToTheSegmentAndGapsReadAsFill)
{
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").org(1, 0x100).absVar({0xA0}).org(1, 0x1FF).absVar({0xB0});
    const auto segments = segmentsOf(w);
    ASSERT_EQ(1u, segments.size());
    const auto& code = segments[0];
    EXPECT_EQ(0x100u, code->getSize());

    Bytes out;
    code->readData(out, 0x100, 0x100);
    ASSERT_EQ(0x100u, out.size());
    EXPECT_EQ(0xA0, out.front());
    EXPECT_EQ(0xB0, out.back());
    EXPECT_EQ(0xFE, std::count(out.begin(), out.end(), 0xFF));
    code->readData(out, 0x180, 0x100); // runs past the end
    EXPECT_EQ(0x80u, out.size());
    EXPECT_EQ(0xB0, out.back());
    code->readData(out, 0x80, 0x100); // starts before the segment: delivered from its start
    ASSERT_EQ(0x100u, out.size());
    EXPECT_EQ(0xA0, out.front());

    const Bytes untouched = {1, 2, 3};
    out = untouched;
    code->readData(out, 0x201, 4); // beyond the end
    code->readData(out, 0x10, 0x20); // wholly before the start
    EXPECT_EQ(untouched, out);
    code->readData(out, 0x200, 4); // exactly at the end
    EXPECT_TRUE(out.empty());
}


boost::shared_ptr<tarn::ICompilerInformation> compilerOf(UbrofWriter& w)
{
    test::ScratchDir dir;
    return UbrofParser(dir.save(w.end().eof())).createCompilerInformation();
}

TEST(CompilerInformation, BaseTypesComeFromTheTypeTableOverTheDefaults)
{
    UbrofWriter w;
    const auto compiler = compilerOf(w.begFile1().version(8).begLib("main").aux1("2.50"));
    EXPECT_EQ("Nordic", compiler->getMachine());
    EXPECT_EQ("Nordic  2.5", compiler->getProducer());

    const auto types = compiler->getBaseTypes();
    std::vector<int32_t> ids;
    for (const auto& entry : types)
        ids.push_back(entry.first);
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}), ids);
    auto row = [&](int32_t id) {
        const tarn::BaseTypeInfo& info = types.at(id);
        return std::make_tuple(info.id, info.name, info.size, info.bits, info.isSigned, info.byteOrder);
    };
    // Id 0 gathers every other name; the last in index order stays.
    EXPECT_EQ(std::make_tuple(0, std::string("far func *"), 3u, 24u, true, 1u), row(0));
    EXPECT_EQ(std::make_tuple(2, std::string("unsigned char"), 1u, 8u, false, 1u), row(2));
    EXPECT_EQ(std::make_tuple(17, std::string(), 2u, 16u, false, 0u), row(17)); // a default row

    const auto info = compiler->createCompilerInfo();
    EXPECT_EQ(info, compiler->createCompilerInfo());
    EXPECT_EQ((std::array<int32_t, 14>{5, 8, 16, 16, 32, 64, -1, -1, 64, 32, 16, 32, 32, 64}), info->words);
    EXPECT_EQ((std::array<uint8_t, 3>{1, 0, 0}), info->flags);
    EXPECT_EQ(15, info->last);
}

TEST(CompilerInformation, AResizedDoubleWidensItsBaseTypeAndWord)
{
    UbrofWriter w;
    const auto compiler = compilerOf(w.begFile1().version(8).begLib("main").sizeType(10, 8));
    EXPECT_EQ("Nordic  0", compiler->getProducer());
    EXPECT_EQ(64u, compiler->getBaseTypes().at(14).bits);
    EXPECT_EQ(64, compiler->createCompilerInfo()->words[12]);
}


TEST(TypeClass, FirstMatchingRuleDecides)
{
    const std::vector<std::pair<std::string, int>> cases = {
        {"int", 2}, {"wchar", 2}, {"long long", 2},
        {"enum color", 1}, {"bool", 1}, {"unsigned long long", 1},
        {"float", 3}, {"long double", 3},
        {"int[4]", 5}, {"char *[3]", 5}, // an array of pointers is an array
        {"char *", 4}, {"int const *", 4}, {"(int) (char) *", 4},
        {"struct point", 6}, {"union u", 6}, {"class c", 6}, {"struct point const", 6},
        // Qualified texts are searched for the plain names, unsigned ones first.
        {"unsigned int const", 1}, {"unsigned char const", 1}, {"bool volatile", 1},
        {"char volatile", 2}, {"long register", 2}, {"double const", 3},
        {"void const", 0}, {"my_int", 0}, {"unsigned", 0}, {"(int) (char)", 0}, {"", 0},
        // Whole-text rules do not match inside longer names.
        {"integer", 0}, {"points", 0},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, UbrofSymbolContextProbe::typeClassOf(text)) << text;
}

} // namespace
} // namespace ubrof
