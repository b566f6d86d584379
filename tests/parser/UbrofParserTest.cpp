// The facade: a parser exists only with a parsed store, and every failure carries its code and message.
#include "TestFiles.h"

#include "host/CoreException.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

// Under the address sanitizer, running out of memory aborts the process instead of throwing.
#if defined(__SANITIZE_ADDRESS__)
#define UBROF_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UBROF_ADDRESS_SANITIZER 1
#endif
#endif

namespace ubrof {
namespace {

using test::ScratchDir;

// The exception's code and message, or a failure when nothing was thrown.
std::pair<tarn::ErrorCode, std::string> failureOf(const std::string& path, bool readNewerVersions = false)
{
    try {
        UbrofParseOptions options;
        options.readNewerVersions = readNewerVersions;
        UbrofParser parser(path, options);
    } catch (const tarn::CoreException& e) {
        return {e.getErrorCode(), e.getStatus()->getMessage()};
    }
    ADD_FAILURE() << "no exception for " << path;
    return {};
}

TEST(UbrofParser, ParsesAFileOfModuleAndMemoryTags)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").org(1, 0x100).absVar({1, 2, 3, 4}).end().eof();
    UbrofParser parser(dir.save(w));
    EXPECT_EQ(1u, parser.getStore()->moduleTable.size());
    EXPECT_EQ("Ubrof", UbrofParser::getObjectFileFormat());
}

TEST(UbrofParser, RejectsPathsThatAreNotUbrofFiles)
{
    ScratchDir dir;
    const std::string notRecognized =
        "Failed to initialize Nordic Parser. The file %s was not recognized as a Nordic Object file";
    auto expected = [&](const std::string& path) {
        char text[512];
        std::snprintf(text, sizeof text, notRecognized.c_str(), path.c_str());
        return std::make_pair(tarn::ErrorCode::ObjectfileParseFailed, std::string(text));
    };
    EXPECT_EQ(expected(""), failureOf(""));
    EXPECT_EQ(expected(dir.path("missing.d90")), failureOf(dir.path("missing.d90")));
    // 0x4D is a valid tag, but a file must begin with t_beg_file1.
    UbrofWriter begFile;
    begFile.begFile().version(8).eof();
    const std::string wrongStart = dir.save(begFile, "wrong.d90");
    EXPECT_EQ(expected(wrongStart), failureOf(wrongStart));
    const std::string empty = dir.save(std::vector<uint8_t>{}, "empty.d90");
    EXPECT_EQ(expected(empty), failureOf(empty));
}

TEST(UbrofParser, ReportsAFileCutShortAsAParseFailure)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").end().eof();
    const std::string path = dir.save(w.prefix(w.size() - 1));
    EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed,
                             "Failed to parse nordic object file " + path + "."),
              failureOf(path));
}

// A host that opts in reads versions 10 and 11 and learns why a file failed; one that does not
// sees the refusal it always saw.
TEST(UbrofParser, ReadsVersions10And11OnlyForAHostThatOptsIn)
{
    ScratchDir dir;
    UbrofWriter newer;
    newer.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10)).begLib("main").org(1, 0x100);
    newer.absVar({1, 2}).end().eof();
    const std::string path = dir.save(newer);
    const std::string refused = "Failed to parse nordic object file " + path + ".";
    EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed, refused), failureOf(path));

    UbrofParseOptions options;
    options.readNewerVersions = true;
    UbrofParser parser(path, options);
    EXPECT_EQ(1u, parser.getStore()->moduleTable.size());
    EXPECT_EQ(10, parser.getStore()->fileHeader.versionBytes[0]);

    UbrofWriter nine;
    nine.begFile1().version(9).eof();
    const std::string ninePath = dir.save(nine, "nine.d90");
    EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed, "Failed to parse nordic object file " + ninePath + "."),
              failureOf(ninePath));
    EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed,
                             "Failed to parse nordic object file " + ninePath +
                                 ": Error: An error occured while processing the tag! in tag 0xBD (t_version) at "
                                 "offset 7: format version 9 is not read: no file of that version is known, so "
                                 "neither is its layout."),
              failureOf(ninePath, true));

    const std::string cut = dir.save(newer.prefix(newer.size() - 1), "cut.d90");
    EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed,
                             "Failed to parse nordic object file " + cut + ": Error: Unexpected end of file at offset " +
                                 std::to_string(newer.size() - 1) + ", where a tag should begin."),
              failureOf(cut, true));
}

// Parses with 8 MiB of address space to spare; the exit status tells what left the constructor:
// 0 the expected CoreException, 2 nothing, 3 another CoreException, 4 any other exception.
[[noreturn]] void parseWithLittleMemory(const std::string& path)
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t room = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (rlim_t(8) << 20);
    const rlimit limit{room, room};
    setrlimit(RLIMIT_AS, &limit);
    try {
        UbrofParser parser(path);
        _exit(2);
    } catch (const tarn::CoreException& e) {
        const std::string expected = "Failed to parse nordic object file " + path + ": ";
        const bool right = e.getErrorCode() == tarn::ErrorCode::ObjectfileParseFailed &&
                           e.getStatus()->getMessage().compare(0, expected.size(), expected) == 0;
        _exit(right ? 0 : 3);
    } catch (...) {
        _exit(4);
    }
}

// A host catches CoreException only, so nothing else may leave the constructor: not a folder
// for embedded sources that cannot be made, nor memory that runs out.
TEST(UbrofParser, LetsNoOtherExceptionOut)
{
    ScratchDir dir;
    std::ofstream(dir.path("embedded_source")) << "a plain file where the copies would go";
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").file("a.c", {"int a;"}).srcStat(1, 1).absVar({0}).end().eof();
    EXPECT_NO_THROW(UbrofParser{dir.save(w)});

    // A byte on each of 4,096 pages of code takes 16 MiB of image, which the limit below forbids.
    UbrofWriter far;
    far.begFile1().version(8).begLib("main");
    for (uint32_t page = 0; page < 4096; ++page)
        far.org(1, page << 12).absVar({1});
    far.end().eof();
    const std::string path = dir.save(far, "far.d90");
    ASSERT_NO_THROW(UbrofParser{path}) << "the file itself is fine";
#ifdef UBROF_ADDRESS_SANITIZER
    GTEST_SKIP() << "needs memory exhaustion to throw";
#endif
    EXPECT_EXIT(parseWithLittleMemory(path), ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace ubrof
