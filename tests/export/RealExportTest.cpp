// The real files through `ubrofdump export`, judged by the images their own links wrote, by objcopy,
// binutils and LLVM, and by avr-gdb held against the model and the module; files of format version
// 10 get the checks that need no statement lines.
#include "ElfChecks.h"
#include "IntelHex.h"
#include "TestFiles.h"
#include "Tools.h"

#include "host/ISourceInformation.h"
#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "parser/UbrofParser.h"

#include <boost/json/parse.hpp>

#include <algorithm>
#include <cctype>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace ubrof {
namespace {

namespace json = boost::json;
using model::MemorySpace;
using model::Program;
using test::ScratchDir;

std::string hex(uint64_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

/// `ubrofdump --json export`'s answer; fails the test when it does not write the file.
json::object exportWithUbrofdump(const std::string& input, const std::string& format, const std::string& output,
                                 std::vector<std::string> options = {})
{
    std::vector<std::string> args = {"--json", "export", input, "--format", format, "-o", output};
    args.insert(args.end(), options.begin(), options.end());
    const test::ToolResult run = test::runUbrofdump(args);
    EXPECT_EQ(0, run.status) << run.out << run.err;
    EXPECT_EQ("", run.err);
    const json::value document = json::parse(run.out);
    return document.at("Export").as_object();
}

struct ImagePair {
    const char* program;
    const char* memory;
    const char* image; ///< written by the program's own link
};

const ImagePair kImagePairs[] = {
    {"avr-cama-suo/Suo.dbg", "code", "avr-cama-suo/Suo.hex"},
    {"avr-cama-suo/Suo.dbg", "eeprom", "avr-cama-suo/Suo.eep"},
    {"avr-mobit-nmea/nmea.d90", "code", "avr-mobit-nmea/term.hex"},
    {"avr-ethradio/NikeE1B.d90", "eeprom", "avr-ethradio/NikeE1B.ee.hex"},
};

// The HEX export equals the image the program's own link wrote, and the HEX and S-record exports
// read back through objcopy as the binary export, gaps filled with the byte asked for.
TEST(RealImages, HexExportsEqualTheLinksImagesAndReadBackThroughObjcopy)
{
    UBROF_NEED_REAL_FILES();
    REQUIRE_TOOL("objcopy");
    for (const ImagePair& pair : kImagePairs) {
        SCOPED_TRACE(pair.image);
        ScratchDir dir;
        const std::string input = test::realFile(pair.program), hexFile = dir.path("export.hex");
        const std::vector<std::string> memory = {"--memory", pair.memory};
        const json::object answer = exportWithUbrofdump(input, "ihex", hexFile, memory);
        // Both programs start at their reset vector, which only a code image records.
        EXPECT_EQ(std::string(pair.memory) == "code", answer.contains("EntryPoint"));
        if (answer.contains("EntryPoint")) {
            EXPECT_EQ(0u, answer.at("EntryPoint").to_number<uint64_t>());
        }
        const std::map<uint32_t, uint8_t> ours = test::readIntelHex(hexFile);
        const std::map<uint32_t, uint8_t> theirs = test::readIntelHex(test::realFile(pair.image));
        ASSERT_FALSE(theirs.empty());
        // Every address the link's file covers: our byte, or the erased flash's 0xFF where the
        // program writes nothing; and nothing of ours outside what it covers.
        size_t equal = 0, filled = 0;
        for (const auto& [address, byte] : theirs) {
            const auto found = ours.find(address);
            if (found == ours.end()) {
                EXPECT_EQ(0xFF, byte) << "at " << hex(address) << ", which the export leaves out";
                ++filled;
                continue;
            }
            EXPECT_EQ(int(byte), int(found->second)) << "at " << hex(address);
            ++equal;
        }
        EXPECT_EQ(ours.size(), equal) << "the export writes bytes the link did not";
        std::printf("%s: %zu bytes equal, %zu bytes of 0xFF fill beyond the export\n", pair.image, equal, filled);

        const json::object binary = exportWithUbrofdump(input, "bin", dir.path("export.bin"), memory);
        exportWithUbrofdump(input, "srec", dir.path("export.srec"), memory);
        const std::string bytes = test::fileText(dir.path("export.bin"));
        EXPECT_EQ(bytes, test::objcopyToBinary(dir, hexFile, "ihex"));
        EXPECT_EQ(bytes, test::objcopyToBinary(dir, dir.path("export.srec"), "srec"));
        EXPECT_EQ(binary.at("Low"), binary.at("BaseAddress"));
        EXPECT_EQ(bytes.size(), binary.at("End").to_number<uint64_t>() - binary.at("Low").to_number<uint64_t>());
    }
}

const char* const kElfFiles[] = {"avr-mobit-nmea/nmea.d90", "avr-ethradio/NikeE1B.d90", "avr-cama-suo/Suo.dbg"};
// Files of format version 10: their exports get every check that needs no statement lines.
const char* const kNewerElfFiles[] = {"avr-mega128-board/atmega128.d90", "avr-cama-suo/Suo.d90", "avr-cama-suo/D801oem.d90",
                                      "avr-mido-almdds/MIDO-ALMDDS-JST_v1_4.d90", "avr-usbcdc/USB_cdc_lib_demo.d90"};

/// Each real file's ELF export, written by ubrofdump, beside the program model it came from.
class RealElf : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        UBROF_NEED_REAL_FILES();
        input_ = test::realFile(GetParam());
        elf_ = dir_.path("export.elf");
        const json::object answer = exportWithUbrofdump(input_, "elf", elf_);
        ASSERT_FALSE(HasFailure());
        program_ = model::loadProgram(input_);
        EXPECT_EQ(program_.processor.name, answer.at("Processor").as_string().c_str());
    }

    /// Names that more than one function or global variable carries, which gdb cannot tell apart by name.
    std::set<std::string> sharedNames() const
    {
        std::map<std::string, int> count;
        for (const model::Function& function : program_.functions)
            ++count[function.qualifiedName];
        for (const model::Variable& variable : program_.variables)
            if (variable.function == model::kNone)
                ++count[variable.qualifiedName];
        std::set<std::string> shared;
        for (const auto& [name, times] : count)
            if (times > 1)
                shared.insert(name);
        return shared;
    }

    ScratchDir dir_;
    std::string input_, elf_;
    Program program_;
};

/// The files with statement lines, which gdb is held to as a user would debug them.
class RealGdb : public RealElf {};

// Each function at its entry with the image's bytes, every function and variable of the symbol
// listing with its address and size, the model's function and line at every line row, and DWARF
// that readelf and llvm-dwarfdump find no fault in.
TEST_P(RealElf, BinutilsAndLlvmReadItAsTheModelHoldsIt)
{
    for (const char* tool : {"avr-objdump", "avr-nm", "avr-addr2line", "readelf", "llvm-dwarfdump"})
        REQUIRE_TOOL(tool);
    const size_t functions = test::expectObjdumpShowsFunctions(program_, elf_);
    const size_t symbols = test::expectNmListsSymbols(program_, elf_);
    const size_t rows = test::expectAddr2lineAgrees(program_, elf_);
    test::expectCleanDebugInformation(elf_);

    // The HEX export holds the model's code bytes, no more and no fewer.
    exportWithUbrofdump(input_, "ihex", dir_.path("code.hex"));
    std::map<uint32_t, uint8_t> expected;
    for (const model::ByteRun& run : program_.memory(MemorySpace::Code)->runs)
        for (size_t i = 0; i < run.bytes.size(); ++i)
            expected[run.address + uint32_t(i)] = run.bytes[i];
    EXPECT_TRUE(expected == test::readIntelHex(dir_.path("code.hex"))) << "the HEX file holds other bytes than the model";
    std::printf("%s: avr-objdump shows %zu functions at their entries, avr-nm lists the model's %zu symbols, "
                "avr-addr2line agrees at %zu line rows\n",
                GetParam(), functions, symbols, rows);
}

// Every source line the module maps to an address: gdb breaks there. Lines at a function's entry
// are left out, since gdb moves a breakpoint there past what it takes for the prologue. The module
// is asked in the test's own process, and `ubrofdump line2addr` for every hundredth line, to show
// that both give the same answer.
TEST_P(RealGdb, GdbBreaksAtEachLineWhereTheModuleSaysItsCodeIs)
{
    REQUIRE_TOOL("avr-gdb");
    const UbrofParser module(input_);
    const auto source = module.createSourceInformation();
    std::set<uint32_t> entries;
    for (const model::Function& function : program_.functions)
        entries.insert(function.entry);
    std::set<std::pair<uint32_t, uint32_t>> lines; // file, line
    for (const model::LineRow& row : program_.lines)
        if (row.file != model::kNone)
            lines.emplace(row.file, row.line);

    // gdb takes a file by its base name; one that two source files share would be ambiguous.
    std::map<std::string, int> baseNames;
    auto baseName = [](std::string path) { return path.substr(path.find_last_of("/\\") + 1); };
    for (const model::SourceFile& file : program_.files)
        ++baseNames[baseName(file.path)];

    std::vector<std::string> commands, expected; // what gdb is asked, and must say, in order
    for (const auto& [file, line] : lines) {
        const std::string& path = program_.files[file].path;
        if (baseNames[baseName(path)] != 1)
            continue;
        tarn::Status status;
        std::vector<tarn::AddressNamePair> addresses;
        if (!source->getAddressesFromSingleStatement(status, path, tarn::CodeLocation{line, 0}, addresses) ||
            addresses.empty() || entries.count(static_cast<uint32_t>(addresses[0].address)))
            continue;
        if (commands.size() % 100 == 0) {
            const test::ToolResult run = test::runUbrofdump({"--json", "line2addr", input_, path, std::to_string(line)});
            const json::value answer = json::parse(run.out);
            EXPECT_EQ(addresses[0].address, answer.at("Addresses").at(0).at("Address").to_number<uint64_t>()) << run.out;
        }
        commands.push_back("break " + baseName(path) + ":" + std::to_string(line));
        std::string shown = path;
        std::replace(shown.begin(), shown.end(), '\\', '/');
        expected.push_back(" at " + hex(addresses[0].address) + ": file " + shown + ", line " + std::to_string(line) + ".");
    }
    ASSERT_GT(commands.size(), 10u);
    const std::vector<std::string> answers = test::gdbEach(elf_, commands);
    size_t agreed = 0;
    for (size_t i = 0; i < commands.size(); ++i) {
        const bool found = answers[i].find(expected[i]) != std::string::npos;
        EXPECT_TRUE(found) << commands[i] << ": expected" << expected[i] << "\n" << answers[i];
        agreed += found;
    }
    std::printf("%s: gdb breaks at the module's address for %zu of %zu lines\n", GetParam(), agreed, commands.size());
}

// info scope of each function lists its locals and parameters, and info address of each global
// gives its address in GNU's AVR windows.
TEST_P(RealGdb, GdbInfoScopeListsEachFunctionsLocalsAndInfoAddressEachGlobalsAddress)
{
    REQUIRE_TOOL("avr-gdb");
    const std::set<std::string> shared = sharedNames();
    std::vector<std::string> commands;
    std::vector<std::vector<std::string>> expected; // what each answer must hold
    for (const model::Function& function : program_.functions) {
        if (function.variables.empty() || shared.count(function.qualifiedName))
            continue;
        commands.push_back("info scope " + function.qualifiedName);
        expected.emplace_back();
        for (uint32_t v : function.variables)
            expected.back().push_back("Symbol " + program_.variables[v].name + " is ");
    }
    const size_t scopes = commands.size();
    for (const model::Variable& variable : program_.variables) {
        if (variable.function != model::kNone || variable.location.kind != model::Location::Kind::Address ||
            shared.count(variable.qualifiedName))
            continue;
        commands.push_back("info address " + variable.qualifiedName);
        expected.push_back({"Symbol \"" + variable.qualifiedName + "\" is static storage at address " +
                            hex(test::avrElfAddress(variable.location.space, variable.location.address)) + "."});
    }
    ASSERT_GT(commands.size(), scopes) << "no global with an address";
    const std::vector<std::string> answers = test::gdbEach(elf_, commands);
    for (size_t i = 0; i < commands.size(); ++i)
        for (const std::string& part : expected[i])
            EXPECT_NE(std::string::npos, answers[i].find(part)) << commands[i] << ": " << part << "\n" << answers[i];
    std::printf("%s: info scope lists the locals of %zu functions, info address agrees for %zu globals\n", GetParam(),
                scopes, commands.size() - scopes);
}

bool isAggregate(const model::Type& type)
{
    return type.kind == model::Type::Kind::Structure || type.kind == model::Type::Kind::Union ||
           type.kind == model::Type::Kind::Class;
}

/// Checks the lines ptype/o shows for the members of an aggregate that starts `base` bytes into
/// the variable, nested aggregates included; answers how many members it checked. A structure's
/// member shows "/* OFFSET[: BIT] | SIZE */ TYPE NAME[...][ : BITS];", a union's only its size; an
/// aggregate member opens with "struct {" and closes with "} NAME;".
size_t expectMembersShown(const Program& program, const std::string& answer, const model::Type& type, uint32_t base)
{
    size_t checked = 0;
    for (const model::Type::Member& member : type.members) {
        SCOPED_TRACE(member.name + " at " + std::to_string(base + member.offset));
        std::string prefix = "/\\* +[0-9]+ \\*/ +";
        if (type.kind != model::Type::Kind::Union) {
            prefix = "/\\* +" + std::to_string(base + member.offset);
            if (member.bitSize != 0)
                prefix += ": *" + std::to_string(member.bitOffset);
            prefix += " +\\| +[0-9]+ \\*/ +";
        }
        // gdb writes out an aggregate's members in place unless a typedef names it.
        uint32_t resolved = member.type;
        for (int depth = 0; depth < 8 && resolved < program.types.size(); ++depth) {
            const model::Type& t = program.types[resolved];
            if (t.kind != model::Type::Kind::Const && t.kind != model::Type::Kind::Volatile)
                break;
            resolved = t.target;
        }
        if (resolved < program.types.size() && isAggregate(program.types[resolved])) {
            EXPECT_TRUE(std::regex_search(answer, std::regex(prefix + "(struct|union|class)[^\n]*\\{")));
            EXPECT_NE(std::string::npos, answer.find("}" + (member.name.empty() ? "" : " " + member.name) + ";"));
            checked += 1 + expectMembersShown(program, answer, program.types[resolved], base + member.offset);
            continue;
        }
        const std::string bits = member.bitSize != 0 ? " : " + std::to_string(member.bitSize) : std::string();
        EXPECT_TRUE(std::regex_search(answer, std::regex(prefix + "[^\n]*\\b" + member.name + "(\\[[0-9]+\\])*" + bits + ";")));
        ++checked;
    }
    return checked;
}

TEST_P(RealGdb, GdbPtypeShowsStructureMembersAtTheModelsOffsets)
{
    REQUIRE_TOOL("avr-gdb");
    const std::set<std::string> shared = sharedNames();
    std::vector<std::string> commands;
    std::vector<const model::Type*> types;
    for (const model::Variable& variable : program_.variables) {
        if (variable.function != model::kNone || variable.type >= program_.types.size() || shared.count(variable.qualifiedName))
            continue;
        const model::Type& type = program_.types[program_.types[variable.type].resolved];
        if (!isAggregate(type))
            continue;
        commands.push_back("ptype/o " + variable.qualifiedName);
        types.push_back(&type);
    }
    ASSERT_FALSE(commands.empty()) << "no global of a structure type";
    const std::vector<std::string> answers = test::gdbEach(elf_, commands);
    size_t members = 0;
    for (size_t i = 0; i < types.size(); ++i) {
        SCOPED_TRACE(commands[i] + "\n" + answers[i]);
        members += expectMembersShown(program_, answers[i], *types[i], 0);
        const std::regex total("/\\* total size \\(bytes\\): +" + std::to_string(types[i]->size) + " \\*/");
        EXPECT_TRUE(std::regex_search(answers[i], total));
    }
    std::printf("%s: ptype/o of %zu aggregate variables shows their %zu members\n", GetParam(), types.size(), members);
}

std::string fileTestName(const ::testing::TestParamInfo<const char*>& info)
{
    std::string name = info.param;
    name = name.substr(name.find('/') + 1);
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Files, RealElf, ::testing::ValuesIn(kElfFiles), fileTestName);
INSTANTIATE_TEST_SUITE_P(NewerFiles, RealElf, ::testing::ValuesIn(kNewerElfFiles), fileTestName);
INSTANTIATE_TEST_SUITE_P(Files, RealGdb, ::testing::ValuesIn(kElfFiles), fileTestName);

} // namespace
} // namespace ubrof
