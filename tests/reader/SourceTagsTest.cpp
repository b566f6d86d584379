// Source files, embedded sources and statement records with their file line ranges.
#include "ReaderFixture.h"

#include "reader/ReaderError.h"

#include <boost/filesystem.hpp>
#include <fstream>
#include <set>
#include <sstream>

namespace ubrof::test {
namespace {

using SourceTags = ReaderTest;
namespace fs = boost::filesystem;

std::string contents(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

TEST_F(SourceTags, RegistersEachFileOnceWhateverItsCase)
{
    UbrofWriter w = fileStart();
    w.begLib("a").fileRef(0, "Main.C", {2024, 1, 2, 6, 0, 0}).fileRef(3, "main.c").srcStat(1, 1);
    w.absVar({0}).fileRef(1, "util.c", {2024, 2, 30}).srcStat(2, 2).absVar({0}); // no switch
    w.newFile(2).srcStat(3, 3).absVar({0}).newFile(3).srcStat(4, 4).absVar({0}).end();
    w.begLib("b").newFile(0).srcStat(5, 5).absVar({0}).fileRef(0, "MAIN.c").srcStat(6, 6).absVar({0});
    w.end().eof();
    ASSERT_EQ("", read(w));

    ASSERT_EQ(2u, store->sourceFileTable.size());
    EXPECT_EQ("Main.C", store->sourceFileTable[0].name);
    EXPECT_DOUBLE_EQ(45293.25, store->sourceFileTable[0].timestamp);
    EXPECT_EQ(0.0, store->sourceFileTable[1].timestamp); // 30 February
    EXPECT_EQ((FileIndex{{"main.c", 0}, {"util.c", 1}}), store->fileIndex);
    using Files = std::vector<std::pair<uint32_t, uint32_t>>;
    EXPECT_EQ((Files{{0, 0}, {1, 1}, {3, 0}}), store->blockTree.moduleFiles(0));
    EXPECT_EQ((Files{{0, 0}}), store->blockTree.moduleFiles(1));

    // Every file switch opens a range; undeclared references belong to no file.
    std::vector<int32_t> files;
    for (const FileLineRange& range : store->fileLineRanges)
        files.push_back(range.file);
    EXPECT_EQ((std::vector<int32_t>{0, -1, 0, -1, 0}), files);
    EXPECT_EQ(2u, store->fileLineRanges[0].lineRecordCount);
    EXPECT_EQ((std::vector<uint32_t>{0, 2, 4}), store->sourceFileTable[0].lineRanges);
    EXPECT_TRUE(store->sourceFileTable[1].lineRanges.empty());
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2}), store->blockTree.lineRanges(0));
    EXPECT_EQ((std::vector<uint32_t>{3, 4}), store->blockTree.lineRanges(1));
}

TEST_F(SourceTags, CompletesOrDropsPendingStatements)
{
    UbrofWriter w = fileStart();
    w.begLib("m").fileRef(0, "a.c").org(1, 0x100);
    w.srcStat(10, 12, 14, 3, 7).absVar({1, 2, 3}).absVar({4}); // the second bytes belong to no statement
    w.srcStat(20, 20, 9).srcStat(21, 21, 13).absVar({5, 6});   // 20 got no code
    w.srcStat(30, 30).org(2, 0).absVar({7}).org(1, 0x200);     // data bytes complete nothing
    w.funcBegin1("f").srcStat(10, 5).absVar({8}).srcStat(4, 4).blockEnd();
    w.srcStat(50, 50).end().begLib("n").absVar({9}).end().eof(); // a module start keeps it, empty
    ASSERT_EQ("", read(w));

    struct Line {
        uint32_t address, size, line, lineSpan;
        uint8_t flags;
        bool operator==(const Line& o) const
        {
            return address == o.address && size == o.size && line == o.line && lineSpan == o.lineSpan &&
                   flags == o.flags;
        }
    };
    std::vector<Line> lines;
    for (const LineRecord& r : store->lineTable)
        lines.push_back({r.address, r.size, r.line, r.lineSpan, r.flags});
    const std::vector<Line> expected{
        {0x100, 3, 10, 2, 3}, {0x104, 2, 21, 0, 5}, {0x200, 1, 10, 4294967291u, 1}, {0x201, 0, 50, 0, 1}};
    EXPECT_TRUE(lines == expected) << lines.size() << " line records";
    EXPECT_EQ(3u, store->lineTable[0].column);
    EXPECT_EQ(7u, store->lineTable[0].endColumn);

    ASSERT_EQ(3u, store->fileLineRanges.size());
    const FileLineRange& first = store->fileLineRanges[0];
    EXPECT_EQ(0u, first.firstLineRecord);
    EXPECT_EQ(2u, first.lineRecordCount);
    EXPECT_EQ(30, first.maxLine); // a dropped statement still raised it
    EXPECT_EQ(2u, store->fileLineRanges[1].firstLineRecord);
    EXPECT_EQ(1u, store->fileLineRanges[1].lineRecordCount);
    EXPECT_EQ(5, store->fileLineRanges[1].maxLine);
    EXPECT_EQ(3u, store->fileLineRanges[2].firstLineRecord);

    const BlockRecord& module = store->blockTree.blocks[0];
    const BlockRecord& function = store->blockTree.blocks[1];
    EXPECT_EQ((std::vector<uint32_t>{0, 2}), store->blockTree.lineRanges(0));
    EXPECT_EQ((std::vector<uint32_t>{1}), store->blockTree.lineRanges(1));
    EXPECT_EQ(0x200u, function.lowAddress);
    EXPECT_EQ(0x201u, function.highAddress);
    EXPECT_EQ(0x100u, module.lowAddress);
    EXPECT_EQ(0x201u, module.highAddress);
}

TEST_F(SourceTags, WritesEmbeddedSourcesBesideTheFile)
{
    const fs::path copies = fs::path(dir.dir()) / "embedded_source";
    fs::create_directories(copies / "b_emb.c"); // a directory where a copy should go
    UbrofWriter w = fileStart();
    w.begLib("m").file("src/a.c", {"int x;", "", "y"}).srcStat(1, 1).absVar({0});
    w.file("C:\\work\\a.c", {"z"}).file("../../a.c", {}).file("Makefile", {"all:"}).file("..", {"q"});
    w.file("b.c", {"lost"}).symbolDef(symbol("after")).end().eof();
    ASSERT_EQ("", read(w));

    std::set<std::string> written;
    for (const fs::directory_entry& entry : fs::directory_iterator(copies))
        written.insert(entry.path().filename().string());
    EXPECT_EQ((std::set<std::string>{"a_emb.c", "a_emb1.c", "a_emb2.c", "Makefile_emb", "._emb.", "b_emb.c"}),
              written);
    EXPECT_EQ(2, std::distance(fs::directory_iterator(dir.dir()), fs::directory_iterator()));
    EXPECT_EQ("int x;\r\n\r\ny\r\n", contents((copies / "a_emb.c").string()));
    EXPECT_EQ("z\r\n", contents((copies / "a_emb1.c").string()));
    EXPECT_EQ("", contents((copies / "a_emb2.c").string()));

    ASSERT_EQ(6u, store->sourceFileTable.size());
    const SourceFileRecord& first = store->sourceFileTable[0];
    EXPECT_EQ((copies / "a_emb.c").string(), first.name);
    EXPECT_EQ(1, first.isEmbedded);
    EXPECT_EQ(0.0, first.timestamp);
    EXPECT_EQ((std::vector<uint32_t>{0}), first.lineRanges);
    // The unwritable copy is still a file of the module, and the tags after it were read.
    EXPECT_EQ(5u, store->blockTree.moduleFile(0, 0));
    EXPECT_EQ("after", symbolName(0));

    // Numbering starts afresh with every parse.
    ASSERT_EQ("", read(w));
    EXPECT_EQ((copies / "a_emb.c").string(), store->sourceFileTable[0].name);
}

TEST_F(SourceTags, WritesNoMoreEmbeddedCopiesThanTheCap)
{
    UbrofWriter w = fileStart();
    w.begLib("m");
    for (uint32_t i = 0; i <= CParser::kMaxEmbeddedCopies; ++i)
        w.file("x.c", {"x"});
    w.end().eof();
    ASSERT_EQ("", read(w));

    const fs::path copies = fs::path(dir.dir()) / "embedded_source";
    EXPECT_EQ(CParser::kMaxEmbeddedCopies,
              size_t(std::distance(fs::directory_iterator(copies), fs::directory_iterator())));
    // The file past the cap is still a source of the module; it only has no copy on disk.
    ASSERT_EQ(CParser::kMaxEmbeddedCopies + 1, store->sourceFileTable.size());
    EXPECT_FALSE(fs::exists(store->sourceFileTable.back().name));
}

TEST_F(SourceTags, ModuleFileTablesHoldOnlyTheReferencesDeclared)
{
    // Eleven bytes of t_file_ref declare reference 0xFFFF: a table as long as the highest
    // reference would take 256 KiB per module, half a gigabyte for these two thousand.
    UbrofWriter w = fileStart();
    for (uint32_t i = 0; i < 2000; ++i)
        w.begLib("m").fileRef(0xFFFF, "a.c").fileRef(0xFFFF, "b.c").fileRef(7, "a.c").newFile(0xFFFF).srcStat(1, 1).end();
    const long before = peakResidentKiB();
    ASSERT_EQ("", read(w.eof()));
    EXPECT_LT(peakResidentKiB() - before, 64 * 1024);
    const uint32_t last = static_cast<uint32_t>(store->blockTree.blocks.size() - 1);
    EXPECT_EQ((std::vector<std::pair<uint32_t, uint32_t>>{{7, 0}, {0xFFFF, 1}}), store->blockTree.moduleFiles(last));
    EXPECT_EQ(kNoIndex, store->blockTree.moduleFile(last, 0));
    ASSERT_EQ(2000u, store->fileLineRanges.size());
    EXPECT_EQ(1, store->fileLineRanges.back().file);
    EXPECT_EQ(0, store->findModuleOfFile(1));
}

} // namespace
} // namespace ubrof::test
