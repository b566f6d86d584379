// Intel HEX, S-records and binary images: read back by objcopy, record by record where it matters,
// and refused when the request cannot be met.
#include "SampleProgram.h"
#include "TestFiles.h"
#include "Tools.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"
#include "export/ImageExport.h"
#include "model/ProgramBuilder.h"

#include <sstream>

namespace ubrof {
namespace {

using exporter::ExportError;
using model::MemorySpace;
using model::Program;
using test::ScratchDir;

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

/// A program with code in runs of the given addresses and lengths (bytes counting up from each start).
Program codeRuns(const std::vector<std::pair<uint32_t, size_t>>& runs, std::optional<uint32_t> entry = {})
{
    Program program = test::tinyProgram(model::Family::Avr, "ATmega128");
    program.entryPoint = entry;
    program.memories[0].runs.clear();
    for (const auto& [address, length] : runs) {
        model::ByteRun run{address, {}};
        for (size_t i = 0; i < length; ++i)
            run.bytes.push_back(static_cast<uint8_t>(address + i * 7));
        program.memories[0].runs.push_back(run);
    }
    return program;
}

std::string binaryOf(const Program& program, MemorySpace space)
{
    std::ostringstream bytes;
    exporter::writeBinary(program, space, bytes);
    return bytes.str();
}

// Gaps, an odd start, a run across the 64 KiB line and one far above it; the real files' exports
// read back the same way.
TEST(ImageExport, HexAndSRecordsReadBackAsTheBinaryImageThroughObjcopy)
{
    REQUIRE_TOOL("objcopy");
    ScratchDir dir;
    const Program program = codeRuns({{0x11, 40}, {0x200, 3}, {0xFFF8, 20}, {0x3FFF0, 33}}, 0x11);
    exporter::writeIntelHex(program, MemorySpace::Code, dir.path("image.hex"));
    exporter::writeSRecords(program, MemorySpace::Code, dir.path("image.srec"));
    const std::string binary = binaryOf(program, MemorySpace::Code);
    EXPECT_EQ(binary, test::objcopyToBinary(dir, dir.path("image.hex"), "ihex"));
    EXPECT_EQ(binary, test::objcopyToBinary(dir, dir.path("image.srec"), "srec"));
}

TEST(ImageExport, IntelHexRecordsHoldSixteenBytesAndSayWhereAbove64KiB)
{
    const Program program = codeRuns({{0xFFF8, 20}, {0x20000, 16}}, 0x1234);
    std::ostringstream out;
    exporter::writeIntelHex(program, MemorySpace::Code, out);
    EXPECT_EQ((std::vector<std::string>{
                  ":08FFF800F8FF060D141B22297D",
                  ":020000040001F9",
                  ":0C00000030373E454C535A61686F767DE6",
                  ":020000040002F8",
                  ":1000000000070E151C232A31383F464D545B6269A8",
                  ":0400000500001234B1",
                  ":00000001FF",
              }),
              lines(out.str()));
}

// The code records above carry the entry point; other memories' images never do, and a program
// without one gets none.
TEST(ImageExport, OnlyCodeImagesCarryTheEntryPoint)
{
    Program program = test::sampleAvrProgram();
    program.entryPoint = 0x0E;
    std::ostringstream eepromHex, eepromSrec, noEntry;
    exporter::writeIntelHex(program, MemorySpace::Eeprom, eepromHex);
    exporter::writeSRecords(program, MemorySpace::Eeprom, eepromSrec);
    EXPECT_EQ((std::vector<std::string>{":020000003412B8", ":00000001FF"}), lines(eepromHex.str()));
    EXPECT_EQ("S9030000FC", lines(eepromSrec.str()).back());
    program.entryPoint.reset();
    exporter::writeIntelHex(program, MemorySpace::Code, noEntry);
    for (const std::string& line : lines(noEntry.str()))
        EXPECT_NE("05", line.substr(7, 2)) << line;
}

TEST(ImageExport, SRecordsWidenTheirAddressesWithTheHighestOne)
{
    struct Case {
        Program program;
        const char* dataType;
        std::string termination;
    };
    const std::vector<Case> cases = {
        {codeRuns({{0xFFF0, 16}}), "S1", "S9030000FC"},
        {codeRuns({{0x10, 4}}, 0x0E), "S1", "S903000EEE"},
        {codeRuns({{0xFFF0, 17}}), "S2", "S804000000FB"},
        {codeRuns({{0x10, 4}}, 0x1000000), "S3", "S70501000000F9"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.termination);
        std::ostringstream out;
        exporter::writeSRecords(c.program, MemorySpace::Code, out, {"app"});
        const std::vector<std::string> records = lines(out.str());
        ASSERT_GE(records.size(), 4u);
        EXPECT_EQ("S0060000617070B8", records.front()); // "app"
        for (size_t i = 1; i + 2 < records.size(); ++i)
            EXPECT_EQ(c.dataType, records[i].substr(0, 2)) << records[i];
        EXPECT_EQ("S5", records.end()[-2].substr(0, 2));
        EXPECT_EQ(c.termination, records.back());
    }
}

TEST(ImageExport, BinaryFillsGapsWithTheChosenByteAndAnswersItsBase)
{
    Program program = codeRuns({{0x100, 2}, {0x104, 1}});
    std::ostringstream out;
    exporter::BinaryOptions options;
    options.gapFill = 0x00;
    EXPECT_EQ(0x100u, exporter::writeBinary(program, MemorySpace::Code, out, options));
    EXPECT_EQ(std::string("\x00\x07\x00\x00\x04", 5), out.str());

    ScratchDir dir;
    EXPECT_EQ(0x100u, exporter::writeBinary(program, MemorySpace::Code, dir.path("image.bin")));
    EXPECT_EQ(std::string("\x00\x07\xFF\xFF\x04", 5), test::fileText(dir.path("image.bin")));
}

TEST(ImageExport, RefusesWhatItCannotWriteAndSaysWhy)
{
    const Program tiny = test::tinyProgram(model::Family::Avr, "ATmega16");
    std::ostringstream sink;
    EXPECT_EQ("eeprom memory: the program writes no bytes to it",
              test::refusalOf([&] { exporter::writeIntelHex(tiny, MemorySpace::Eeprom, sink); }));

    const Program spread = codeRuns({{0, 1}, {0xFFFFFFF0, 1}});
    EXPECT_EQ("code memory: its bytes span 0x0-0xfffffff0, 4294967281 bytes, more than the 16777216 a binary "
              "image may hold",
              test::refusalOf([&] { exporter::writeBinary(spread, MemorySpace::Code, sink); }));
    EXPECT_TRUE(sink.str().empty());

    Program overlapping = codeRuns({{0x10, 8}, {0x14, 8}});
    EXPECT_EQ("code memory: the run at 0x14 overlaps or precedes the run before it",
              test::refusalOf([&] { exporter::writeSRecords(overlapping, MemorySpace::Code, sink); }));

    Program pastTheEnd = codeRuns({{0xFFFFFFFE, 4}});
    EXPECT_EQ("code memory: the run at 0xfffffffe runs past the 32-bit address space",
              test::refusalOf([&] { exporter::writeIntelHex(pastTheEnd, MemorySpace::Code, sink); }));

    ScratchDir dir;
    const std::string missingFolder = dir.path("no-such-folder/out.hex");
    EXPECT_EQ("cannot write " + missingFolder + ": No such file or directory",
              test::refusalOf([&] { exporter::writeIntelHex(tiny, MemorySpace::Code, missingFolder); }));
}

// Found by the fuzzer: every exporter wrote a light program's memories, which hold no bytes, as
// images of nothing (an empty binary, a HEX file of its end record alone, an ELF section of fill).
TEST(ImageExport, RefusesTheMemoriesOfALightBuild)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).org(1, 0x30000).absVar({0xAB}).eof();
    model::BuildOptions light;
    light.light = true;
    Program program = model::loadProgram(dir.save(w), light);
    ASSERT_FALSE(program.memory(MemorySpace::Code)->empty());
    program.processor = {model::Family::Avr, "ATmega128"}; // the file names none, and ELF needs one
    const std::string refusal =
        "code memory: the program was built light, which keeps where its bytes lie but not the bytes";
    std::ostringstream sink;
    EXPECT_EQ(refusal, test::refusalOf([&] { exporter::writeIntelHex(program, MemorySpace::Code, sink); }));
    EXPECT_EQ(refusal, test::refusalOf([&] { exporter::writeSRecords(program, MemorySpace::Code, sink); }));
    EXPECT_EQ(refusal, test::refusalOf([&] { exporter::writeBinary(program, MemorySpace::Code, sink); }));
    EXPECT_EQ(refusal, test::refusalOf([&] { exporter::writeElf(program, sink); }));
    EXPECT_TRUE(sink.str().empty());
}

} // namespace
} // namespace ubrof
