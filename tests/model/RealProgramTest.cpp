// The program model of the real files, held against the linker's map and against the store.
#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "parser/TarnUbrofParser.h"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>

namespace ubrof::test {
namespace {

using namespace ubrof::model;
namespace fs = boost::filesystem;

// One segment part of a linker map: where it lies and the entries it defines.
struct MapPart {
    std::string memory; ///< CODE or DATA
    uint32_t address = 0;
    uint32_t size = 0; ///< 0 when the map gives none
    struct Entry {
        std::string name;
        uint32_t address = 0;
        bool isFunction = false;
        bool isInterrupt = false;
    };
    std::vector<Entry> entries;
};

// Reads the segment parts of a map: a "segment, address:" line opens one, an entry is a name
// (its address on the same line or the next), and a line that says "function" marks the entry
// above it.
std::vector<MapPart> readMap(const std::string& relative)
{
    std::ifstream in(realFile(relative));
    const std::regex part(R"(segment, address: (\w+) +([0-9A-F]{8})(?: - [0-9A-F]{8} \(0x([0-9a-f]+) bytes\))?)");
    const std::regex entry(R"(^ {11}([A-Za-z_]\w*)(?: +([0-9A-F]{8}))?\s*(?: .*)?$)");
    const std::regex address(R"(^ {20,}([0-9A-F]{8})\s*$)");
    std::vector<MapPart> parts;
    std::smatch match;
    bool pendingAddress = false;
    for (std::string line; std::getline(in, line);) {
        if (std::regex_search(line, match, part)) {
            parts.push_back({match[1], static_cast<uint32_t>(std::stoul(match[2], nullptr, 16)),
                             match[3].matched ? static_cast<uint32_t>(std::stoul(match[3], nullptr, 16)) : 0, {}});
        } else if (parts.empty()) {
            continue;
        } else if (std::regex_match(line, match, entry) && match[1] != "ENTRY") {
            parts.back().entries.push_back({match[1], 0, false, false});
            pendingAddress = !match[2].matched;
            if (match[2].matched)
                parts.back().entries.back().address = static_cast<uint32_t>(std::stoul(match[2], nullptr, 16));
        } else if (pendingAddress && std::regex_match(line, match, address)) {
            parts.back().entries.back().address = static_cast<uint32_t>(std::stoul(match[1], nullptr, 16));
            pendingAddress = false;
        } else if (!parts.back().entries.empty() && line.find(" function") != std::string::npos) {
            parts.back().entries.back().isFunction = true;
            parts.back().entries.back().isInterrupt = line.find("interrupt") != std::string::npos;
        }
    }
    return parts;
}

// A parsed copy (embedded sources would be written beside the file parsed) and its program.
struct RealProgram {
    ScratchDir dir;
    TarnUbrofParser store;
    Program program;
    double buildMilliseconds = 0;

    explicit RealProgram(const std::string& relative)
    {
        const fs::path source(realFile(relative));
        const std::string copy = dir.path(source.filename().string());
        fs::copy_file(source, copy);
        store.keepFacts = true;
        store.initialize();
        EXPECT_EQ(0, store.parseFile(copy));
        const auto start = std::chrono::steady_clock::now();
        program = buildProgram(store);
        buildMilliseconds =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
};

bool written(const Program& program, uint32_t address)
{
    const MemoryImage* code = program.memory(MemorySpace::Code);
    if (!code)
        return false;
    const auto after = std::upper_bound(code->runs.begin(), code->runs.end(), address,
                                        [](uint32_t a, const ByteRun& run) { return a < run.address; });
    return after != code->runs.begin() && address < (after - 1)->end();
}

// The linker's own account of nmea.d90: every function the file describes starts where the map
// places it and is as long as its segment part; every variable is where the map puts it.
TEST(RealPrograms, AgreeWithTheLinkerMap)
{
    const RealProgram real("avr-mobit-nmea/nmea.d90");
    const Program& program = real.program;
    const std::vector<MapPart> parts = readMap("avr-mobit-nmea/nmea.map");

    std::set<std::string> described;
    for (const Function& function : program.functions)
        if (function.isDescribed)
            described.insert(function.qualifiedName);
    size_t functions = 0, variables = 0;
    std::map<std::string, const MapPart*> partOf;
    for (const MapPart& part : parts)
        for (const MapPart::Entry& entry : part.entries) {
            partOf[entry.name] = &part;
            if (!entry.isFunction || !described.count(entry.name))
                continue;
            ++functions;
            const Function& function = program.functions.at(findFunctions(program, entry.name).at(0));
            EXPECT_EQ(entry.address, function.entry) << entry.name;
            EXPECT_EQ(part.size, function.size()) << entry.name;
            EXPECT_EQ(entry.isInterrupt, function.isInterrupt) << entry.name;
            const SourcePlace place = symbolize(program, entry.address);
            ASSERT_NE(kNone, place.function) << entry.name;
            EXPECT_EQ(entry.name, program.functions[place.function].qualifiedName);
            // The name stands on the function's header, before any line of its code.
            ASSERT_NE(nullptr, place.row) << entry.name;
            EXPECT_LE(function.line, place.row->line) << entry.name;
        }
    EXPECT_EQ(described.size(), functions) << "a function the file describes is not in the map";
    EXPECT_EQ(14u, functions);

    for (const Variable& variable : program.variables) {
        if (variable.location.kind != Location::Kind::Address || variable.function != kNone)
            continue;
        const auto found = partOf.find(variable.qualifiedName);
        ASSERT_NE(partOf.end(), found) << variable.qualifiedName << " is not in the map";
        ++variables;
        EXPECT_EQ(found->second->address, variable.location.address) << variable.qualifiedName;
        EXPECT_EQ(found->second->size, variable.size) << variable.qualifiedName;
        EXPECT_EQ(found->second->memory == "CODE" ? MemorySpace::Code : MemorySpace::Data, variable.location.space);
    }
    EXPECT_GT(variables, 40u);
    std::printf("nmea.d90: %zu functions at their map entries with their map sizes, %zu variables\n", functions,
                variables);
}

// The data records of an Intel HEX file by address (record types 02 and 04 move the base).
std::map<uint32_t, uint8_t> readHex(const std::string& relative)
{
    std::ifstream in(realFile(relative));
    std::map<uint32_t, uint8_t> bytes;
    uint32_t base = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.size() < 11 || line[0] != ':')
            continue;
        auto byteAt = [&line](size_t i) { return static_cast<uint8_t>(std::stoul(line.substr(1 + 2 * i, 2), nullptr, 16)); };
        const uint32_t count = byteAt(0), offset = uint32_t(byteAt(1)) << 8 | byteAt(2), type = byteAt(3);
        if (type == 0)
            for (uint32_t i = 0; i < count; ++i)
                bytes[base + offset + i] = byteAt(4 + i);
        else if (type == 2)
            base = (uint32_t(byteAt(4)) << 8 | byteAt(5)) << 4;
        else if (type == 4)
            base = (uint32_t(byteAt(4)) << 8 | byteAt(5)) << 16;
    }
    return bytes;
}

// The images the same links wrote: the model's memory holds every byte they hold but the
// flash's 0xFF fill, and nothing else.
TEST(RealPrograms, MemoriesEqualTheImagesOfTheSameLinks)
{
    const struct {
        const char* program;
        const char* image;
        MemorySpace space;
    } pairs[] = {
        {"avr-cama-suo/Suo.dbg", "avr-cama-suo/Suo.hex", MemorySpace::Code},
        {"avr-cama-suo/Suo.dbg", "avr-cama-suo/Suo.eep", MemorySpace::Eeprom},
        {"avr-mobit-nmea/nmea.d90", "avr-mobit-nmea/term.hex", MemorySpace::Code},
        {"avr-ethradio/NikeE1B.d90", "avr-ethradio/NikeE1B.ee.hex", MemorySpace::Eeprom},
    };
    for (const auto& pair : pairs) {
        const RealProgram real(pair.program);
        const MemoryImage* memory = real.program.memory(pair.space);
        ASSERT_NE(nullptr, memory) << pair.image;
        std::map<uint32_t, uint8_t> image = readHex(pair.image);
        uint64_t compared = 0;
        for (const ByteRun& run : memory->runs)
            for (uint32_t i = 0; i < run.bytes.size(); ++i, ++compared) {
                const auto found = image.find(run.address + i);
                ASSERT_NE(image.end(), found) << pair.image << " lacks " << run.address + i;
                EXPECT_EQ(found->second, run.bytes[i]) << pair.image << " at " << run.address + i;
                image.erase(found);
            }
        for (const auto& [address, byte] : image)
            EXPECT_EQ(0xFF, byte) << pair.image << " holds a byte the program does not at " << address;
        EXPECT_EQ(memory->byteCount(), compared);
    }
}

class OldFormatProgram : public ::testing::TestWithParam<const char*> {};

// In every file below version 9: each function starts at its symbol, none overlaps the next,
// every byte of a described function has a line, and the sizes add up.
TEST_P(OldFormatProgram, IsPlacedWholly)
{
    const RealProgram real(GetParam());
    const Program& program = real.program;
    const TarnUbrofParser& store = real.store;
    ASSERT_FALSE(program.functions.empty());

    // The store's own lines, for what the module answers today.
    std::vector<std::pair<uint32_t, uint32_t>> storeLines;
    for (const LineRecord& record : store.lineTable)
        storeLines.emplace_back(record.address, record.address + record.size);
    std::sort(storeLines.begin(), storeLines.end());
    auto storeHasLine = [&storeLines](uint32_t address) {
        auto after = std::upper_bound(storeLines.begin(), storeLines.end(), std::make_pair(address, UINT32_MAX));
        for (; after != storeLines.begin(); --after)
            if (address < (after - 1)->second)
                return true;
        return false;
    };

    size_t describedCount = 0;
    uint64_t withLine = 0, withoutLine = 0, storeWith = 0, storeWithout = 0;
    for (size_t i = 0; i < program.functions.size(); ++i) {
        const Function& function = program.functions[i];
        if (i + 1 < program.functions.size()) {
            EXPECT_LE(function.end, program.functions[i + 1].entry) << function.qualifiedName;
        }
        std::set<uint32_t> symbolEntries;
        for (const SymbolRecord& symbol : store.symbolTable.symbols)
            if (symbol.kind >= 1 && symbol.kind <= 4 && symbol.addressSpace != 2 &&
                store.nameTable.nameText(symbol.nameIndex) == function.name)
                symbolEntries.insert(symbol.value);
        EXPECT_TRUE(symbolEntries.count(function.entry)) << function.qualifiedName;
        if (!function.isDescribed)
            continue;
        ++describedCount;
        for (uint32_t address = function.entry; address < function.end; ++address) {
            if (!written(program, address))
                continue;
            const LineRow* row = program.lineAt(address);
            EXPECT_TRUE(row && row->function == i) << function.qualifiedName << " at " << address;
            (row ? withLine : withoutLine) += 1;
            (storeHasLine(address) ? storeWith : storeWithout) += 1;
        }
    }
    EXPECT_EQ(0u, withoutLine);

    const MemoryImage* code = program.memory(MemorySpace::Code);
    ASSERT_NE(nullptr, code);
    uint64_t modules = 0;
    for (const Module& module : program.modules) {
        uint64_t functions = 0;
        for (uint32_t f : module.functions)
            functions += program.functions[f].size();
        EXPECT_LE(functions, module.size(MemorySpace::Code)) << module.name;
        modules += module.size(MemorySpace::Code);
    }
    EXPECT_LE(modules, code->byteCount());
    if (const MemoryImage* eeprom = program.memory(MemorySpace::Eeprom)) {
        uint64_t inEeprom = 0;
        for (const Module& module : program.modules)
            inEeprom += module.size(MemorySpace::Eeprom);
        EXPECT_LE(inEeprom, eeprom->byteCount());
    }
    std::printf("%s: %zu functions (%zu described); function bytes with a line: %llu, without: %llu "
                "(the store's lines: %llu with, %llu without); modules %llu of %llu code bytes; built in %.1f ms\n",
                GetParam(), program.functions.size(), describedCount, (unsigned long long)withLine,
                (unsigned long long)withoutLine, (unsigned long long)storeWith, (unsigned long long)storeWithout,
                (unsigned long long)modules, (unsigned long long)code->byteCount(), real.buildMilliseconds);
}

INSTANTIATE_TEST_SUITE_P(RealPrograms, OldFormatProgram,
                         ::testing::Values("avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90",
                                           "avr-mobit-nmea/nmea.d90"));

} // namespace
} // namespace ubrof::test
