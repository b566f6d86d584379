// Source files, statement addresses and the code areas of an address range.
#include "FilledStore.h"
#include "host/CoreException.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

using Starts = std::vector<uint64_t>;

// The start addresses answered for [start, end], or none with the warning's message.
Starts areasIn(const TarnUbrofParser& store, uint64_t start, uint64_t end, std::string* warning = nullptr)
{
    tarn::Status status;
    std::vector<tarn::CodeArea> out(1);
    const bool found = store.getCodeAreasInRange(status, start, end, out);
    EXPECT_EQ(found, status.isOk());
    if (!found && warning) {
        EXPECT_EQ(std::make_pair(tarn::ErrorCode::NoSourceLocations, tarn::Severity::Warning),
                  std::make_pair(status.getErrorCode(), status.getSeverity()));
        *warning = status.getMessage();
    }
    Starts starts;
    for (const tarn::CodeArea& area : out)
        starts.push_back(area.startAddress);
    EXPECT_EQ(found, !starts.empty());
    return starts;
}

TEST(CodeAreas, RangesAnswerFromTheAreaAtOrBeforeTheirStart)
{
    // A [0x100, 0x104), B [0x104, 0x10A), C [0x200, 0x202)
    UbrofWriter w;
    w.begFile1().version(8).begLib("m").fileRef(0, "a.c").org(1, 0x100).srcStat(1, 1).absVar({1, 2, 3, 4});
    w.srcStat(2, 2).absVar({1, 2, 3, 4, 5, 6}).org(1, 0x200).srcStat(3, 3).absVar({1, 2}).end().eof();
    TarnUbrofParser s;
    ASSERT_EQ(0, test::parseInto(s, w));
    const std::string none = "No Source locations found for the address range ";
    const std::tuple<uint64_t, uint64_t, Starts, std::string> cases[] = {
        {0x104, 0x104, {0x104}, ""}, {0x106, 0x150, {0x104}, ""}, {0x50, 0x102, {0x100}, ""}, {0x201, 0x201, {0x200}, ""},
        {0x150, 0x160, {0x104}, ""}, {0, 0x201, {0x100, 0x104, 0x200}, ""}, {0x50, 0x60, {}, none + "[0x50, 0x60]."},
        {0x201, 0x300, {}, none + "[0x201, 0x300]."}};
    for (const auto& [start, end, starts, expected] : cases) {
        std::string warning;
        EXPECT_EQ(starts, areasIn(s, start, end, &warning)) << start;
        EXPECT_EQ(expected, warning) << start;
    }
    EXPECT_EQ(Starts(), areasIn(TarnUbrofParser(), 0, 0xFFFF));

    tarn::Status status;
    std::vector<tarn::CodeArea> out;
    try {
        s.getCodeAreasInRange(status, 0x10, 0x8, out);
        ADD_FAILURE() << "no exception";
    } catch (const tarn::CoreException& e) {
        EXPECT_EQ(tarn::ErrorCode::InvalidAddressRange, e.getErrorCode());
        EXPECT_EQ("StartAddress,  (0x10), was larger than end address, (0x8), when looking upcode area.",
                  e.getStatus()->getMessage());
    }
}

// Two functions over two files: f at 0x200 (a.c lines 5-7 and 6, then b.c line 20), g at 0x100.
class TwoFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        tarn::FileMapper::addSubstitution("/build/", "C:/work/");
        UbrofWriter w;
        w.begFile1().version(8).begLib("main").fileRef(0, "/build/a.c").fileRef(1, "/build/B.c")
            .funcBegin1("f").org(1, 0x200).srcStat(5, 7).absVar({1, 2, 3, 4}).srcStat(6, 6).absVar({5, 6})
            .newFile(1).srcStat(20, 20).absVar({7, 8}).blockEnd()
            .funcBegin1("g").org(1, 0x100).newFile(0).srcStat(30, 30).absVar({9, 9}).blockEnd()
            .end().eof();
        ASSERT_EQ(0, test::parseInto(store, w));
    }
    void TearDown() override { tarn::FileMapper::clearSubstitutions(); }

    TarnUbrofParser store;
};

TEST_F(TwoFiles, CodeAreasAreSortedAcrossFilesAndNamedByTheirScope)
{
    using Area = std::tuple<uint64_t, uint64_t, std::string, std::string, uint64_t, uint64_t, uint8_t>;
    std::vector<Area> areas;
    for (size_t i = 0; i < store.codeAreas.size(); ++i) {
        const tarn::CodeArea a = store.codeArea(i);
        areas.emplace_back(a.startAddress, a.endAddress, a.functionName, a.fileName, a.startLine, a.endLine,
                           a.isStatement);
    }
    EXPECT_EQ(std::vector<Area>({{0x100, 0x102, "g", "C:/work/a.c", 30, 30, 1},
                                 {0x200, 0x204, "f", "C:/work/a.c", 5, 5, 1},
                                 {0x204, 0x206, "f", "C:/work/a.c", 6, 6, 1},
                                 {0x206, 0x208, "f", "C:/work/B.c", 20, 20, 1}}),
              areas);
}

TEST_F(TwoFiles, StatementsAndFilesByName)
{
    auto address = [&](const std::string& file, uint32_t line, int16_t code = 0) {
        uint64_t out = 0xDEAD;
        EXPECT_EQ(code, store.findStatementAddress(file, line, 0, &out)) << file << ":" << line;
        return out;
    };
    // The first statement covering a line wins over a later, narrower one.
    EXPECT_EQ(Starts({0x200, 0x200, 0x206, 0x100, 0xDEAD, 0xDEAD, 0xDEAD}),
              Starts({address("C:/work/a.c", 6), address("C:/work/A.C", 7), address("C:/work/b.c", 20),
                      address("C:/work/a.c", 30), address("C:/work/a.c", 8, -1), address("C:/work/c.c", 5, -1),
                      address("", 5, -2)}));
    EXPECT_EQ(-2, store.findStatementAddress("a.c", 5, 0, nullptr));
    uint64_t out = 0;
    EXPECT_EQ(258, TarnUbrofParser().findStatementAddress("C:/work/a.c", 5, 0, &out));

    std::string name;
    double timestamp = -1;
    uint8_t flags[2] = {9, 9};
    ASSERT_EQ(0, store.getFileInfo(1, &name, &timestamp, flags));
    EXPECT_EQ(std::make_tuple(std::string("C:/work/B.c"), 0, 0), std::make_tuple(name, flags[0], flags[1]));
    EXPECT_EQ(5, store.getFileInfo(2, &name, &timestamp, flags));
    EXPECT_EQ(-2, store.getFileInfo(0, nullptr, &timestamp, flags));
    EXPECT_EQ(258, TarnUbrofParser().getFileInfo(0, &name, &timestamp, flags));
    EXPECT_EQ("f", store.getScopeNameAtPc(0x207));
    EXPECT_EQ("", store.getScopeNameAtPc(0x208));
}

} // namespace
} // namespace ubrof
