// The shared checks of an exported ELF file: each runs the real tool and reads what it prints.
#include "ElfChecks.h"

#include "Tools.h"

#include "model/ProgramQueries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <map>
#include <regex>
#include <sstream>

namespace ubrof::test {

using model::MemorySpace;
using model::Program;

namespace {

std::string hex(uint64_t value, int width = 8)
{
    std::ostringstream text;
    text << std::hex << std::setw(width) << std::setfill('0') << value;
    return text.str();
}

std::string output(const std::vector<std::string>& argv)
{
    const ToolResult result = runTool(argv);
    EXPECT_EQ(0, result.status) << argv[0] << ": " << result.err;
    return result.out;
}

/// The byte the ELF file's code holds at address: what the program writes there, else the fill.
int imageByte(const model::MemoryImage& code, uint32_t address)
{
    const auto after = std::upper_bound(code.runs.begin(), code.runs.end(), address,
                                        [](uint32_t a, const model::ByteRun& run) { return a < run.address; });
    if (after == code.runs.begin() || address >= (after - 1)->end())
        return 0xFF;
    return (after - 1)->bytes[address - (after - 1)->address];
}

} // namespace

uint32_t avrElfAddress(MemorySpace space, uint32_t address)
{
    return address + (space == MemorySpace::Data ? 0x800000 : space == MemorySpace::Eeprom ? 0x810000 : 0);
}

size_t expectObjdumpShowsFunctions(const Program& program, const std::string& elf)
{
    // -z: runs of zero bytes are disassembled too, not shown as "...".
    std::stringstream listing(output({"avr-objdump", "-d", "-z", elf}));
    const std::regex label("^([0-9a-f]{8}) <(.+)>:$");
    const std::regex instruction("^ *([0-9a-f]+):\t([0-9a-f ]+)\t.*$");
    std::map<uint32_t, std::string> labels;
    std::map<uint32_t, std::vector<uint8_t>> shown; // address -> bytes of the instruction there
    std::smatch match;
    for (std::string line; std::getline(listing, line);) {
        if (std::regex_match(line, match, label)) {
            labels[static_cast<uint32_t>(std::stoul(match[1], nullptr, 16))] = match[2];
        } else if (std::regex_match(line, match, instruction)) {
            std::stringstream bytes(match[2]);
            std::vector<uint8_t>& at = shown[static_cast<uint32_t>(std::stoul(match[1], nullptr, 16))];
            for (std::string byte; bytes >> byte;)
                at.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
        }
    }
    const model::MemoryImage* code = program.memory(MemorySpace::Code);
    if (code == nullptr) {
        ADD_FAILURE() << "the program has no code";
        return 0;
    }
    std::map<uint32_t, std::vector<std::string>> namesAt;
    for (const model::Function& function : program.functions)
        namesAt[function.entry].push_back(function.qualifiedName);
    size_t checked = 0;
    for (const model::Function& function : program.functions) {
        if (function.size() == 0 || function.qualifiedName.empty())
            continue;
        SCOPED_TRACE(function.qualifiedName + " at 0x" + hex(function.entry));
        // Where two functions share an entry, objdump labels it with one of them.
        const std::vector<std::string>& names = namesAt[function.entry];
        if (!labels.count(function.entry)) {
            ADD_FAILURE() << "no label at the entry";
            continue;
        }
        EXPECT_NE(names.end(), std::find(names.begin(), names.end(), labels[function.entry]))
            << "labelled " << labels[function.entry];
        // Instruction after instruction from the entry, none missing, to the function's end.
        uint32_t address = function.entry;
        while (address < function.end) {
            const auto found = shown.find(address);
            if (found == shown.end()) {
                ADD_FAILURE() << "no instruction at 0x" << hex(address);
                break;
            }
            for (uint8_t byte : found->second) {
                EXPECT_EQ(imageByte(*code, address), byte) << "at 0x" << hex(address);
                ++address;
            }
        }
        ++checked;
    }
    EXPECT_GT(checked, 0u);
    return checked;
}

size_t expectNmListsSymbols(const Program& program, const std::string& elf)
{
    std::multimap<std::string, std::pair<std::string, std::string>> listed; // name -> address, size
    std::stringstream out(output({"avr-nm", "-S", elf}));
    const std::regex withSize("^([0-9a-f]{8}) ([0-9a-f]{8}) [A-Za-z] (.+)$");
    const std::regex withoutSize("^([0-9a-f]{8}) [A-Za-z] (.+)$");
    std::smatch match;
    for (std::string line; std::getline(out, line);) {
        if (std::regex_match(line, match, withSize))
            listed.emplace(match[3], std::make_pair(match[1], match[2]));
        else if (std::regex_match(line, match, withoutSize))
            listed.emplace(match[2], std::make_pair(match[1], hex(0)));
    }
    size_t expected = 0;
    for (const model::SymbolEntry& entry : model::listSymbols(program)) {
        if (entry.qualifiedName->empty())
            continue;
        ++expected;
        const auto wanted = std::make_pair(hex(avrElfAddress(entry.space, entry.address)), hex(entry.size));
        const auto [first, last] = listed.equal_range(*entry.qualifiedName);
        const bool found = std::any_of(first, last, [&](const auto& listing) { return listing.second == wanted; });
        EXPECT_TRUE(found) << *entry.qualifiedName << " at " << wanted.first << ", " << wanted.second
                           << " bytes, is not listed so";
    }
    EXPECT_GT(expected, 0u);
    EXPECT_EQ(expected, listed.size()) << "avr-nm lists symbols the model does not";
    return expected;
}

size_t expectAddr2lineAgrees(const Program& program, const std::string& elf)
{
    EXPECT_FALSE(program.lines.empty());
    // One run for every row: addr2line answers two lines (function, place) per address, in order.
    std::vector<std::string> argv = {"avr-addr2line", "-f", "-e", elf};
    for (const model::LineRow& row : program.lines)
        argv.push_back("0x" + hex(row.address));
    std::stringstream out(output(argv));
    for (const model::LineRow& row : program.lines) {
        SCOPED_TRACE("0x" + hex(row.address));
        std::string function, place;
        if (!std::getline(out, function) || !std::getline(out, place)) {
            ADD_FAILURE() << "avr-addr2line answers no more";
            return 0;
        }
        const model::SourcePlace expected = model::symbolize(program, row.address);
        if (expected.row == nullptr) {
            ADD_FAILURE() << "the model's row is not found at its own address";
            continue;
        }
        EXPECT_EQ(expected.function == model::kNone ? "??" : program.functions[expected.function].name, function);
        std::string file = expected.row->file < program.files.size() ? program.files[expected.row->file].path : "??";
        std::replace(file.begin(), file.end(), '\\', '/');
        EXPECT_EQ(file + ":" + std::to_string(expected.row->line), place);
    }
    return program.lines.size();
}

void expectCleanDebugInformation(const std::string& elf)
{
    const ToolResult dump = runTool({"readelf", "--debug-dump=info,line,aranges,loc", elf});
    EXPECT_EQ(0, dump.status);
    EXPECT_EQ("", dump.err);
    EXPECT_EQ(std::string::npos, dump.out.find("Warning")) << "readelf warns";
    const ToolResult verify = runTool({"llvm-dwarfdump", "--verify", elf});
    EXPECT_EQ(0, verify.status) << verify.out;
    EXPECT_NE(std::string::npos, verify.out.find("No errors.")) << verify.out;
    EXPECT_EQ(std::string::npos, (verify.out + verify.err).find("warning:")) << verify.out << verify.err;
}

std::vector<std::string> gdbEach(const std::string& elf, const std::vector<std::string>& commands)
{
    // gdb goes on after a command fails and says why on standard error, so a failing command
    // leaves an empty answer, which the expectations on it catch.
    static const std::string kMarker = "@@ubrof-next-command@@";
    std::vector<std::string> argv = {"avr-gdb", "-batch", "-nx"};
    for (const std::string& command : commands)
        argv.insert(argv.end(), {"-ex", command, "-ex", "echo " + kMarker + "\\n"});
    argv.push_back(elf);
    const ToolResult result = runTool(argv, 300);
    EXPECT_EQ(0, result.status) << result.err;
    std::vector<std::string> answers;
    size_t at = 0;
    for (size_t next; (next = result.out.find(kMarker + "\n", at)) != std::string::npos; at = next + kMarker.size() + 1)
        answers.push_back(result.out.substr(at, next - at));
    EXPECT_EQ(commands.size(), answers.size()) << result.err;
    answers.resize(commands.size());
    return answers;
}

} // namespace ubrof::test
