// ubrofdump export on writer-built files: what it writes and answers, what it refuses and why, and
// that a refused or failed export leaves every file as it was.
#include "IntelHex.h"
#include "TestFiles.h"
#include "Tools.h"

#include <boost/filesystem.hpp>
#include <boost/json/parse.hpp>

#include <algorithm>
#include <fstream>
#include <map>

namespace ubrof {
namespace {

namespace fs = boost::filesystem;
namespace json = boost::json;
using test::ScratchDir;
using Outcome = test::ToolResult;
const auto ubrofdump = test::runUbrofdump;

constexpr uint8_t kPublic = 2;
constexpr uint8_t kCodeSegment = 1, kEepromSegment = 3;

/// A program of the AVR compiler named for `cpu` (no name when empty): main at 0x100 in two runs
/// with a gap of four bytes, and two bytes of EEPROM.
UbrofWriter program(const std::string& cpu)
{
    UbrofWriter w;
    w.begFile1().version(8);
    if (!cpu.empty())
        w.keyValue("__cpu_name", cpu);
    w.begPgm("main");
    w.aux1("4.10B", 0x5A00);
    w.fileRef(0, "src/main.c").scopedName("main");
    w.symbolDef2(0, kPublic, 1, 0x100, 0);
    w.org(kCodeSegment, 0x100).blockBegin3(0).srcStat(3, 3).absVar({0x00, 0x00, 0x00, 0x00});
    w.org(kCodeSegment, 0x108).srcStat(4, 4).absVar({0xFF, 0xCF}).blockEnd();
    w.org(kEepromSegment, 0x10).absVar({0x12, 0x34});
    w.end().eof();
    return w;
}

/// Every file in the folder, to see that nothing was left behind.
std::vector<std::string> filesIn(const ScratchDir& dir)
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir.dir()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(ExportCommand, WritesEachFormatAndAnswersWhatItWrote)
{
    ScratchDir dir;
    const std::string input = dir.save(program("ATmega16"));
    const std::string hex = dir.path("main.hex"), bin = dir.path("main.bin"), elf = dir.path("main.elf");

    Outcome run = ubrofdump({"--json", "export", input, "--format", "ihex", "-o", hex});
    ASSERT_EQ(0, run.status) << run.err;
    const json::value ihex = json::parse(run.out);
    EXPECT_EQ(json::parse(R"({"Schema": 3, "Export": {"File": ")" + input + R"(", "Output": ")" + hex +
                          R"(", "Format": "ihex", "Memory": "code", "Bytes": 6, "Low": 256, "End": 266, "Size": )" +
                          std::to_string(test::fileText(hex).size()) + "}}"),
              ihex);
    EXPECT_EQ((std::map<uint32_t, uint8_t>{{0x100, 0}, {0x101, 0}, {0x102, 0}, {0x103, 0}, {0x108, 0xFF}, {0x109, 0xCF}}),
              test::readIntelHex(hex));

    run = ubrofdump({"export", input, "--format", "bin", "--memory", "code", "--gap-fill", "0x5a", "-o", bin});
    ASSERT_EQ(0, run.status) << run.err;
    EXPECT_EQ(std::string("\0\0\0\0\x5a\x5a\x5a\x5a\xff\xcf", 10), test::fileText(bin));
    EXPECT_EQ("Wrote " + bin + " (10 bytes): binary image of the code memory, 6 bytes written from 0x100 up to 0x10a;\n"
              "the file's first byte is address 0x100, gaps hold 0x5a\n",
              run.out);

    run = ubrofdump({"--json", "export", input, "--format", "elf", "-o", elf});
    ASSERT_EQ(0, run.status) << run.err;
    const json::value document = json::parse(run.out);
    const json::object& answer = document.at("Export").as_object();
    EXPECT_EQ("ATmega16", answer.at("Processor").as_string());
    EXPECT_EQ(json::parse(R"(["code", "eeprom"])"), answer.at("Memories"));
    EXPECT_EQ(1u, answer.at("Functions").to_number<uint64_t>());
    EXPECT_EQ("\x7f" "ELF", test::fileText(elf).substr(0, 4));
    EXPECT_EQ((std::vector<std::string>{"main.bin", "main.elf", "main.hex", "test.d90"}), filesIn(dir));
}

// The processor comes from the file, from the device header its sources include, or from --mcu;
// without one nothing is written and the message says how to name one. (The exporter's own tests
// hold every reason it gives.)
TEST(ExportCommand, RefusesAnElfForAProcessorItCannotName)
{
    ScratchDir dir;
    const std::string elf = dir.path("out.elf");
    const std::string unnamed = dir.save(program(""), "unnamed.d90");
    Outcome run = ubrofdump({"export", unnamed, "--format", "elf", "-o", elf});
    EXPECT_EQ(1, run.status);
    EXPECT_EQ(0u, run.err.find("ubrofdump: " + unnamed + ": the program does not name its processor")) << run.err;
    EXPECT_NE(std::string::npos, run.err.find("; name the processor with --mcu")) << run.err;
    EXPECT_FALSE(fs::exists(elf));
    run = ubrofdump({"--json", "export", unnamed, "--format", "elf", "-o", elf});
    EXPECT_EQ("cannot-export", json::parse(run.out).at("Error").at("Code").as_string());
    const Outcome named = ubrofdump({"--json", "export", unnamed, "--format", "elf", "--mcu", "ATmega32", "-o", elf});
    ASSERT_EQ(0, named.status) << named.out;
    EXPECT_EQ("ATmega32", json::parse(named.out).at("Export").at("Processor").as_string());
}

TEST(ExportCommand, LeavesEveryFileAsItWasWhenItCannotWrite)
{
    ScratchDir dir;
    const std::string input = dir.save(program("ATmega16"));
    const std::string before = test::fileText(input);
    const std::string out = dir.path("out.hex");
    std::ofstream(out) << "old";
    fs::create_symlink(input, dir.path("link.d90"));

    // Nothing in data memory: refused before anything is written.
    Outcome run = ubrofdump({"export", input, "--format", "ihex", "--memory", "data", "-o", out});
    EXPECT_EQ(1, run.status);
    EXPECT_EQ("ubrofdump: " + input + ": data memory: the program writes no bytes to it\n", run.err);
    EXPECT_EQ("old", test::fileText(out));

    for (const std::string& self : {input, dir.path("link.d90"), dir.path(".") + "/test.d90"}) {
        run = ubrofdump({"export", input, "--format", "bin", "-o", self});
        EXPECT_EQ(2, run.status) << self;
        EXPECT_NE(std::string::npos, run.err.find("is the file being exported; give another path")) << run.err;
    }
    EXPECT_EQ(before, test::fileText(input));

    run = ubrofdump({"export", input, "--format", "ihex", "-o", dir.path("missing/out.hex")});
    EXPECT_EQ(1, run.status);
    EXPECT_EQ("ubrofdump: " + input + ": cannot write " + dir.path("missing/out.hex") + ": No such file or directory\n",
              run.err);
    run = ubrofdump({"export", input, "--format", "ihex", "-o", dir.dir()});
    EXPECT_EQ(1, run.status);
    EXPECT_NE(std::string::npos, run.err.find("cannot write " + dir.dir() + ": it is a directory")) << run.err;

    // A write replaces the old file whole, and through a link the file it names.
    fs::create_symlink(out, dir.path("out-link.hex"));
    run = ubrofdump({"export", input, "--format", "ihex", "-o", dir.path("out-link.hex")});
    ASSERT_EQ(0, run.status) << run.err;
    EXPECT_EQ(6u, test::readIntelHex(out).size());
    EXPECT_TRUE(fs::is_symlink(dir.path("out-link.hex")));
    EXPECT_EQ((std::vector<std::string>{"link.d90", "out-link.hex", "out.hex", "test.d90"}), filesIn(dir));
}

TEST(ExportCommand, SaysWhatIsWrongWithTheCommandLine)
{
    ScratchDir dir;
    const std::string input = dir.save(program("ATmega16"));
    const std::string out = dir.path("out");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"export", input, "-o", out}, "export needs --format: ihex, srec, bin and elf"},
        {{"export", input, "--format", "hex", "-o", out}, "unknown format hex; the formats are ihex, srec, bin and elf"},
        {{"export", input, "--format", "ihex"}, "export needs -o OUT, the file to write"},
        {{"export", input, "--format", "ihex", "--memory", "flash", "-o", out},
         "unknown memory flash; the memories are code, eeprom, data and xdata"},
        {{"export", input, "--format", "elf", "--memory", "code", "-o", out},
         "--memory does not belong to --format elf, which holds every memory"},
        {{"export", input, "--format", "ihex", "--gap-fill", "0", "-o", out},
         "--gap-fill belongs to --format bin; the other formats hold only the bytes written"},
        {{"export", input, "--format", "bin", "--gap-fill", "256", "-o", out}, "--gap-fill takes a byte, 0 to 0xff, not 256"},
        {{"export", input, "--format", "bin", "--gap-fill", "ff", "-o", out},
         "not a number for --gap-fill: ff (numbers are decimal, or hexadecimal after 0x)"},
        {{"export", input, "--format", "srec", "--mcu", "ATmega16", "-o", out},
         "--mcu belongs to --format elf; the other formats do not name a processor"},
        {{"summary", input, "-o", out}, "-o does not belong to summary; it belongs to export"},
        {{"export", input, "extra", "--format", "bin", "-o", out},
         "wrong number of arguments for export: it takes export FILE --format FORMAT -o OUT [export options]"},
    };
    for (const auto& [args, says] : cases) {
        const Outcome run = ubrofdump(args);
        EXPECT_EQ(2, run.status) << says;
        EXPECT_EQ("ubrofdump: " + says + "\nTry 'ubrofdump --help'.\n", run.err);
    }
    EXPECT_FALSE(fs::exists(out));
}

} // namespace
} // namespace ubrof
