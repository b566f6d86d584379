// ubrofdump on the bundled sample: every command's whole output, human and JSON, against golden
// files in golden/ (UBROF_UPDATE_GOLDEN=1 rewrites them; see scripts/update-golden).
#include "TestFiles.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace ubrof {
namespace {

using test::ScratchDir;

struct DumpResult {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs ubrofdump in dir, so that the sample's embedded source lands there and paths stay relative.
DumpResult ubrofdump(const ScratchDir& dir, const std::vector<std::string>& args)
{
    const std::string outPath = dir.path("stdout"), errPath = dir.path("stderr");
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0 || chdir(dir.dir().c_str()) != 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(127);
        std::vector<char*> argv{const_cast<char*>(UBROFDUMP)};
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(UBROFDUMP, argv.data());
        _exit(127);
    }
    DumpResult run;
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status))
        run.status = WEXITSTATUS(status);
    run.out = readFile(outPath);
    run.err = readFile(errPath);
    return run;
}

struct GoldenCase {
    const char* name;
    std::vector<std::string> args;
    int status;
};

std::ostream& operator<<(std::ostream& out, const GoldenCase& c)
{
    return out << c.name;
}

const std::string kSource = "C:\\work\\thermo\\";

const GoldenCase kCases[] = {
    {"summary", {"sample.d90"}, 0},
    {"summary-json", {"--json", "summary", "sample.d90"}, 0},
    {"segments", {"segments", "sample.d90", "--data"}, 0},
    {"segments-json", {"segments", "--json", "sample.d90", "--data"}, 0},
    {"sources", {"sources", "sample.d90"}, 0},
    {"sources-json", {"sources", "sample.d90", "--json"}, 0},
    {"sources-mapped", {"--map-path", kSource + "=src/", "sources", "sample.d90"}, 0},
    {"lines", {"lines", "sample.d90"}, 0},
    {"lines-json", {"lines", "sample.d90", "--json"}, 0},
    {"lines-range", {"lines", "sample.d90", "0x100", "272"}, 0},
    {"lines-none", {"lines", "sample.d90", "0x300", "0x400"}, 3},
    {"lines-none-json", {"--json", "lines", "sample.d90", "0x300", "0x400"}, 3},
    {"line2addr", {"line2addr", "sample.d90", "c:\\WORK\\thermo\\SENSOR.c", "19"}, 0},
    {"line2addr-json", {"--json", "--map-path", kSource + "=src/", "line2addr", "sample.d90", "src/main.c", "54"}, 0},
    {"line2addr-none", {"line2addr", "sample.d90", kSource + "sensor.c", "22"}, 3},
    {"scope", {"scope", "sample.d90", "0xa0"}, 0},
    {"scope-json", {"scope", "sample.d90", "0x108", "--json"}, 0},
    {"scope-none", {"scope", "sample.d90", "0x10"}, 3},
    {"symbols", {"symbols", "sample.d90"}, 0},
    {"symbols-pc", {"symbols", "sample.d90", "--pc", "0xf4"}, 0},
    {"symbols-json", {"symbols", "sample.d90", "--json", "--pc=0xb0"}, 0},
    {"lookup", {"lookup", "sample.d90", "ADMUX"}, 0},
    {"lookup-pc-json", {"lookup", "sample.d90", "value", "--pc", "0xe0", "--json"}, 0},
    {"lookup-scope", {"lookup", "sample.d90", "sum", "--scope", "9"}, 0},
    {"lookup-function-json", {"lookup", "sample.d90", "average", "--json"}, 0},
    {"lookup-none", {"lookup", "sample.d90", "count"}, 3},
    {"context", {"context", "sample.d90", "33"}, 0},
    {"context-json", {"context", "sample.d90", "31", "--json"}, 0},
    {"context-none-json", {"context", "sample.d90", "99999", "--json"}, 3},
    {"compiler", {"compiler", "sample.d90"}, 0},
    {"compiler-json", {"compiler", "sample.d90", "--json"}, 0},
};

class Golden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, MatchesTheWholeOutput)
{
    const GoldenCase& c = GetParam();
    ScratchDir dir;
    const std::string sample = readFile(UBROF_SAMPLE_FILE);
    ASSERT_FALSE(sample.empty()) << "the build writes " << UBROF_SAMPLE_FILE;
    std::ofstream(dir.path("sample.d90"), std::ios::binary) << sample;

    const DumpResult run = ubrofdump(dir, c.args);
    EXPECT_EQ(c.status, run.status);
    const std::string outFile = std::string(UBROF_GOLDEN_DIR) + "/" + c.name + ".out";
    const std::string errFile = std::string(UBROF_GOLDEN_DIR) + "/" + c.name + ".err";
    if (std::getenv("UBROF_UPDATE_GOLDEN")) {
        std::ofstream(outFile, std::ios::binary) << run.out;
        std::remove(errFile.c_str());
        if (!run.err.empty())
            std::ofstream(errFile, std::ios::binary) << run.err;
        return;
    }
    EXPECT_EQ(readFile(outFile), run.out);
    // Anything on standard error that the golden files do not expect fails the case.
    EXPECT_EQ(readFile(errFile), run.err);

    if (std::string(c.name).find("json") != std::string::npos) {
        const boost::json::value document = boost::json::parse(run.out);
        ASSERT_TRUE(document.is_object());
        const auto& object = document.get_object();
        ASSERT_FALSE(object.empty());
        EXPECT_EQ("Schema", object.begin()->key());
        EXPECT_EQ(1, object.begin()->value().to_number<int>());
    }
}

INSTANTIATE_TEST_SUITE_P(Ubrofdump, Golden, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<GoldenCase>& info) {
                             std::string name = info.param.name;
                             for (char& c : name)
                                 if (c == '-')
                                     c = '_';
                             return name;
                         });

TEST(UbrofdumpExit, FilesThatCannotBeReadGiveStatusOneAndNothingOnStandardOutput)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").org(1, 0x100).absVar({1, 2, 3, 4}).end().eof();
    dir.save(w.prefix(w.size() - 3), "cut.d90");
    std::ofstream(dir.path("notes.txt")) << "not an object file\n";

    const std::string unrecognized =
        "ubrofdump: error 0x20027: Failed to initialize Nordic Parser. The file %s was not recognized as a Nordic Object file\n";
    auto message = [](const std::string& format, const std::string& path) {
        char text[512];
        std::snprintf(text, sizeof text, format.c_str(), path.c_str());
        return std::string(text);
    };
    for (const auto& [file, expected] :
         {std::make_pair(std::string("missing.d90"), message(unrecognized, "missing.d90")),
          std::make_pair(std::string("notes.txt"), message(unrecognized, "notes.txt")),
          std::make_pair(std::string("cut.d90"),
                         message("ubrofdump: error 0x20027: Failed to parse nordic object file %s.\n", "cut.d90"))}) {
        for (const char* command : {"summary", "symbols"}) {
            const DumpResult run = ubrofdump(dir, {"--json", command, file});
            EXPECT_EQ(1, run.status) << file;
            EXPECT_EQ("", run.out) << file;
            EXPECT_EQ(expected, run.err) << file;
        }
    }
}

TEST(UbrofdumpExit, UsageErrorsGiveStatusTwo)
{
    ScratchDir dir;
    const std::string sample = readFile(UBROF_SAMPLE_FILE);
    std::ofstream(dir.path("sample.d90"), std::ios::binary) << sample;
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{},
                                               {"scope", "sample.d90"},
                                               {"scope", "sample.d90", "12abc"},
                                               {"lines", "sample.d90", "1", "2", "3"},
                                               {"--frobnicate", "sample.d90"},
                                               {"segments", "sample.d90", "--pc", "4"},
                                               {"lookup", "sample.d90", "x", "--pc", "1", "--scope", "2"},
                                               {"--map-path", "nothing", "sample.d90"},
                                               {"lines", "sample.d90", "0x400", "0x300"}}) {
        const DumpResult run = ubrofdump(dir, args);
        EXPECT_EQ(2, run.status) << ::testing::PrintToString(args);
        EXPECT_EQ("", run.out) << ::testing::PrintToString(args);
        EXPECT_NE("", run.err) << ::testing::PrintToString(args);
    }
    const DumpResult help = ubrofdump(dir, {"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("usage: ubrofdump"));
}

TEST(Ubrofgen, LargeProgramsHaveTheShapeAskedFor)
{
    ScratchDir dir;
    const std::string file = dir.path("large.d90");
    const std::string command = std::string(UBROFGEN) + " --large 3 4 5 " + file;
    ASSERT_EQ(0, std::system(command.c_str()));
    const DumpResult run = ubrofdump(dir, {"--json", "large.d90"});
    ASSERT_EQ(0, run.status) << run.err;
    const auto summary = boost::json::parse(run.out).at("Summary");
    EXPECT_EQ(3, summary.at("Modules").to_number<int>());
    EXPECT_EQ(12, summary.at("Functions").to_number<int>());
    EXPECT_EQ(60, summary.at("CodeAreas").to_number<int>());
    EXPECT_EQ(3, summary.at("SourceFiles").to_number<int>());
    EXPECT_EQ(3 * (4 + 4), summary.at("GlobalSymbols").to_number<int>());
}

TEST(UbrofdumpBuild, LinksNoneOfTheModulesCode)
{
    // Symbol and debug names of the reader and the store would be in the executable if it linked them.
    const std::string executable = readFile(UBROFDUMP);
    ASSERT_FALSE(executable.empty());
    for (const char* name : {"TarnUbrofParser", "CParser", "UbrofSymbolContext", "DebuggerUbrofBundleActivator"})
        EXPECT_EQ(std::string::npos, executable.find(name)) << name;
    EXPECT_NE(std::string::npos, executable.find("OspService")) << "the probe finds names that are there";
}

} // namespace
} // namespace ubrof
