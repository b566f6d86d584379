// The exports of the real AVR files of format version 10, judged by the tools that read them: the
// HEX image through objcopy, the ELF file through readelf, llvm-dwarfdump, avr-objdump and avr-nm.
#include "IntelHex.h"
#include "TestFiles.h"
#include "Tools.h"

#include "export/ElfExport.h"
#include "export/ElfTarget.h"
#include "export/ImageExport.h"
#include "model/ProgramBuilder.h"

#include <boost/json/parse.hpp>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace ubrof {
namespace {

using model::MemorySpace;
using model::Program;
using test::runTool;
using test::ScratchDir;
using test::ToolResult;

class NewerAvrExport : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        UBROF_NEED_REAL_FILES();
        program_ = model::loadProgram(test::realFile(GetParam()));
    }

    ToolResult run(const std::vector<std::string>& argv)
    {
        ToolResult result = runTool(argv);
        EXPECT_EQ(0, result.status) << argv[0] << ": " << result.err;
        return result;
    }

    ScratchDir dir_;
    Program program_;
};

// objcopy reads the HEX file back as exactly the bytes the binary export writes.
TEST_P(NewerAvrExport, HexReadsBackThroughObjcopyAsTheBinaryImage)
{
    REQUIRE_TOOL("objcopy");
    const std::string hex = dir_.path("code.hex"), copied = dir_.path("objcopy.bin");
    exporter::writeIntelHex(program_, MemorySpace::Code, hex);
    std::ostringstream binary;
    exporter::writeBinary(program_, MemorySpace::Code, binary);
    run({"objcopy", "-I", "ihex", "-O", "binary", "--gap-fill", "0xff", hex, copied});
    std::ifstream in(copied, std::ios::binary);
    const std::string read((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(program_.memory(MemorySpace::Code)->endAddress() - program_.memory(MemorySpace::Code)->lowAddress(),
              read.size());
    EXPECT_TRUE(binary.str() == read) << "objcopy reads other bytes than the binary export holds";
}

// The ELF file: DWARF that readelf and llvm-dwarfdump accept, each function at its entry with the
// image's bytes under avr-objdump, and every function and variable at its address and size in avr-nm.
TEST_P(NewerAvrExport, ElfPassesTheGnuAndLlvmTools)
{
    REQUIRE_TOOL("readelf");
    REQUIRE_TOOL("llvm-dwarfdump");
    REQUIRE_TOOL("avr-objdump");
    REQUIRE_TOOL("avr-nm");
    const std::string elf = dir_.path("program.elf");
    exporter::writeElf(program_, elf);
    EXPECT_EQ("", run({"readelf", "--debug-dump=info,line,aranges,loc", elf}).err);
    const std::string verified = run({"llvm-dwarfdump", "--verify", elf}).out;
    EXPECT_NE(std::string::npos, verified.find("No errors.")) << verified;

    // "  4e0:\t0e 94 5f 02 \tcall\t0x4be": the bytes at each address; "000004e0 <main>:" the labels.
    std::map<uint32_t, std::string> bytesAt;
    std::multimap<uint32_t, std::string> labels;
    const std::regex instruction(R"(^\s*([0-9a-f]+):\t([0-9a-f ]+)\t?)"), label(R"(^([0-9a-f]{8}) <(.+)>:$)");
    std::stringstream listing(run({"avr-objdump", "-d", elf}).out);
    std::smatch m;
    for (std::string line; std::getline(listing, line);) {
        if (std::regex_search(line, m, instruction))
            bytesAt[static_cast<uint32_t>(std::stoul(m[1], nullptr, 16))] = m[2];
        else if (std::regex_search(line, m, label))
            labels.emplace(static_cast<uint32_t>(std::stoul(m[1], nullptr, 16)), m[2]);
    }
    const model::MemoryImage& code = *program_.memory(MemorySpace::Code);
    auto imageByte = [&code](uint32_t address) -> int {
        for (const model::ByteRun& run : code.runs)
            if (run.address <= address && address < run.end())
                return run.bytes[address - run.address];
        return -1;
    };
    for (const model::Function& function : program_.functions) {
        SCOPED_TRACE(function.qualifiedName);
        bool labelled = false;
        for (auto [at, end] = labels.equal_range(function.entry); at != end; ++at)
            labelled = labelled || at->second == function.qualifiedName;
        EXPECT_TRUE(labelled);
        std::string shown, expected;
        char text[4];
        for (auto at = bytesAt.lower_bound(function.entry); at != bytesAt.end() && at->first < function.end; ++at)
            shown += at->second;
        for (uint32_t a = function.entry; a < function.end; ++a) {
            std::snprintf(text, sizeof text, "%02x", imageByte(a) & 0xFF);
            expected += text;
        }
        shown.erase(std::remove(shown.begin(), shown.end(), ' '), shown.end());
        EXPECT_EQ(expected, shown.substr(0, expected.size()));
    }

    std::multimap<std::string, std::pair<uint32_t, uint32_t>> listed; // name -> address, size
    std::stringstream symbols(run({"avr-nm", "-S", elf}).out);
    for (std::string address, size, kind, name; symbols >> address >> size >> kind >> name;)
        listed.emplace(name, std::make_pair(std::stoul(address, nullptr, 16), std::stoul(size, nullptr, 16)));
    const exporter::ElfTarget target = exporter::elfTargetFor(program_);
    size_t checked = 0;
    auto expectListed = [&](const std::string& name, MemorySpace space, uint32_t address, uint32_t size) {
        ++checked;
        const auto wanted = std::make_pair(target.address(space, address, name.c_str()), size);
        bool found = false;
        for (auto [at, end] = listed.equal_range(name); at != end; ++at)
            found = found || at->second == wanted;
        EXPECT_TRUE(found) << name << " at 0x" << std::hex << wanted.first << ", " << std::dec << size << " bytes";
    };
    for (const model::Function& function : program_.functions)
        expectListed(function.qualifiedName, MemorySpace::Code, function.entry, function.size());
    for (const model::Variable& variable : program_.variables)
        if (variable.location.kind == model::Location::Kind::Address && variable.size != 0)
            expectListed(variable.qualifiedName, variable.location.space, variable.location.address, variable.size);

    // .debug_line: avr-addr2line finds the model's line at the start of every row.
    REQUIRE_TOOL("avr-addr2line");
    std::vector<std::string> argv = {"avr-addr2line", "-e", elf};
    char address[16];
    for (const model::LineRow& row : program_.lines) {
        std::snprintf(address, sizeof address, "0x%x", row.address);
        argv.push_back(address);
    }
    std::stringstream places(run(argv).out);
    size_t agreeing = 0;
    for (const model::LineRow& row : program_.lines) {
        std::string place, file = program_.files.at(row.file).path;
        std::getline(places, place);
        std::replace(file.begin(), file.end(), '\\', '/');
        agreeing += place == file + ":" + std::to_string(row.line);
        EXPECT_EQ(file + ":" + std::to_string(row.line), place) << "at 0x" << std::hex << row.address;
    }
    std::printf("%s: %zu functions at their entries under avr-objdump, %zu symbols in avr-nm, %zu of %zu line rows "
                "under avr-addr2line\n",
                GetParam(), program_.functions.size(), checked, agreeing, program_.lines.size());
}

// ubrofdump writes the same through its command line: the HEX file every code byte of the model, at
// its address, and the ELF file for the processor the file names, with each function the model has.
TEST_P(NewerAvrExport, UbrofdumpExportsIntelHexAndElf)
{
    const std::string hex = dir_.path("code.hex"), elf = dir_.path("program.elf");
    const std::string input = test::realFile(GetParam());
    const ToolResult ihex = test::runUbrofdump({"--json", "export", input, "--format", "ihex", "-o", hex});
    ASSERT_EQ(0, ihex.status) << ihex.out << ihex.err;
    std::map<uint32_t, uint8_t> expected;
    for (const model::ByteRun& run : program_.memory(MemorySpace::Code)->runs)
        for (size_t i = 0; i < run.bytes.size(); ++i)
            expected[run.address + uint32_t(i)] = run.bytes[i];
    EXPECT_TRUE(expected == test::readIntelHex(hex)) << "the HEX file holds other bytes than the model";

    const ToolResult written = test::runUbrofdump({"--json", "export", input, "--format", "elf", "-o", elf});
    ASSERT_EQ(0, written.status) << written.out << written.err;
    const boost::json::value answer = boost::json::parse(written.out).at("Export");
    EXPECT_EQ(program_.processor.name, answer.at("Processor").as_string().c_str());
    EXPECT_EQ(program_.functions.size(), answer.at("Functions").to_number<size_t>());
    EXPECT_EQ("", written.err);
}

INSTANTIATE_TEST_SUITE_P(RealPrograms, NewerAvrExport,
                         ::testing::Values("avr-mega128-board/atmega128.d90", "avr-cama-suo/Suo.d90",
                                           "avr-cama-suo/D801oem.d90", "avr-mido-almdds/MIDO-ALMDDS-JST_v1_4.d90",
                                           "avr-usbcdc/USB_cdc_lib_demo.d90"));

} // namespace
} // namespace ubrof
