// Source files, embedded sources and statement records with their file line ranges.
#include "ReaderFixture.h"

#include "reader/ReaderError.h"

#include <boost/filesystem.hpp>
#include <csignal>
#include <fstream>
#include <set>

#include <sys/resource.h>
#include <unistd.h>

namespace ubrof::test {
namespace {

using SourceTags = ReaderTest;
namespace fs = boost::filesystem;
using namespace std::string_literals;

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

    using Line = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint8_t, uint32_t, uint32_t>;
    std::vector<Line> lines;
    for (const LineRecord& r : store->lineTable)
        lines.emplace_back(r.address, r.size, r.line, r.lineSpan, r.flags, r.column, r.endColumn);
    EXPECT_EQ((std::vector<Line>{{0x100, 3, 10, 2, 3, 3, 7}, {0x104, 2, 21, 0, 5, 1, 1},
                                 {0x200, 1, 10, 4294967291u, 1, 1, 1}, {0x201, 0, 50, 0, 1, 1, 1}}),
              lines);
    // A dropped statement still raised its range's highest line.
    std::vector<std::tuple<uint32_t, uint32_t, int32_t>> ranges;
    for (const FileLineRange& range : store->fileLineRanges)
        ranges.emplace_back(range.firstLineRecord, range.lineRecordCount, range.maxLine);
    EXPECT_EQ((decltype(ranges){{0, 2, 30}, {2, 1, 5}, {3, 1, 50}}), ranges);
    const BlockRecord& module = store->blockTree.blocks[0];
    const BlockRecord& function = store->blockTree.blocks[1];
    EXPECT_EQ((std::vector<uint32_t>{0, 2}), store->blockTree.lineRanges(0));
    EXPECT_EQ((std::vector<uint32_t>{1}), store->blockTree.lineRanges(1));
    EXPECT_EQ((std::vector<uint32_t>{0x200, 0x201, 0x100, 0x201}),
              (std::vector<uint32_t>{function.lowAddress, function.highAddress, module.lowAddress, module.highAddress}));
}

// The names in a folder, each with its size when sizes is set.
std::set<std::string> listing(const fs::path& folder, bool sizes = false)
{
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string() + (sizes ? " " + std::to_string(fs::file_size(entry.path())) : ""));
    return names;
}

// The file lies two folders down, so that a copy escaping by ".." would show above it.
TEST_F(SourceTags, WritesEmbeddedSourcesBesideTheFileAndNowhereElse)
{
    const fs::path top(dir.dir()), copies = top / "a" / "b" / "embedded_source";
    fs::create_directories(copies / "b_emb.c"); // a directory where a copy should go
    UbrofWriter w = fileStart();
    w.begLib("m").file("src/a.c", {"int x;", "", "y"}).srcStat(1, 1).absVar({0});
    w.file("C:\\work\\a.c", {"z"}).file("../../a.c", {}).file("Makefile", {"all:"}).file("..", {"q"});
    w.file("/tmp/absolute.c", {"2"}).file("C:\\dir\\drive.c", {"3"}).file("C:relative.c", {"4"});
    w.file("..\\..\\back.c", {"5"}).file("nul\0/../../x.c"s, {"6"});
    w.file(std::string(249, 'n') + ".c", {"8"}).file(std::string(251, 'o') + ".c", {"9"});
    w.file("b.c", {"lost"}).symbolDef(symbol("after")).end().eof();
    ASSERT_EQ("", read(w.bytes(), "a/b/test.d90"));

    EXPECT_EQ(std::set<std::string>{"a"}, listing(top));
    EXPECT_EQ(std::set<std::string>{"b"}, listing(top / "a"));
    EXPECT_EQ((std::set<std::string>{"embedded_source", "test.d90"}), listing(top / "a" / "b"));
    // Over-long names are not written: their copy's name would be longer than a file name may be.
    EXPECT_EQ((std::set<std::string>{"a_emb.c", "a_emb1.c", "a_emb2.c", "Makefile_emb", "._emb.", "absolute_emb.c",
                                     "drive_emb.c", "C:relative_emb.c", "back_emb.c", "nul_emb",
                                     std::string(249, 'n') + "_emb.c", "b_emb.c"}),
              listing(copies));
    EXPECT_EQ((std::vector<std::string>{"int x;\r\n\r\ny\r\n", "z\r\n", ""}),
              (std::vector<std::string>{fileText((copies / "a_emb.c").string()), fileText((copies / "a_emb1.c").string()),
                                        fileText((copies / "a_emb2.c").string())}));
    ASSERT_EQ(13u, store->sourceFileTable.size());
    const SourceFileRecord& first = store->sourceFileTable[0];
    EXPECT_EQ(std::make_tuple((copies / "a_emb.c").string(), 1, 0.0, std::vector<uint32_t>{0}),
              std::make_tuple(first.name, int(first.isEmbedded), first.timestamp, first.lineRanges));
    // The unwritable copy is still a file of the module, and the tags after it were read.
    EXPECT_EQ(std::make_pair(12u, std::string("after")), std::make_pair(store->blockTree.moduleFile(0, 0), symbolName(0)));

    // Numbering starts afresh with every parse.
    ASSERT_EQ("", read(w.bytes(), "a/b/test.d90"));
    EXPECT_EQ((copies / "a_emb.c").string(), store->sourceFileTable[0].name);
}

TEST_F(SourceTags, WritesNoMoreEmbeddedCopiesThanTheCapAndNamesNoCopyPastIt)
{
    const fs::path copies = fs::path(dir.dir()) / "embedded_source";
    UbrofWriter earlier = fileStart();
    earlier.begLib("m").file("y.c", {"old"}).end().eof();
    ASSERT_EQ("", read(earlier));
    UbrofWriter w = fileStart();
    w.begLib("m");
    for (uint32_t i = 0; i < CParser::kMaxEmbeddedCopies; ++i)
        w.file("x.c", {"x"});
    w.file("src/y.c", {"new"}).end().eof();
    ASSERT_EQ("", read(w));

    EXPECT_EQ(CParser::kMaxEmbeddedCopies + 1, listing(copies).size());
    // The file past the cap is still a source of the module, under the name the file gave it:
    // the copy y_emb.c holds the earlier parse's text, not this one's.
    ASSERT_EQ(CParser::kMaxEmbeddedCopies + 1, store->sourceFileTable.size());
    EXPECT_EQ(std::make_tuple(std::string("src/y.c"), 1, std::string("old\r\n")),
              std::make_tuple(store->sourceFileTable.back().name, int(store->sourceFileTable.back().isEmbedded),
                              fileText((copies / "y_emb.c").string())));
}

// Neither a plain file nor a link in place of the folder is entered, and a link in place of a
// copy is replaced, not followed; a plain file there stops even a privileged user from writing.
// Nothing is written, the parse goes on, and the record still names where the copy would be.
TEST_F(SourceTags, ReadsOnWhenNoCopyCanBeWrittenAndNeverWritesThroughAPlantedLink)
{
    const fs::path copies = fs::path(dir.dir()) / "embedded_source";
    std::ofstream(copies.string()) << "not a folder";
    UbrofWriter w = fileStart();
    w.begLib("m").file("a.c", {"embedded"}).srcStat(1, 1).absVar({0}).symbolDef(symbol("after")).end().eof();
    ASSERT_EQ("", read(w));
    ASSERT_EQ(1u, store->sourceFileTable.size());
    EXPECT_EQ(std::make_tuple((copies / "a_emb.c").string(), std::vector<uint32_t>{0}, std::string("after")),
              std::make_tuple(store->sourceFileTable[0].name, store->sourceFileTable[0].lineRanges, symbolName(0)));
    EXPECT_EQ("not a folder", fileText(copies.string()));

    fs::remove(copies);
    const std::string victim = dir.path("victim.txt");
    std::ofstream(victim) << "mine";
    fs::create_directory(copies);
    fs::create_symlink(victim, copies / "a_emb.c");
    ASSERT_EQ("", read(w));
    EXPECT_EQ("mine", fileText(victim));
    EXPECT_FALSE(fs::is_symlink(copies / "a_emb.c"));
    EXPECT_EQ("embedded\r\n", fileText((copies / "a_emb.c").string()));

    const fs::path elsewhere = fs::path(dir.dir()) / "elsewhere";
    fs::create_directory(elsewhere);
    fs::remove_all(copies);
    fs::create_directory_symlink(elsewhere, copies);
    ASSERT_EQ("", read(w));
    EXPECT_TRUE(fs::is_empty(elsewhere) && fs::is_symlink(copies));
    EXPECT_EQ((copies / "a_emb.c").string(), store->sourceFileTable[0].name);
}

// A copy is written whole or not at all: neither a part nor a temporary file stays when the
// parse fails inside the text, nor when the write itself fails, and the earlier copy, which
// would pass for this file's text, goes too.
TEST_F(SourceTags, WritesACopyWholeOrNotAtAll)
{
    const fs::path copies = fs::path(dir.dir()) / "embedded_source";
    UbrofWriter w = fileStart();
    w.begLib("m").file("a.c", {"first line", std::string(60000, 'x'), "last line"});
    ASSERT_EQ(kUnexpectedEndOfFile, read(w.prefix(w.size() - 4))); // cut inside the last line
    EXPECT_TRUE(fs::is_empty(copies));
    ASSERT_EQ("", read(w.end().eof()));
    EXPECT_EQ("first line\r\n" + std::string(60000, 'x') + "\r\nlast line\r\n",
              fileText((copies / "a_emb.c").string()));
    EXPECT_EQ(std::set<std::string>{"a_emb.c"}, listing(copies));

    // Files may not grow past 4 KiB, so the write fails half-way; the parse itself succeeds.
    const std::string big = dir.save(w, "big.d90");
    const auto parseWithSmallFiles = [&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        TarnUbrofParser parsed;
        _exit(parsed.initialize() && parsed.parseFile(big) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(parseWithSmallFiles(), ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(std::set<std::string>{}, listing(copies, true));
}

} // namespace
} // namespace ubrof::test
