// Source files, statement addresses and the code areas of an address range.
#include "FilledStore.h"
#include "TestFiles.h"
#include "host/CoreException.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

// Areas A [0x100, 0x104), B [0x104, 0x10A) and C [0x200, 0x202).
class ThreeAreas : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (auto [start, end] : {std::pair(0x100, 0x104), std::pair(0x104, 0x10A), std::pair(0x200, 0x202)}) {
            tarn::CodeArea area;
            area.startAddress = start;
            area.endAddress = end;
            t.store.codeAreas.push_back(area);
        }
    }

    // The start addresses answered, or none with the warning's message.
    std::vector<uint64_t> areas(uint64_t start, uint64_t end, std::string* warning = nullptr)
    {
        tarn::Status status;
        std::vector<tarn::CodeArea> out(1);
        const bool found = t.store.getCodeAreasInRange(status, start, end, out);
        EXPECT_EQ(found, !out.empty());
        EXPECT_EQ(found, status.isOk());
        if (!found && warning) {
            EXPECT_EQ(tarn::ErrorCode::NoSourceLocations, status.getErrorCode());
            EXPECT_EQ(tarn::Severity::Warning, status.getSeverity());
            *warning = status.getMessage();
        }
        std::vector<uint64_t> starts;
        for (const tarn::CodeArea& area : out)
            starts.push_back(area.startAddress);
        return starts;
    }

    test::FilledStore t;
};

TEST_F(ThreeAreas, RangesAnswerFromTheAreaAtOrBeforeTheirStart)
{
    using Starts = std::vector<uint64_t>;
    EXPECT_EQ(Starts({0x104}), areas(0x104, 0x104));
    EXPECT_EQ(Starts({0x104}), areas(0x106, 0x150));
    EXPECT_EQ(Starts({0x100}), areas(0x50, 0x102));
    EXPECT_EQ(Starts({0x200}), areas(0x201, 0x201));
    EXPECT_EQ(Starts({0x104}), areas(0x150, 0x160));
    EXPECT_EQ(Starts({0x100, 0x104, 0x200}), areas(0, 0x201));
    std::string warning;
    EXPECT_EQ(Starts(), areas(0x50, 0x60, &warning));
    EXPECT_EQ("No Source locations found for the address range [0x50, 0x60].", warning);
    EXPECT_EQ(Starts(), areas(0x201, 0x300, &warning));
    EXPECT_EQ("No Source locations found for the address range [0x201, 0x300].", warning);
    t.store.codeAreas.clear();
    EXPECT_EQ(Starts(), areas(0, 0xFFFF));
}

TEST_F(ThreeAreas, AReversedRangeThrows)
{
    tarn::Status status;
    std::vector<tarn::CodeArea> out;
    try {
        t.store.getCodeAreasInRange(status, 0x10, 0x8, out);
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
        ASSERT_EQ(0, store.initialize() ? store.parseFile(dir.save(w)) : -1);
    }
    void TearDown() override { tarn::FileMapper::clearSubstitutions(); }

    test::ScratchDir dir;
    TarnUbrofParser store;
};

TEST_F(TwoFiles, CodeAreasAreSortedAcrossFilesAndNamedByTheirScope)
{
    using Area = std::tuple<uint64_t, uint64_t, std::string, std::string, uint64_t, uint8_t>;
    std::vector<Area> areas;
    for (const tarn::CodeArea& a : store.codeAreas) {
        EXPECT_EQ(a.startLine, a.endLine);
        areas.emplace_back(a.startAddress, a.endAddress, a.functionName, a.fileName, a.startLine, a.isStatement);
    }
    EXPECT_EQ(std::vector<Area>({{0x100, 0x102, "g", "C:/work/a.c", 30, 1},
                                 {0x200, 0x204, "f", "C:/work/a.c", 5, 1},
                                 {0x204, 0x206, "f", "C:/work/a.c", 6, 1},
                                 {0x206, 0x208, "f", "C:/work/B.c", 20, 1}}),
              areas);
}

TEST_F(TwoFiles, StatementsAndFilesByName)
{
    auto address = [&](const std::string& file, uint32_t line, int16_t code = 0) {
        uint64_t out = 0xDEAD;
        EXPECT_EQ(code, store.findStatementAddress(file, line, 0, &out)) << file << ":" << line;
        return out;
    };
    EXPECT_EQ(0x200u, address("C:/work/a.c", 6));
    EXPECT_EQ(0x200u, address("C:/work/A.C", 7));
    EXPECT_EQ(0x206u, address("C:/work/b.c", 20));
    EXPECT_EQ(0x100u, address("C:/work/a.c", 30));
    EXPECT_EQ(0xDEADu, address("C:/work/a.c", 8, -1));
    EXPECT_EQ(0xDEADu, address("C:/work/c.c", 5, -1));
    EXPECT_EQ(0xDEADu, address("", 5, -2));
    EXPECT_EQ(-2, store.findStatementAddress("a.c", 5, 0, nullptr));
    uint64_t out = 0;
    EXPECT_EQ(258, TarnUbrofParser().findStatementAddress("C:/work/a.c", 5, 0, &out));

    std::string name;
    double timestamp = -1;
    uint8_t flags[2] = {9, 9};
    ASSERT_EQ(0, store.getFileInfo(1, &name, &timestamp, flags));
    EXPECT_EQ("C:/work/B.c", name);
    EXPECT_EQ(0, flags[0]);
    EXPECT_EQ(0, flags[1]);
    EXPECT_EQ(5, store.getFileInfo(2, &name, &timestamp, flags));
    EXPECT_EQ(-2, store.getFileInfo(0, nullptr, &timestamp, flags));
    EXPECT_EQ(258, TarnUbrofParser().getFileInfo(0, &name, &timestamp, flags));
    EXPECT_EQ("f", store.getScopeNameAtPc(0x207));
    EXPECT_EQ("", store.getScopeNameAtPc(0x208));
}

} // namespace
} // namespace ubrof
