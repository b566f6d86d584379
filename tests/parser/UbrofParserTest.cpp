// The facade: a parser exists only with a parsed store, and every failure carries its code and message.
#include "TestFiles.h"

#include "host/CoreException.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

using test::ScratchDir;

// The exception's code and message, or a failure when nothing was thrown.
std::pair<tarn::ErrorCode, std::string> failureOf(const std::string& path)
{
    try {
        UbrofParser parser(path);
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

} // namespace
} // namespace ubrof
