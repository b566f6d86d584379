// The exported sample in simavr: it runs without a fault, and the check would see one.
#include "SampleProgram.h"
#include "Simulator.h"

#include "export/ElfExport.h"

#include <algorithm>

namespace ubrof {
namespace {

using model::Program;
using test::ScratchDir;

// The sample runs for a second without a fault; with its first instruction replaced by
// `sts 0x2000, r16`, a store far past the ATmega16's RAM, the same check sees one.
TEST(Simulator, RunsTheExportForASecondWithoutAFaultAndWouldSeeOneInBrokenCode)
{
    REQUIRE_TOOL("simavr");
    ScratchDir dir;
    const std::string elf = dir.path("sample.elf");
    Program program = test::sampleAvrProgram();
    exporter::writeElf(program, elf);
    const test::ToolResult run = test::simulateForASecond(elf);
    EXPECT_TRUE(run.timedOut) << "simavr stopped by itself:\n" << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("Loaded 64 .text at address 0x0")) << run.out << run.err;
    EXPECT_FALSE(test::simulatorFaulted(run)) << run.out << run.err;

    std::vector<uint8_t>& code = program.memories[0].runs.front().bytes;
    std::copy_n(std::vector<uint8_t>{0x00, 0x93, 0x00, 0x20}.begin(), 4, code.begin());
    exporter::writeElf(program, elf);
    EXPECT_TRUE(test::simulatorFaulted(test::simulateForASecond(elf)));
}

} // namespace
} // namespace ubrof
