// The exports of the real AVR files of format version 10, written by ubrofdump and judged by the
// tools that read them: the HEX image against the model and through objcopy, the ELF file through
// readelf, llvm-dwarfdump, avr-objdump, avr-nm and avr-addr2line.
#include "ElfChecks.h"
#include "IntelHex.h"
#include "TestFiles.h"
#include "Tools.h"

#include "model/ProgramBuilder.h"

#include <boost/json/parse.hpp>

#include <cstdio>
#include <map>

namespace ubrof {
namespace {

class NewerAvrExport : public ::testing::TestWithParam<const char*> {};

TEST_P(NewerAvrExport, UbrofdumpWritesHexAndElfThatTheToolsReadAsTheModelHoldsThem)
{
    UBROF_NEED_REAL_FILES();
    for (const char* tool : {"objcopy", "avr-objdump", "avr-nm", "avr-addr2line", "readelf", "llvm-dwarfdump"})
        REQUIRE_TOOL(tool);
    const std::string input = test::realFile(GetParam());
    const model::Program program = model::loadProgram(input);
    test::ScratchDir dir;
    const std::string hex = dir.path("code.hex"), bin = dir.path("code.bin"), elf = dir.path("program.elf");
    for (const auto& [format, output] : {std::make_pair("ihex", hex), std::make_pair("bin", bin)}) {
        const test::ToolResult run = test::runUbrofdump({"export", input, "--format", format, "-o", output});
        ASSERT_EQ(0, run.status) << run.out << run.err;
    }
    std::map<uint32_t, uint8_t> expected;
    for (const model::ByteRun& run : program.memory(model::MemorySpace::Code)->runs)
        for (size_t i = 0; i < run.bytes.size(); ++i)
            expected[run.address + uint32_t(i)] = run.bytes[i];
    EXPECT_TRUE(expected == test::readIntelHex(hex)) << "the HEX file holds other bytes than the model";
    EXPECT_TRUE(test::fileText(bin) == test::objcopyToBinary(dir, hex, "ihex"))
        << "objcopy reads other bytes than the binary export holds";

    const test::ToolResult written = test::runUbrofdump({"--json", "export", input, "--format", "elf", "-o", elf});
    ASSERT_EQ(0, written.status) << written.out << written.err;
    EXPECT_EQ("", written.err);
    const boost::json::value answer = boost::json::parse(written.out).at("Export");
    EXPECT_EQ(program.processor.name, answer.at("Processor").as_string().c_str());
    EXPECT_EQ(program.functions.size(), answer.at("Functions").to_number<size_t>());

    test::expectCleanDebugInformation(elf);
    const size_t functions = test::expectObjdumpShowsFunctions(program, elf);
    const size_t symbols = test::expectNmListsSymbols(program, elf);
    const size_t rows = test::expectAddr2lineAgrees(program, elf);
    std::printf("%s: %zu functions at their entries under avr-objdump, %zu symbols in avr-nm, %zu line rows under "
                "avr-addr2line\n",
                GetParam(), functions, symbols, rows);
}

INSTANTIATE_TEST_SUITE_P(RealPrograms, NewerAvrExport,
                         ::testing::Values("avr-mega128-board/atmega128.d90", "avr-cama-suo/Suo.d90",
                                           "avr-cama-suo/D801oem.d90", "avr-mido-almdds/MIDO-ALMDDS-JST_v1_4.d90",
                                           "avr-usbcdc/USB_cdc_lib_demo.d90"));

} // namespace
} // namespace ubrof
