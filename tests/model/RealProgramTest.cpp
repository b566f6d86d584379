// The program model of the real files below version 9: against the images of the same links, light
// against full builds, and placed wholly.
#include "IntelHex.h"
#include "RealProgram.h"
#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "parser/TarnUbrofParser.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

namespace ubrof::test {
namespace {

using namespace ubrof::model;

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
             {"avr-mobit-nmea/nmea.d90", "AVR ATmega16"}, {"avr-ethradio/NikeE1B.d90", "AVR ATmega32"},
             {"avr-cama-suo/Suo.dbg", "AVR ATmega16"}, {"avr-mega128-board/atmega128.d90", nullptr},
             {"8051-zstack-genericapp/GenericApp.d51", nullptr}}) {
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
        if (processor) {
            EXPECT_EQ(processor, std::string(familyName(full.processor.family)) + " " + full.processor.name);
        }
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

// NikeE1B.d90's assembler module stuff.asm writes _i2a, 94 bytes with a line per instruction and
// labels at its loops; FIFO.c ends ETHfifo_free at 0xb00 and writes there ?Subroutine0, the
// 10 bytes that both ETHfifo_free (from 0xada and 0xaf6) and MP3fifo_free (from 0xb68) jump to.
TEST(RealPrograms, PlaceAssemblerRoutinesAndSharedCodeWhole)
{
    UBROF_NEED_REAL_FILES();
    const RealProgram real("avr-ethradio/NikeE1B.d90");
    const Program& program = real.program;
    const Function& i2a = program.functions.at(findFunctions(program, "_i2a").at(0));
    EXPECT_EQ(0x5926u, i2a.entry);
    EXPECT_EQ(94u, i2a.size());
    EXPECT_EQ(0xB00u, program.functions.at(findFunctions(program, "ETHfifo_free").at(0)).end);
    const uint32_t shared = program.functionAt(0xB00);
    ASSERT_NE(kNone, shared);
    EXPECT_EQ("?Subroutine0", program.functions[shared].name);
    EXPECT_EQ(0xB0Au, program.functions[shared].end);
}

class OldFormatProgram : public ::testing::TestWithParam<const char*> {};

// In every file below version 9: each function starts at its symbol, none overlaps the next,
// every byte of a described function has a line, and the sizes add up.
TEST_P(OldFormatProgram, IsPlacedWholly)
{
    UBROF_NEED_REAL_FILES();
    const RealProgram real(GetParam());
    const Program& program = real.program;
    const TarnUbrofParser& store = real.store;
    ASSERT_FALSE(program.functions.empty());

    size_t describedCount = 0;
    uint64_t withLine = 0, withoutLine = 0;
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
    std::printf("%s: %zu functions (%zu described); function bytes with a line: %llu, without: %llu; modules %llu "
                "of %llu code bytes; built in %.1f ms\n",
                GetParam(), program.functions.size(), describedCount, (unsigned long long)withLine,
                (unsigned long long)withoutLine, (unsigned long long)modules, (unsigned long long)code->byteCount(),
                real.buildMilliseconds);
}

INSTANTIATE_TEST_SUITE_P(RealPrograms, OldFormatProgram,
                         ::testing::Values("avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90",
                                           "avr-mobit-nmea/nmea.d90"));

} // namespace
} // namespace ubrof::test
