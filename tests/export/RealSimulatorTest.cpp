// The real files' ELF exports in simavr: each runs for a second on the device it names, and nmea.d90
// is debugged there with avr-gdb as its author would. One lock with SimulatorTest.cpp (CMakeLists).
#include "Simulator.h"
#include "TestFiles.h"

#include <algorithm>

namespace ubrof {
namespace {

using test::ScratchDir;

std::string exportElf(const ScratchDir& dir, const std::string& input)
{
    const std::string elf = dir.path("export.elf");
    const test::ToolResult run = test::runUbrofdump({"export", input, "--format", "elf", "-o", elf});
    EXPECT_EQ(0, run.status) << run.out << run.err;
    return elf;
}

struct SimulatedFile {
    const char* file;
    const char* device; ///< as simavr knows it: atmega128.d90's ATmega128A runs as its ATmega128
};

std::ostream& operator<<(std::ostream& out, const SimulatedFile& file)
{
    return out << file.file;
}

class RealSimulator : public ::testing::TestWithParam<SimulatedFile> {};

TEST_P(RealSimulator, RunsForASecondOnTheDeviceItNamesWithoutAFault)
{
    UBROF_NEED_REAL_FILES();
    REQUIRE_TOOL("simavr");
    REQUIRE_TOOL("readelf");
    ScratchDir dir;
    const std::string elf = exportElf(dir, test::realFile(GetParam().file));
    ASSERT_FALSE(HasFailure());
    // simavr takes the device from the .mmcu section.
    const test::ToolResult mmcu = test::runTool({"readelf", "-p", ".mmcu", elf});
    EXPECT_NE(std::string::npos, mmcu.out.find("]  " + std::string(GetParam().device) + "\n")) << mmcu.out;

    const test::ToolResult run = test::simulateForASecond(elf);
    EXPECT_TRUE(run.timedOut) << "simavr stopped by itself:\n" << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find(" .text at address 0x0")) << run.out << run.err;
    EXPECT_FALSE(test::simulatorFaulted(run)) << run.out << run.err;
}

INSTANTIATE_TEST_SUITE_P(Files, RealSimulator,
                         ::testing::Values(SimulatedFile{"avr-mobit-nmea/nmea.d90", "atmega16"},
                                           SimulatedFile{"avr-ethradio/NikeE1B.d90", "atmega32"},
                                           SimulatedFile{"avr-cama-suo/Suo.dbg", "atmega16"},
                                           SimulatedFile{"avr-mega128-board/atmega128.d90", "atmega128"}),
                         [](const auto& info) {
                             std::string name = info.param.file;
                             name = name.substr(name.find('/') + 1);
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// Stop at main, step over the calls that set the device up, look at the stack and at the memory the
// program wrote: USART_Init loads 0x67 (103) into UBRRL, which the simulated UART then runs at.
TEST(RealSimulator, GdbDebugsNmeaAsItsAuthorWould)
{
    UBROF_NEED_REAL_FILES();
    REQUIRE_TOOL("simavr");
    REQUIRE_TOOL("avr-gdb");
    ScratchDir dir;
    const std::string elf = exportElf(dir, test::realFile("avr-mobit-nmea/nmea.d90"));
    ASSERT_FALSE(HasFailure());
    const test::ToolResult session =
        test::debugInSimulator(elf, {"break main", "continue", "next", "print _A_UBRRL.UBRRL", "next",
                                     "print _A_UBRRL.UBRRL", "bt", "print crc8_table[1]", "kill"});
    const std::string out = session.out + session.err;
    // main's first line (26) calls IO_Init; gdb stops after it, on line 27 (SW_Init), and each
    // `next` steps over one call: 28 calls USART_Init, 29 SPIInit.
    for (const char* expected : {"Breakpoint 1, main () at D:/work/argos/RS_RADIO/main.c:27\n", "\n28\t",
                                 "$1 = 0 '\\000'\n", "\n29\t", "$2 = 103 'g'\n",
                                 "#0  main () at D:/work/argos/RS_RADIO/main.c:29\n",
                                 // The CRC-8 table (polynomial 0x31, so entry 1 is 0x31) lies in flash.
                                 "$3 = 49 '1'\n"})
        EXPECT_NE(std::string::npos, out.find(expected)) << expected << "\n" << out;
}

} // namespace
} // namespace ubrof
