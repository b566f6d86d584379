// avr-gdb reading the exported sample without running it: breakpoints by line, where parameters and
// locals live, structure layouts, addresses, types and initial values as the model gives them.
#include "ElfChecks.h"
#include "SampleProgram.h"
#include "Tools.h"

namespace ubrof {
namespace {

class GdbTest : public test::SampleElfTest {};

TEST_F(GdbTest, ReadsTheSampleAsTheModelGivesIt)
{
    REQUIRE_TOOL("avr-gdb");
    // Breakpoints on lines that do not start a function: there gdb would step over a prologue.
    const std::vector<std::string> commands = {
        "break main.c:11", "break main.c:21", "break main.c:22", "break main.c:23", "info scope main.c:21",
        "info scope main", "ptype/o status", "info address counter", "info address ee_setting", "print table",
        "ptype handler", "print handler", "whatis level_byte", "ptype level_byte", "ptype grid", "ptype current",
        "whatis counter", "ptype split", "ptype message"};
    std::string out;
    for (const std::string& answer : test::gdbEach(elf_, commands))
        out += answer;
    for (const char* expected :
         {" at 0x18: file C:/work/app/main.c, line 11.", " at 0x2e: file C:/work/app/main.c, line 21.",
          " at 0x34: file C:/work/app/main.c, line 22.", " at 0x3c: file C:/work/app/main.c, line 23.",
          "Symbol doubled is a variable in $r24 [1-byte piece], and a variable in $r25 [1-byte piece], length 2.",
          "Symbol x is multi-location:\n  Range 0x28-0x34: a variable in $r16",
          "Symbol saved is multi-location:\n  Range 0x2a-0x3c: a variable at frame base reg $r28 offset 0+0",
          "Symbol calls is in static storage at address 0x800079, length 1.", "/* total size (bytes):    4 */",
          "Symbol \"counter\" is static storage at address 0x800060.",
          "Symbol \"ee_setting\" is static storage at address 0x810000.", "$1 = {1, 2, 3, 4}", "type = int (*)(int)",
          "$2 = (int (*)(int)) 0x28 <scale>", "type = byte_t", "type = unsigned char\n", "type = unsigned char [2][3]",
          "type = enum mode {IDLE, RUN, STOPPED = -1}", "type = volatile unsigned char",
          "type = const union word {\n    int whole;\n    unsigned char bytes[2];\n}",
          "type = const unsigned char * @flash"})
        EXPECT_NE(std::string::npos, out.find(expected)) << expected << "\n" << out;

}

} // namespace
} // namespace ubrof
