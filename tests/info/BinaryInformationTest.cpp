// Program segments: which images become segments, in what order, and how reads are clipped to them.
#include "TestFiles.h"

#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

namespace ubrof {
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

} // namespace
} // namespace ubrof
