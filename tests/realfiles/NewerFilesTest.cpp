// The real files of format versions 10 and 11, read with the newer versions allowed: to their last
// byte, against atmega128's compiler listings and linker map, and with bytes cut or changed.
#include "LinkerMap.h"
#include "TagStarts.h"
#include "TestFiles.h"

#include "host/CoreException.h"
#include "host/IBinaryInformation.h"
#include "host/ISourceInformation.h"
#include "host/ISymbolInformation.h"
#include "host/Status.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"

#include <boost/filesystem.hpp>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>

namespace ubrof::test {
namespace {

namespace fs = boost::filesystem;

const std::string kBoard = "avr-mega128-board/";

std::unique_ptr<TarnUbrofParser> readNewer(const std::string& path)
{
    auto store = std::make_unique<TarnUbrofParser>();
    store->initialize();
    store->readNewerVersions = true;
    store->keepFacts = true;
    EXPECT_EQ(StoreOk, store->parseFile(path)) << path << ": " << store->parseError;
    return store;
}

TEST(NewerFiles, ReadToTheirLastByteWithEveryRowInsideItsFunction)
{
    UBROF_NEED_REAL_FILES();
    const std::vector<std::string> files = newerRealFiles();
    EXPECT_EQ(12u, files.size());
    for (const std::string& relative : files) {
        const std::string path = realFile(relative);
        const std::unique_ptr<TarnUbrofParser> store = readNewer(path);
        const NewerFormatFacts& facts = store->facts.newer;
        EXPECT_EQ(fs::file_size(path), facts.endOffset) << relative;
        EXPECT_FALSE(store->moduleTable.empty()) << relative;
        EXPECT_FALSE(store->symbolTable.symbols.empty()) << relative;
        EXPECT_LT(store->codeMemory.lowAddress(), store->codeMemory.highAddress()) << relative;

        // In code and in lines, every row of an understood program lies inside its function.
        size_t understood = 0;
        for (const NewerFormatFacts::FunctionLines& function : facts.functionLines) {
            if (!function.understood)
                continue;
            ++understood;
            const SourceExtent& extent = function.extent.extent;
            for (uint32_t i = function.firstRow; i < function.firstRow + function.rowCount; ++i) {
                const StatementRow& row = facts.rows.at(i);
                ASSERT_FALSE(row.fallback);
                EXPECT_LE(function.address, row.address) << relative;
                EXPECT_LT(row.address - function.address, function.size) << relative;
                EXPECT_LE(extent.line, row.globalLine) << relative;
                EXPECT_LE(row.globalEndLine, extent.line + extent.extraLines) << relative;
            }
        }
        // Only the release build has no line programs; where there are rows, the store has lines.
        if (understood != 0) {
            EXPECT_FALSE(store->lineTable.empty()) << relative;
            EXPECT_FALSE(store->codeAreas.empty()) << relative;
        }
        std::printf("%s: %zu functions with lines (%zu understood), %zu rows, %zu line records, %zu notes\n",
                    relative.c_str(), facts.functionLines.size(), understood, facts.rows.size(),
                    store->lineTable.size(), facts.notes.size());
    }
}

// Cut at sampled offsets, or with a changed byte at sampled tag starts, a file fails with an error
// that says where, or (a changed tag byte can be another tag that fits) still reads; it never crashes.
TEST(NewerFiles, FailClearlyWhenCutShortOrChanged)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    for (const std::string& relative : {kBoard + "atmega128.d90", std::string("msp430-iotcar/Project_08.d43")}) {
        const std::string path = realFile(relative);
        std::ifstream in(path, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const std::string broken = dir.path("broken.d90");
        auto failure = [&](const std::vector<uint8_t>& file) {
            UbrofWriter::save(broken, file);
            TarnUbrofParser store;
            store.initialize();
            store.readNewerVersions = true;
            return store.parseFile(broken) == StoreOk ? std::string() : store.parseError;
        };

        for (size_t step = 0; step < 60; ++step) {
            const size_t cut = 1 + (bytes.size() - 1) * step / 60 + step % 7;
            const std::string error = failure(std::vector<uint8_t>(bytes.begin(), bytes.begin() + long(cut)));
            EXPECT_NE(std::string::npos, error.find("Error: Unexpected end of file")) << relative << " cut at " << cut;
            EXPECT_NE(std::string::npos, error.find(" offset ")) << error;
        }

        const std::vector<uint64_t> starts = tagStarts(path);
        ASSERT_GT(starts.size(), 1000u);
        size_t changed = 0, failed = 0, inserted = 0, caught = 0;
        for (size_t i = 1; i < starts.size(); i += starts.size() / 100) {
            std::vector<uint8_t> file = bytes;
            file[starts[i]] ^= 0x01; // a neighbouring tag code
            const std::string error = failure(file);
            ++changed;
            if (!error.empty()) {
                ++failed;
                EXPECT_NE(std::string::npos, error.find(" offset ")) << error;
            }
            file = bytes;
            file.insert(file.begin() + long(starts[i]), uint8_t(i * 37 + 11)); // a stray byte before a tag
            ++inserted;
            if (!failure(file).empty())
                ++caught;
        }
        std::printf("%s: %zu of %zu changed tag bytes and %zu of %zu stray bytes fail the parse\n", relative.c_str(),
                    failed, changed, caught, inserted);
        // What still reads is a change the format cannot tell: a tag byte that became another tag
        // of the same length, or a stray byte that is itself a tag without fields.
        EXPECT_GE(failed * 100, changed * 85) << relative;
        EXPECT_GE(caught * 100, inserted * 90) << relative;
    }
}

// ---- atmega128.d90 against its linker map and compiler listings.

// The listings' statements, placed by the map.
std::vector<ListedStatement> listedCode()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(realFile(kBoard + "listings")))
        names.push_back(entry.path().filename().string());
    return readListings(realFile(kBoard + "listings"), names, readLinkerMap(realFile(kBoard + "atmega128.map")))
        .statements;
}

TEST(NewerFiles, StatementRowsOfAtmega128GiveTheListingsLines)
{
    UBROF_NEED_REAL_FILES();
    const std::unique_ptr<TarnUbrofParser> store = readNewer(realFile(kBoard + "atmega128.d90"));
    // Where a listing prints a statement's code, under its last line: at an address, the last
    // row there; between rows, the row before.
    std::map<uint32_t, uint32_t> endLineAt;
    for (const StatementRow& row : store->facts.newer.rows)
        endLineAt[row.address] = row.endLine;

    size_t statements = 0, matched = 0;
    for (const ListedStatement& code : listedCode()) {
        if (!code.startsStatement)
            continue;
        ++statements;
        auto at = endLineAt.upper_bound(code.address);
        if (at != endLineAt.begin() && (--at)->second == code.line)
            ++matched;
        else
            std::printf("  %s at 0x%X: listing line %u, rows say %u\n", code.function.c_str(), code.address, code.line,
                        at == endLineAt.end() ? 0 : at->second);
    }
    std::printf("atmega128.d90: %zu of %zu listed statements on the listing's line\n", matched, statements);
    EXPECT_GT(statements, 150u);
    EXPECT_GE(matched * 100, statements * 95);
}

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
    for (const ListedStatement& code : listedCode()) {
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
        const std::unique_ptr<TarnUbrofParser> opted = readNewer(copy);

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
