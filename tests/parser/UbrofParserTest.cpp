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

// The exception's message, or a failure when nothing was thrown; the code is always the same.
std::string failureOf(const std::string& path, bool readNewerVersions = false)
{
    try {
        UbrofParseOptions options;
        options.readNewerVersions = readNewerVersions;
        UbrofParser parser(path, options);
    } catch (const tarn::CoreException& e) {
        EXPECT_EQ(tarn::ErrorCode::ObjectfileParseFailed, e.getErrorCode()) << path;
        return e.getStatus()->getMessage();
    }
    ADD_FAILURE() << "no exception for " << path;
    return {};
}

// A host that opts in reads versions 10 and 11 and learns why a file failed; one that does not
// sees the refusal it always saw.
TEST(UbrofParser, EachFailureCarriesItsMessageAndOnlyAnOptedInHostReadsVersions10And11)
{
    ScratchDir dir;
    UbrofWriter newer;
    newer.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10)).begLib("main").org(1, 0x100);
    newer.absVar({1, 2}).end().eof();
    UbrofWriter old, nine, wrongStart;
    old.begFile1().version(8).begLib("main").end().eof();
    nine.begFile1().version(9).eof();
    wrongStart.begFile().version(8).eof(); // 0x4D is a valid tag, but a file must begin with t_beg_file1
    const std::string path = dir.save(newer), ninePath = dir.save(nine, "nine.d90");
    const std::string cut = dir.save(newer.prefix(newer.size() - 1), "cut.d90");
    const std::string oldCut = dir.save(old.prefix(old.size() - 1), "oldcut.d90");
    const std::string failed = "Failed to parse nordic object file ";
    const std::string notRecognized = "Failed to initialize Nordic Parser. The file %s was not recognized as a Nordic Object file";
    auto unknown = [&](const std::string& file) {
        char text[512];
        std::snprintf(text, sizeof text, notRecognized.c_str(), file.c_str());
        return std::string(text);
    };
    const std::tuple<std::string, bool, std::string> cases[] = {
        {"", false, unknown("")},
        {dir.path("missing.d90"), false, unknown(dir.path("missing.d90"))},
        {dir.save(wrongStart, "wrong.d90"), false, unknown(dir.path("wrong.d90"))},
        {dir.save(std::vector<uint8_t>{}, "empty.d90"), false, unknown(dir.path("empty.d90"))},
        {oldCut, false, failed + oldCut + "."},
        {path, false, failed + path + "."},
        {ninePath, false, failed + ninePath + "."},
        {ninePath, true,
         failed + ninePath +
             ": Error: An error occured while processing the tag! in tag 0xBD (t_version) at offset 7: format version 9 "
             "is not read: no file of that version is known, so neither is its layout."},
        {cut, true,
         failed + cut + ": Error: Unexpected end of file at offset " + std::to_string(newer.size() - 1) +
             ", where a tag should begin."}};
    for (const auto& [file, readNewer, message] : cases)
        EXPECT_EQ(message, failureOf(file, readNewer)) << file << " " << readNewer;

    UbrofParseOptions options;
    options.readNewerVersions = true;
    UbrofParser parser(path, options);
    EXPECT_EQ(1u, parser.getStore()->moduleTable.size());
    EXPECT_EQ(10, parser.getStore()->fileHeader.versionBytes[0]);
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

// A host catches CoreException only, so running out of memory must leave the constructor as one.
// (An embedded-source folder that cannot be made is the reader's test: the parse goes on.)
TEST(UbrofParser, LetsNoOtherExceptionOutWhenMemoryRunsOut)
{
    ScratchDir dir;
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
