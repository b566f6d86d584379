// The real files of format versions 10 and 11 through the module's views with the newer versions
// allowed, and the older files read alike with or without that choice.
#include "LinkerMap.h"
#include "TestFiles.h"

#include "host/IBinaryInformation.h"
#include "host/ISourceInformation.h"
#include "host/ISymbolInformation.h"
#include "host/Status.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"

#include <boost/filesystem.hpp>
#include <memory>

namespace ubrof::test {
namespace {

namespace fs = boost::filesystem;

const std::string kBoard = "avr-mega128-board/";

TEST(NewerFiles, TheModulesViewsAnswerFromAtmega128WithTheOptIn)
{
    UBROF_NEED_REAL_FILES();
    UbrofParseOptions options;
    options.readNewerVersions = true;
    UbrofParser parser(realFile(kBoard + "atmega128.d90"), options);
    const auto symbols = parser.createSymbolInformation();
    const LinkerMap map = readLinkerMap(realFile(kBoard + "atmega128.map"));

    // Every function the map places and the file describes: its symbol at the map's address, and
    // the scope at that address is the function (its prologue included).
    size_t scoped = 0;
    for (const MapEntry& entry : map.entries) {
        if (entry.memory != "CODE" || !entry.address)
            continue;
        const tarn::ISymbolContext::Ptr function = symbols->lookupGlobalSymbol(entry.name, false);
        if (!function || function->getSymbolClass() != tarn::ISymbolContext::CodeSymbol)
            continue;
        EXPECT_EQ(*entry.address, function->getProperties().at("Address").as_uint64()) << entry.name;
        const tarn::ISymbolContext::Ptr scope = symbols->getScopeContextFromPc(*entry.address);
        if (scope && scope->getName() == entry.name)
            ++scoped;
    }
    EXPECT_GE(scoped, 24u); // the 24 functions with line programs
    const tarn::ISymbolContext::Ptr count = symbols->lookupGlobalSymbol("temp_num", false);
    ASSERT_TRUE(count);
    EXPECT_EQ(2, count->getTypeContext()->getSize());

    // Lines: the statement at main.c 73 is main's first instruction (0x4E0 in the map).
    const auto sources = parser.createSourceInformation();
    tarn::Status status;
    std::vector<tarn::CodeArea> areas;
    ASSERT_TRUE(sources->getCodeAreasFromAddressRange(status, 0x4E0, 0x4E2, areas));
    ASSERT_FALSE(areas.empty());
    EXPECT_EQ("main", areas[0].functionName);
    EXPECT_EQ(73u, areas[0].startLine);
    EXPECT_NE(std::string::npos, areas[0].fileName.find("main.c"));

    // The image: every instruction the listings give in full is in code memory at its address,
    // each 16-bit word low byte first.
    std::vector<boost::shared_ptr<tarn::IProgramSegment>> segments = parser.createBinaryInformation()->getProgramSegments();
    ASSERT_FALSE(segments.empty());
    size_t words = 0;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(realFile(kBoard + "listings")))
        names.push_back(entry.path().filename().string());
    for (const ListedStatement& code : readListings(realFile(kBoard + "listings"), names, map).statements) {
        if (code.hex.find('.') != std::string::npos || code.hex.size() % 4 != 0)
            continue;
        std::vector<uint8_t> image;
        segments[0]->readData(image, code.address, static_cast<uint32_t>(code.hex.size() / 2));
        for (size_t w = 0; w < code.hex.size() / 4; ++w, ++words) {
            const auto word = static_cast<uint16_t>(std::stoul(code.hex.substr(4 * w, 4), nullptr, 16));
            ASSERT_EQ(word, image.at(2 * w) | image.at(2 * w + 1) << 8) << code.function << " at 0x" << std::hex << code.address;
        }
    }
    EXPECT_GT(words, 500u);
}

// Neither the newer versions' reader nor the facts kept for the program model change what the
// module answers from the older files.
TEST(NewerFiles, OlderFilesReadTheSameWithTheOptIn)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    for (const char* relative : {"avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90", "avr-mobit-nmea/nmea.d90"}) {
        // Copies: an embedded source is written beside the file read.
        const std::string copy = dir.path(fs::path(relative).filename().string());
        fs::copy_file(realFile(relative), copy, fs::copy_options::overwrite_existing);
        TarnUbrofParser plain;
        plain.initialize();
        ASSERT_EQ(StoreOk, plain.parseFile(copy));
        auto opted = std::make_unique<TarnUbrofParser>();
        opted->initialize();
        opted->readNewerVersions = opted->keepFacts = true;
        ASSERT_EQ(StoreOk, opted->parseFile(copy));

        auto sameLines = [](const LineRecord& a, const LineRecord& b) {
            return std::tie(a.address, a.size, a.line, a.lineSpan, a.column, a.endColumn, a.flags) ==
                   std::tie(b.address, b.size, b.line, b.lineSpan, b.column, b.endColumn, b.flags);
        };
        EXPECT_TRUE(std::equal(plain.lineTable.begin(), plain.lineTable.end(), opted->lineTable.begin(),
                               opted->lineTable.end(), sameLines))
            << relative;
        ASSERT_EQ(plain.blockTree.blocks.size(), opted->blockTree.blocks.size()) << relative;
        for (size_t i = 0; i < plain.blockTree.blocks.size(); ++i) {
            const BlockRecord& a = plain.blockTree.blocks[i];
            const BlockRecord& b = opted->blockTree.blocks[i];
            EXPECT_EQ(std::tie(a.kind, a.nameIndex, a.lowAddress, a.highAddress),
                      std::tie(b.kind, b.nameIndex, b.lowAddress, b.highAddress));
            EXPECT_EQ(plain.blockTree.symbols(uint32_t(i)).toVector(), opted->blockTree.symbols(uint32_t(i)));
            EXPECT_EQ(plain.blockTree.lineRanges(uint32_t(i)).toVector(), opted->blockTree.lineRanges(uint32_t(i)));
        }
        ASSERT_EQ(plain.symbolTable.symbols.size(), opted->symbolTable.symbols.size()) << relative;
        for (size_t i = 0; i < plain.symbolTable.symbols.size(); ++i)
            EXPECT_EQ(std::tie(plain.symbolTable.symbols[i].value, plain.symbolTable.symbols[i].typeIndex),
                      std::tie(opted->symbolTable.symbols[i].value, opted->symbolTable.symbols[i].typeIndex));
        EXPECT_EQ(plain.typeTable.types.size(), opted->typeTable.types.size()) << relative;
        EXPECT_EQ(plain.sourceFileTable.size(), opted->sourceFileTable.size()) << relative;
        EXPECT_EQ(plain.codeAreas.size(), opted->codeAreas.size()) << relative;
        EXPECT_EQ(0u, opted->facts.newer.endOffset) << relative;
        EXPECT_TRUE(opted->facts.newer.rows.empty()) << relative;
    }
}

} // namespace
} // namespace ubrof::test
