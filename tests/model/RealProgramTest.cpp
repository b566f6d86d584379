// The program model of the real files, parsed as loadProgram parses them with the store kept for
// what the model leaves out: every mapped file against its linker map; those below version 9 against
// the images of the same links and placed wholly; those of versions 10 and 11 read whole, held
// against atmega128's listings and failing clearly when cut short or changed; light builds against full.
#include "IntelHex.h"
#include "LinkerMap.h"
#include "TagStarts.h"
#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "parser/TarnUbrofParser.h"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

namespace ubrof::test {
namespace {

using namespace ubrof::model;
namespace fs = boost::filesystem;

/// A parsed copy (embedded sources would be written beside the file parsed) and its program.
struct RealProgram {
    ScratchDir dir;
    TarnUbrofParser store;
    model::Program program;

    explicit RealProgram(const std::string& relative)
    {
        const std::string copy = dir.path(fs::path(relative).filename().string());
        fs::copy_file(realFile(relative), copy);
        store.keepFacts = store.readNewerVersions = true;
        store.initialize();
        EXPECT_EQ(0, store.parseFile(copy)) << store.parseError;
        program = model::buildProgram(store);
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

// The images the same links wrote: the model's memory holds every byte they hold but the
// flash's 0xFF fill, and nothing else.
TEST(RealPrograms, MemoriesEqualTheImagesOfTheSameLinks)
{
    UBROF_NEED_REAL_FILES();
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
        std::map<uint32_t, uint8_t> image = readIntelHex(realFile(pair.image));
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

// A light build reads a store that kept no image bytes, code areas, name index or rows; what it
// answers must still be what the full build answers, the processor included (Suo.dbg names no CPU,
// but its sources include the ATmega16's register header, iom16.h).
TEST(RealPrograms, LightBuildsAnswerAsFullOnesDo)
{
    UBROF_NEED_REAL_FILES();
    BuildOptions lightOptions;
    lightOptions.light = true;
    for (const auto& [file, processor] : std::vector<std::pair<const char*, const char*>>{
             {"avr-cama-suo/Suo.dbg", "AVR ATmega16"}, {"avr-mega128-board/atmega128.d90", nullptr}}) {
        SCOPED_TRACE(file);
        TarnUbrofParser store;
        store.keepFacts = store.readNewerVersions = store.facts.light = true;
        store.initialize();
        ASSERT_EQ(0, store.parseFile(realFile(file)));
        const NewerFormatFacts& facts = store.facts.newer;
        EXPECT_TRUE(facts.rows.empty() && facts.functionLines.empty() && facts.positions.empty() &&
                    facts.symbolSources.empty() && facts.stackUses.empty() && facts.functionSizes.empty());
        const Program light = buildProgram(store, lightOptions);
        const Program full = loadProgram(realFile(file));
        EXPECT_TRUE(light.functions.empty() && light.lines.empty());
        EXPECT_TRUE(!processor || processor == std::string(familyName(full.processor.family)) + " " + full.processor.name);
        EXPECT_EQ(full.processor.name, light.processor.name);
        EXPECT_EQ(full.entryPoint, light.entryPoint);
        ASSERT_EQ(full.memories.size(), light.memories.size());
        for (size_t m = 0; m < full.memories.size(); ++m) {
            const MemoryImage& a = full.memories[m];
            const MemoryImage& b = light.memories[m];
            EXPECT_EQ(std::make_tuple(a.space, a.lowAddress(), a.endAddress(), a.byteCount()),
                      std::make_tuple(b.space, b.lowAddress(), b.endAddress(), b.byteCount()));
        }
        ASSERT_EQ(full.modules.size(), light.modules.size());
        for (size_t m = 0; m < full.modules.size(); ++m)
            for (MemorySpace space : {MemorySpace::Code, MemorySpace::Data, MemorySpace::Eeprom, MemorySpace::External})
                EXPECT_EQ(full.modules[m].size(space), light.modules[m].size(space)) << full.modules[m].name;
    }
}

std::string baseName(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Every real file, read to its end: each function starts at a symbol of its name and ends before the
// next begins; each row lies inside its function's code and every written byte of a described
// function has one; in versions 10 and 11 a row also lies within the lines its function's line
// program spans, unless it is the function's own line standing in for rows not understood; and below
// version 9 the functions of a module add up to at most its size, the modules to at most their memory's.
TEST(RealPrograms, ArePlacedWhollyWithEveryRowInsideItsFunction)
{
    UBROF_NEED_REAL_FILES();
    std::vector<std::string> files = newerRealFiles();
    EXPECT_EQ(12u, files.size());
    files.insert(files.begin(), {"avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90", "avr-mobit-nmea/nmea.d90"});
    for (const std::string& relative : files) {
        SCOPED_TRACE(relative);
        const RealProgram real(relative);
        const Program& program = real.program;
        const TarnUbrofParser& store = real.store;
        ASSERT_FALSE(program.functions.empty());
        EXPECT_FALSE(program.processor.name.empty());
        EXPECT_TRUE(program.version < 10 || fs::file_size(realFile(relative)) == store.facts.newer.endOffset)
            << "read to byte " << store.facts.newer.endOffset;

        std::map<uint32_t, const NewerFormatFacts::FunctionLines*> extentAt;
        for (const NewerFormatFacts::FunctionLines& record : store.facts.newer.functionLines) {
            if (!record.understood)
                continue;
            extentAt.emplace(record.address, &record);
            for (uint32_t i = record.firstRow; i < record.firstRow + record.rowCount; ++i)
                EXPECT_FALSE(store.facts.newer.rows.at(i).fallback) << "an understood program's row";
        }
        for (const LineRow& row : program.lines) {
            ASSERT_LT(row.function, program.functions.size());
            const Function& function = program.functions[row.function];
            EXPECT_TRUE(function.entry <= row.address && row.address < row.end && row.end <= function.end)
                << function.name << " at " << row.address;
            if (program.version < 10 || (row.file == function.file && row.line == function.line))
                continue;
            const auto extent = extentAt.find(function.entry);
            ASSERT_NE(extentAt.end(), extent) << function.name << " has rows but no line program";
            const PlacedExtent& lines = extent->second->extent;
            EXPECT_EQ(lines.file, row.file) << function.name;
            EXPECT_TRUE(lines.line <= row.line && row.line <= lines.line + lines.extent.extraLines)
                << function.name << ": line " << row.line;
        }

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
            for (uint32_t address = function.entry; function.isDescribed && address < function.end; ++address) {
                const LineRow* row = program.lineAt(address);
                EXPECT_TRUE(!written(program, address) || (row && row->function == i))
                    << function.qualifiedName << " at " << address;
            }
        }

        uint64_t covered = 0, bytes = 0;
        for (const LineRow& row : program.lines)
            covered += row.end - row.address;
        for (const Function& function : program.functions)
            bytes += function.isDescribed ? function.size() : 0;
        EXPECT_EQ(bytes, covered);

        // The newer files' modules also count the segment parts the file sizes but does not write.
        for (MemorySpace space : {MemorySpace::Code, MemorySpace::Eeprom}) {
            if (program.version >= 10)
                break;
            uint64_t modules = 0;
            for (const Module& module : program.modules) {
                uint64_t functions = 0;
                for (uint32_t f : module.functions)
                    functions += space == MemorySpace::Code ? program.functions[f].size() : 0;
                EXPECT_LE(functions, module.size(space)) << module.name;
                modules += module.size(space);
            }
            const MemoryImage* memory = program.memory(space);
            EXPECT_LE(modules, memory ? memory->byteCount() : 0);
        }
    }
}

struct MappedFile {
    const char* program;
    const char* map;
};

class ProgramAgainstItsMap : public ::testing::TestWithParam<MappedFile> {};

// Every function the file describes and the map lists starts where the map says, is as long as its
// segment part, says whether it handles interrupts and how much stack it takes as the map does, and
// symbolizes at its entry to itself and the line of its name. Every variable the map lists is where
// the map puts it (and, in the older maps, as large as its part). nmea.d90 is the old format's.
TEST_P(ProgramAgainstItsMap, PlacesFunctionsAndVariablesWhereTheLinkerDid)
{
    UBROF_NEED_REAL_FILES();
    const RealProgram real(GetParam().program);
    const Program& program = real.program;
    const LinkerMap map = readLinkerMap(realFile(GetParam().map));
    ASSERT_FALSE(map.entries.empty());
    if (map.entryPoint) {
        EXPECT_EQ(map.entryPoint, program.entryPoint);
    }

    auto listed = [&](const SymbolEntry& symbol, const std::string& name) -> const MapEntry* {
        const std::string module = symbol.module < program.modules.size() ? program.modules[symbol.module].name : "";
        const MapEntry* entry = map.find(module, name);
        return entry && entry->address ? entry : nullptr;
    };
    size_t described = 0, functions = 0, variables = 0;
    for (const SymbolEntry& symbol : listSymbols(program)) {
        if (symbol.kind == SymbolEntry::Kind::Variable) {
            const Variable& variable = program.variables[symbol.index];
            const MapEntry* entry = listed(symbol, variable.qualifiedName);
            if (!entry)
                entry = listed(symbol, variable.name);
            if (!entry)
                continue;
            ++variables;
            EXPECT_EQ(*entry->address, symbol.address) << variable.qualifiedName;
            // Newer maps pad a part to its segment's alignment, which the map reader does not keep.
            EXPECT_TRUE(program.version >= 10 || entry->partSize == variable.size) << variable.qualifiedName;
            continue;
        }
        const Function& function = program.functions[symbol.index];
        if (!function.isDescribed)
            continue;
        ++described;
        const MapEntry* entry = listed(symbol, function.qualifiedName);
        if (!entry)
            continue;
        ++functions;
        EXPECT_EQ(*entry->address, symbol.address) << function.name;
        if (entry->partSize != 0) {
            EXPECT_EQ(entry->partSize, symbol.size) << function.name;
            EXPECT_EQ(entry->isInterrupt, function.isInterrupt) << function.name;
        }
        if (!entry->stack.empty() && program.version >= 10) { // older files record no stack use
            // The file's stack use of a segment is the sum of the map's two figures for it.
            std::vector<std::pair<std::string, uint32_t>> mapped, own;
            for (const MapEntry::Stack& use : entry->stack)
                if (use.first + use.second != 0)
                    mapped.emplace_back(use.segment, use.first + use.second);
            std::copy_if(function.stackUse.begin(), function.stackUse.end(), std::back_inserter(own),
                         [](const auto& use) { return use.second != 0; });
            std::sort(mapped.begin(), mapped.end());
            std::sort(own.begin(), own.end());
            EXPECT_EQ(mapped, own) << function.name;
        }
        const SourcePlace place = symbolize(program, symbol.address);
        EXPECT_EQ(symbol.index, place.function) << function.name;
        EXPECT_EQ(0u, place.offset);
        ASSERT_NE(nullptr, place.row) << function.name;
        EXPECT_NE(kNone, function.file) << function.name;
        EXPECT_NE(0u, function.line) << function.name;
        if (place.row->file == function.file) {
            EXPECT_LE(function.line, place.row->line) << function.name << ": the name stands before its code";
        }
    }
    EXPECT_EQ(described, functions) << "described functions the map does not list";
    EXPECT_GT(variables, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    RealPrograms, ProgramAgainstItsMap,
    ::testing::Values(MappedFile{"avr-mobit-nmea/nmea.d90", "avr-mobit-nmea/nmea.map"},
                      MappedFile{"avr-mega128-board/atmega128.d90", "avr-mega128-board/atmega128.map"},
                      MappedFile{"msp430-iotcar/Project_08.d43", "msp430-iotcar/Project_08.map"},
                      MappedFile{"8051-cc2530-vfd/vfd.d51", "8051-cc2530-vfd/vfd.map"},
                      MappedFile{"rl78-yrdk/prbRL78G13.d87", "rl78-yrdk/prbRL78G13.map"},
                      MappedFile{"8051-zstack-genericapp/GenericApp.d51", "8051-zstack-genericapp/GenericApp.map.gz"}));

// atmega128.d90 against its compiler's listings: each function on the line its label follows, and
// each statement's code on the line the listing prints it under.
TEST(NewerPrograms, Atmega128SymbolizesAsItsListingsSay)
{
    UBROF_NEED_REAL_FILES();
    const std::string board = "avr-mega128-board/";
    const RealProgram real(board + "atmega128.d90");
    const Program& program = real.program;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(realFile(board + "listings")))
        names.push_back(entry.path().filename().string());
    const Listings listings = readListings(realFile(board + "listings"), names, readLinkerMap(realFile(board + "atmega128.map")));

    ASSERT_FALSE(listings.functions.empty());
    for (const ListedFunction& listed : listings.functions) {
        const SourcePlace place = symbolize(program, listed.address);
        ASSERT_NE(kNone, place.function) << listed.name;
        const Function& function = program.functions[place.function];
        EXPECT_EQ(listed.name, function.name);
        EXPECT_EQ(listed.line, function.line) << listed.name;
        ASSERT_NE(kNone, function.file);
        EXPECT_EQ(listed.module + ".c", baseName(program.files[function.file].path));
    }
    const Function& main = program.functions.at(findFunctions(program, "main").at(0));
    EXPECT_EQ(std::make_pair(std::string("main.c"), 60u), std::make_pair(baseName(program.files[main.file].path), main.line));

    size_t statements = 0, matched = 0;
    for (const ListedStatement& code : listings.statements) {
        if (!code.startsStatement)
            continue;
        ++statements;
        const SourcePlace place = symbolize(program, code.address);
        matched += place.row && place.row->line == code.line && place.row->isStatement;
    }
    EXPECT_GT(statements, 150u);
    EXPECT_GE(matched * 100, statements * 95);
}

// Cut short, with a tag's code changed or with a stray byte before a tag, a file fails with a
// ModelError that says where, or, when the change makes another tag that fits, still builds; it
// never crashes. The parse's own message comes through, so this covers the store's errors too.
TEST(NewerPrograms, FailClearlyWhenCutShortOrChanged)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    for (const char* relative : {"msp430-iotcar/Project_08.d43", "avr-mega128-board/atmega128.d90"}) {
        const std::string path = realFile(relative);
        std::ifstream in(path, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        auto failure = [&](const std::vector<uint8_t>& file) -> std::string {
            try {
                loadProgram(dir.save(file, baseName(path)));
            } catch (const ModelError& error) {
                return error.what();
            }
            return std::string();
        };
        for (size_t step = 0; step < 60; ++step) {
            const size_t cut = 1 + (bytes.size() - 1) * step / 60 + step % 7;
            const std::string error = failure(std::vector<uint8_t>(bytes.begin(), bytes.begin() + long(cut)));
            EXPECT_NE(std::string::npos, error.find("Error: Unexpected end of file")) << "cut at " << cut << ": " << error;
            EXPECT_NE(std::string::npos, error.find(" offset ")) << error;
        }

        const std::vector<uint64_t> starts = tagStarts(path);
        ASSERT_GT(starts.size(), 1000u);
        size_t changed = 0, failed = 0, caught = 0;
        for (size_t i = 1; i < starts.size(); i += starts.size() / 100, ++changed) {
            std::vector<uint8_t> file = bytes;
            file[starts[i]] ^= 0x01; // a neighbouring tag code
            const std::string error = failure(file);
            if (!error.empty()) {
                ++failed;
                EXPECT_NE(std::string::npos, error.find(" offset ")) << error;
            }
            file = bytes;
            file.insert(file.begin() + long(starts[i]), uint8_t(i * 37 + 11));
            caught += !failure(file).empty();
        }
        // What still builds is a change the format cannot tell: a tag code that became another tag
        // of the same length, or a stray byte that is itself a tag without fields.
        EXPECT_GE(failed * 100, changed * 85) << relative;
        EXPECT_GE(caught * 100, changed * 90) << relative;
    }
}

} // namespace
} // namespace ubrof::test
