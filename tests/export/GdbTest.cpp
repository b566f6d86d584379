// avr-gdb reading the exported sample without running it: breakpoints by line, scopes, structure
// layouts, addresses and types as the model gives them.
#include "ElfChecks.h"
#include "SampleProgram.h"
#include "TestFiles.h"
#include "Tools.h"

#include "export/ElfExport.h"

#include <regex>
#include <sstream>

namespace ubrof {
namespace {

using model::Program;
using test::ScratchDir;

class GdbTest : public test::SampleElfTest {
protected:
    std::string gdb(const std::vector<std::string>& commands) { return test::gdbBatch(elf_, commands); }
};

TEST_F(GdbTest, BreakAtFileAndLineResolvesToTheLineTableAddress)
{
    REQUIRE_TOOL("avr-gdb");
    // Lines that do not start a function: there gdb would step over what it takes for a prologue.
    const std::vector<uint32_t> lines = {11, 21, 22, 23};
    std::vector<std::string> commands;
    for (const uint32_t line : lines)
        commands.push_back("break main.c:" + std::to_string(line));
    const std::string out = gdb(commands);
    for (const uint32_t line : lines) {
        uint32_t address = 0xFFFFFFFF;
        for (const model::LineRow& row : program_.lines)
            if (row.file == 1 && row.line == line && row.isStatement)
                address = std::min(address, row.address);
        std::ostringstream expected;
        expected << " at 0x" << std::hex << address << ": file C:/work/app/main.c, line " << std::dec << line << ".";
        EXPECT_NE(std::string::npos, out.find(expected.str())) << expected.str() << "\n" << out;
    }
}

TEST_F(GdbTest, InfoScopeListsParametersAndLocalsWithWhereTheyLive)
{
    REQUIRE_TOOL("avr-gdb");
    const std::string out = gdb({"info scope main.c:21"});
    EXPECT_NE(std::string::npos, out.find("Symbol doubled is a variable in $r24 [1-byte piece], and a variable in "
                                          "$r25 [1-byte piece], length 2."))
        << out;
    EXPECT_NE(std::string::npos, out.find("Symbol x is multi-location:\n  Range 0x28-0x34: a variable in $r16"));
    EXPECT_NE(std::string::npos,
              out.find("Symbol saved is multi-location:\n  Range 0x2a-0x3c: a variable at frame base reg $r28 offset 0+0"));
    EXPECT_NE(std::string::npos, gdb({"info scope main"}).find("Symbol calls is in static storage at address 0x800079, length 1."));
}

TEST_F(GdbTest, PtypeShowsStructureMembersAtTheModelsOffsets)
{
    REQUIRE_TOOL("avr-gdb");
    const std::string out = gdb({"ptype/o status"});
    const model::Type& status = program_.types[program_.variables[test::variableNamed(program_, "status")].type];
    for (const model::Type::Member& member : status.members) {
        // "/*      1: 1   |       1 */    unsigned char level : 3;"
        std::string offset = std::to_string(member.offset);
        if (member.bitSize != 0)
            offset += ": " + std::to_string(member.bitOffset);
        const std::regex line("/\\* +" + offset + " +\\| +[0-9]+ \\*/ +[a-z ]+ " + member.name +
                              (member.bitSize != 0 ? " : " + std::to_string(member.bitSize) : std::string()) + ";");
        EXPECT_TRUE(std::regex_search(out, line)) << member.name << "\n" << out;
    }
    EXPECT_NE(std::string::npos, out.find("/* total size (bytes):    4 */"));
}

TEST_F(GdbTest, GlobalsHaveTheirAddressesTypesAndInitialValues)
{
    REQUIRE_TOOL("avr-gdb");
    const std::string out = gdb({"info address counter", "info address ee_setting", "print table", "ptype handler",
                                 "print handler", "whatis level_byte", "ptype level_byte", "ptype grid",
                                 "ptype current", "whatis counter", "ptype split", "ptype message"});
    for (const char* expected : {"Symbol \"counter\" is static storage at address 0x800060.",
                                 "Symbol \"ee_setting\" is static storage at address 0x810000.",
                                 "$1 = {1, 2, 3, 4}", "type = int (*)(int)", "$2 = (int (*)(int)) 0x28 <scale>",
                                 "type = byte_t", "type = unsigned char\n", "type = unsigned char [2][3]",
                                 "type = enum mode {IDLE, RUN, STOPPED = -1}", "type = volatile unsigned char",
                                 "type = const union word {\n    int whole;\n    unsigned char bytes[2];\n}",
                                 "type = const unsigned char * @flash"})
        EXPECT_NE(std::string::npos, out.find(expected)) << expected << "\n" << out;
}

} // namespace
} // namespace ubrof
