// The ELF export of the sample judged by binutils and LLVM: header and layout, disassembly at each
// function, the symbol table, addresses to lines, and DWARF that readelf and llvm-dwarfdump accept.
#include "ElfChecks.h"
#include "SampleProgram.h"
#include "TestFiles.h"
#include "Tools.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"

#include <regex>
#include <sstream>

namespace ubrof {
namespace {

using model::MemorySpace;
using model::Program;
using test::runTool;
using test::ScratchDir;
using test::ToolResult;

class ElfExportTest : public test::SampleElfTest {
protected:
    ToolResult run(std::vector<std::string> argv)
    {
        ToolResult result = runTool(argv);
        EXPECT_EQ(0, result.status) << argv[0] << ": " << result.err;
        return result;
    }
};

// Symbols bind as the model's external flag says, and FILE symbols name the modules.
TEST_F(ElfExportTest, HeaderSegmentsSectionsAndSymbolsFollowTheGnuAvrLayout)
{
    REQUIRE_TOOL("readelf");
    const std::string out = run({"readelf", "-hlSsW", elf_}).out;
    for (const char* expected : {"Machine:                           Atmel AVR 8-bit microcontroller",
                                 "Flags:                             0x5, avr:5",
                                 "Type:                              EXEC (Executable file)",
                                 "FUNC    GLOBAL DEFAULT    1 main", "FUNC    LOCAL  DEFAULT    1 scale",
                                 "OBJECT  LOCAL  DEFAULT    2 handler", "OBJECT  LOCAL  DEFAULT  ABS main::calls",
                                 "OBJECT  GLOBAL DEFAULT    3 ee_setting", "FILE    LOCAL  DEFAULT  ABS main.c"})
        EXPECT_NE(std::string::npos, out.find(expected)) << expected << "\n" << out;
    for (const char* load : {"0x00000000 0x00000000 0x00040 0x00040 R E 0x2", "0x00800067 0x00800067 0x0000a 0x0000a RW  0x1",
                             "0x00810000 0x00810000 0x00002 0x00002 RW  0x1"})
        EXPECT_TRUE(std::regex_search(out, std::regex(std::string("LOAD +0x[0-9a-f]+ ") + load))) << load;
    for (const char* name : {".text", ".data", ".eeprom", ".mmcu", ".debug_info", ".debug_abbrev", ".debug_line",
                             ".debug_loc", ".debug_aranges", ".symtab", ".strtab"})
        EXPECT_NE(std::string::npos, out.find(std::string(name) + " ")) << name;
}

// Debug information the readers find no fault in, with what gdb does not show as a DWARF reader sees
// it. (Locations are held by the gdb test; disassembly, symbols and lines on the real files.)
TEST_F(ElfExportTest, LlvmReadsTheDebugInformationAsTheModelHoldsIt)
{
    REQUIRE_TOOL("readelf");
    REQUIRE_TOOL("llvm-dwarfdump");
    test::expectCleanDebugInformation(elf_);
    const std::string info = run({"llvm-dwarfdump", "--debug-info", elf_}).out;
    for (const char* expected : {"DW_AT_producer\t(\"sample compiler 1.0\")", "DW_AT_name\t(\"C:/work/app/main.c\")",
                                 "DW_AT_name\t(\"C:/work/app/cstartup.s90\")", "DW_AT_language\t(DW_LANG_C99)",
                                 "DW_TAG_lexical_block", "DW_AT_data_bit_offset\t(9)", "DW_AT_upper_bound\t(2)"})
        EXPECT_NE(std::string::npos, info.find(expected)) << expected << "\n" << info;
}

TEST(ElfExport, LocationListsFillTheGapsBetweenRangesWithTheDefaultLocation)
{
    REQUIRE_TOOL("llvm-dwarfdump");
    Program program = test::sampleAvrProgram();
    // x: on the frame below Y by default, in r16:r17 over the start of scale, a known value at its end.
    model::Variable& x = program.variables[test::variableNamed(program, "x")];
    x.location.kind = model::Location::Kind::FrameOffset;
    x.location.offset = -3;
    model::Location constant;
    constant.kind = model::Location::Kind::Constant;
    constant.address = 300;
    x.ranges.push_back({0x3C, 0x40, constant});
    ScratchDir dir;
    exporter::writeElf(program, dir.path("sample.elf"));
    const std::string info = runTool({"llvm-dwarfdump", "--debug-info", dir.path("sample.elf")}).out;
    const std::string expected = "DW_AT_location\\t\\(0x[0-9a-f]+: \n"
                                 " +\\[0x00000028, 0x00000034\\): DW_OP_reg16 [^\n]+, DW_OP_piece 0x1, DW_OP_reg17 [^\n]+, "
                                 "DW_OP_piece 0x1\n"
                                 " +\\[0x00000034, 0x0000003c\\): DW_OP_fbreg -3\n"
                                 " +\\[0x0000003c, 0x00000040\\): DW_OP_constu 0x12c, DW_OP_stack_value\\)\n"
                                 " +DW_AT_name\\t\\(\"x\"\\)";
    EXPECT_TRUE(std::regex_search(info, std::regex(expected))) << info;
    EXPECT_NE(std::string::npos, runTool({"llvm-dwarfdump", "--verify", dir.path("sample.elf")}).out.find("No errors."));
}

TEST(ElfExport, OtherFamiliesGetTheirMachineCodesAndKeepTheirAddresses)
{
    REQUIRE_TOOL("readelf");
    REQUIRE_TOOL("llvm-dwarfdump");
    struct Case {
        model::Family family;
        std::string processor, core, machine, flags, dataAt;
    };
    const std::string msp430 = "Texas Instruments msp430 microcontroller";
    const Case cases[] = {
        {model::Family::Msp430, "MSP430F5529", "430X", msp430, "0x2d", "00000200"},
        {model::Family::Msp430, "MSP430G2553", "430", msp430, "0xb", "00000200"},
        {model::Family::Rl78, "R5F100LE", "rl78_1", "Renesas RL78", "0x8", "00000200"},
        {model::Family::I8051, "CC2530F256", "plain", "Intel 8051 and variants", "0x0", "01000200"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.processor);
        Program program = test::tinyProgram(c.family, c.processor);
        program.attributes = {{"__core", c.core}};
        model::MemoryImage data;
        data.space = MemorySpace::Data;
        data.runs = {{0x200, {1, 2}}};
        program.memories.push_back(data);
        ScratchDir dir;
        const std::string elf = dir.path("tiny.elf");
        exporter::writeElf(program, elf);
        const ToolResult header = runTool({"readelf", "-hSW", elf});
        EXPECT_NE(std::string::npos, header.out.find("Machine:                           " + c.machine)) << header.out;
        EXPECT_NE(std::string::npos, header.out.find("Flags:                             " + c.flags)) << header.out;
        EXPECT_TRUE(std::regex_search(header.out, std::regex("\\.text +PROGBITS +00000100 ")));
        EXPECT_TRUE(std::regex_search(header.out, std::regex("\\.data +PROGBITS +" + c.dataAt + " ")));
        const ToolResult verify = runTool({"llvm-dwarfdump", "--verify", elf});
        EXPECT_NE(std::string::npos, verify.out.find("No errors.")) << verify.out;
    }
}

// An 8051's external data lies apart from its internal data at the same addresses; a family that has
// no external data has no window to place such a variable in.
TEST(ElfExport, The8051sExternalDataHasAWindowOfItsOwn)
{
    REQUIRE_TOOL("readelf");
    Program program = test::tinyProgram(model::Family::I8051, "CC2530F256");
    for (const auto& [name, space] : {std::make_pair("inside", MemorySpace::Data), std::make_pair("outside", MemorySpace::External)}) {
        model::Variable variable;
        variable.name = variable.qualifiedName = name;
        variable.size = 2;
        variable.module = 0;
        variable.location.kind = model::Location::Kind::Address;
        variable.location.space = space;
        variable.location.address = 0x40;
        program.variables.push_back(variable);
    }
    ScratchDir dir;
    exporter::writeElf(program, dir.path("tiny.elf"));
    const std::string symbols = runTool({"readelf", "-sW", dir.path("tiny.elf")}).out;
    EXPECT_TRUE(std::regex_search(symbols, std::regex("01000040 +2 OBJECT .* inside\n"))) << symbols;
    EXPECT_TRUE(std::regex_search(symbols, std::regex("03000040 +2 OBJECT .* outside\n"))) << symbols;

    program.processor = {model::Family::Rl78, "R5F100LE"};
    EXPECT_EQ("outside: xdata address 0x40 lies beyond the 0x0 bytes this processor's xdata memory has",
              test::refusalOf([&] { exporter::writeElf(program, dir.path("rl78.elf")); }));
}

// Nothing is written for a program that no ELF header fits, and the refusal says why.
TEST(ElfExport, RefusesProgramsWhoseProcessorHasNoElfForm)
{
    Program tooHigh = test::sampleAvrProgram();
    tooHigh.variables[test::variableNamed(tooHigh, "counter")].location.address = 0x12345;
    const std::pair<Program, std::string> cases[] = {
        {test::tinyProgram(model::Family::Unknown, ""),
         "the program does not say which processor family it is for, so no ELF machine code can be chosen"},
        {test::tinyProgram(model::Family::Unknown, "Z80"),
         "processor Z80: of no processor family with an ELF machine code, so no ELF header can be made for it"},
        {test::tinyProgram(model::Family::Avr, ""), "the program does not name its processor, so no ELF header can be made for it"},
        {test::tinyProgram(model::Family::Avr, "ATmega9999"),
         "processor ATmega9999: not an AVR device whose architecture is known, so no ELF header can be made for it"},
        {tooHigh, "counter: data address 0x12345 lies beyond the 0x10000 bytes this processor's data memory has"},
    };
    for (const auto& [program, message] : cases) {
        std::ostringstream out;
        EXPECT_EQ(message, test::refusalOf([&] { exporter::writeElf(program, out); }));
        EXPECT_TRUE(out.str().empty()) << message;
    }
}

TEST(ElfExport, AModelThatBreaksItsPromisesStillGivesAFileTheToolsRead)
{
    REQUIRE_TOOL("llvm-dwarfdump");
    Program program = test::sampleAvrProgram();
    const uint32_t count = static_cast<uint32_t>(program.types.size());
    model::Type loop; // two typedefs naming each other
    loop.kind = model::Type::Kind::Typedef;
    loop.name = "a";
    loop.target = count + 1;
    program.types.push_back(loop);
    loop.name = "b";
    loop.target = count;
    program.types.push_back(loop);
    model::Type odd;
    odd.kind = model::Type::Kind::Structure;
    odd.name = "odd";
    odd.members = {{"lost", 9999, 0, 0, 0}};
    program.types.push_back(odd);

    model::Variable& x = program.variables[test::variableNamed(program, "x")];
    x.type = count;
    x.ranges.push_back({0x30, 0x20, x.ranges.front().location}); // backwards
    x.ranges.push_back({0x28, 0x40, x.ranges.front().location});  // over the first
    x.ranges.back().location.registerCount = 1000;
    program.variables[test::variableNamed(program, "doubled")].location.kind = model::Location::Kind::Computed;
    program.variables[test::variableNamed(program, "status")].type = count + 2;
    program.variables[test::variableNamed(program, "total")].module = 77;
    program.blocks[0].blocks = {0, 42}; // itself, and one that does not exist
    model::Function lost;
    lost.name = lost.qualifiedName = "lost";
    lost.module = 55;
    lost.entry = 0x30;
    lost.end = 0x20;
    lost.type = 4242;
    lost.blocks = {7};
    lost.variables = {9999};
    program.functions.push_back(lost);
    program.lines.push_back({0x40, 0x42, model::kNone, 5, 0, model::kNone, true});

    ScratchDir dir;
    exporter::writeElf(program, dir.path("broken.elf"));
    const test::ToolResult verify = runTool({"llvm-dwarfdump", "--verify", dir.path("broken.elf")});
    EXPECT_NE(std::string::npos, verify.out.find("No errors.")) << verify.out;
}

// The header takes the part's own architecture; simavr reads the device from .mmcu, and a part it
// lacks is named by the relative that runs its programs alike, where there is one.
TEST(ElfExport, AvrArchitectureAndSimulatedDeviceComeFromThePart)
{
    REQUIRE_TOOL("readelf");
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"ATmega16A", "0x5, avr:5", "atmega16"},     {"ATmega64", "0x5, avr:5", "atmega128"},
        {"AT90USB1287", "0x33, avr:51", "at90usb1287"}, {"ATtiny13", "0x19, avr:25", ""},
        {"ATxmega128A1", "0x6b, avr:107", ""},       {"ATmega2560", "0x6, avr:6", ""},
    };
    for (const auto& [device, flags, simulated] : cases) {
        SCOPED_TRACE(device);
        ScratchDir dir;
        exporter::writeElf(test::tinyProgram(model::Family::Avr, device), dir.path("tiny.elf"));
        const ToolResult header = runTool({"readelf", "-h", "-p", ".mmcu", dir.path("tiny.elf")});
        EXPECT_NE(std::string::npos, header.out.find("Flags:                             " + flags)) << header.out;
        if (!simulated.empty()) {
            EXPECT_NE(std::string::npos, header.out.find("]  " + simulated + "\n")) << header.out;
        }
    }
}

} // namespace
} // namespace ubrof
