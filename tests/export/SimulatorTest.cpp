// The exported sample in simavr: it runs without a fault, and avr-gdb debugs it there the way a
// user debugs firmware. simavr serves gdb on port 1234, so these tests hold one lock (CMakeLists).
#include "SampleProgram.h"
#include "TestFiles.h"
#include "Tools.h"

#include "export/ElfExport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace ubrof {
namespace {

using model::Program;
using test::ScratchDir;

/// What simavr says when the program faults: the core's complaints, and its crash handler, which
/// also opens the gdb port for a post-mortem.
bool faulted(const test::ToolResult& run)
{
    const std::string said = run.out + run.err;
    for (const char* sign : {"CORE: ***", "avr_sadly_crashed", "Invalid", "avr_gdb_init"})
        if (said.find(sign) != std::string::npos)
            return true;
    return false;
}

/// simavr for about a second, the device taken from the ELF file alone.
test::ToolResult simulate(const std::string& elf)
{
    return test::runTool({"simavr", "-v", "-v", elf}, 1.0);
}

TEST(Simulator, RunsTheExportForASecondWithoutAFault)
{
    REQUIRE_TOOL("simavr");
    ScratchDir dir;
    const std::string elf = dir.path("sample.elf");
    exporter::writeElf(test::sampleAvrProgram(), elf);
    const test::ToolResult run = simulate(elf);
    EXPECT_TRUE(run.timedOut) << "simavr stopped by itself:\n" << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("Loaded 64 .text at address 0x0")) << run.out << run.err;
    EXPECT_FALSE(faulted(run)) << run.out << run.err;
}

TEST(Simulator, WouldSeeAFaultInBrokenCode)
{
    REQUIRE_TOOL("simavr");
    // The same program with its first instruction replaced by `sts 0x2000, r16`, a store far past
    // the ATmega16's RAM: the check above has to be able to fail.
    Program broken = test::sampleAvrProgram();
    std::vector<uint8_t>& code = broken.memories[0].runs.front().bytes;
    code[0] = 0x00;
    code[1] = 0x93;
    code[2] = 0x00;
    code[3] = 0x20;
    ScratchDir dir;
    const std::string elf = dir.path("broken.elf");
    exporter::writeElf(broken, elf);
    EXPECT_TRUE(faulted(simulate(elf)));
}

bool portOpen(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool open = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return open;
}

TEST(Simulator, GdbStopsAtMainStepsAndReadsVariablesFromTheSimulatedMemory)
{
    REQUIRE_TOOL("simavr");
    REQUIRE_TOOL("avr-gdb");
    ScratchDir dir;
    const std::string elf = dir.path("sample.elf");
    exporter::writeElf(test::sampleAvrProgram(), elf);
    ASSERT_FALSE(portOpen(1234)) << "something else holds port 1234";
    test::BackgroundTool simavr({"simavr", "-g", elf});
    // Probing the port would take the simulator's one gdb connection (and let it run on when closed),
    // so wait for it to listen by retrying gdb's own connection while it is refused.
    test::ToolResult session;
    for (int attempt = 0; attempt < 50; ++attempt) {
        session = test::runTool({"avr-gdb", "-batch", "-nx", "-ex", "target remote 127.0.0.1:1234", "-ex",
                                 "break main", "-ex", "continue", "-ex", "next", "-ex", "bt", "-ex", "print counter",
                                 "-ex", "delete 1", "-ex", "break main.c:22", "-ex", "continue", "-ex", "info locals", "-ex", "print x",
                                 "-ex", "print total", "-ex", "bt", "-ex", "kill", elf},
                                30);
        if ((session.out + session.err).find("Connection refused") == std::string::npos || !simavr.running())
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const std::string out = session.out + session.err;
    // gdb stops on main past what it takes for main's prologue (line 10), `next` moves it to line
    // 12, and counter has been incremented once. In scale, on the second pass, x has left r16:r17,
    // saved and doubled are read through Y and r24:r25, and total holds the first pass's 3 * 3.
    for (const char* expected : {"Breakpoint 1, main () at C:/work/app/main.c:11", "\n12\t",
                                 "#0  main () at C:/work/app/main.c:12", "$1 = 1 '\\001'",
                                 "Breakpoint 2, scale (x=<optimized out>) at C:/work/app/main.c:22",
                                 "doubled = 6\nsaved = 3", "$2 = <optimized out>", "$3 = 9",
                                 "#1  0x0000001e in main () at C:/work/app/main.c:11"})
        EXPECT_NE(std::string::npos, out.find(expected)) << expected << "\n" << out;
}

} // namespace
} // namespace ubrof
