// The real files of format versions 10 and 11, read with the newer versions allowed: to their last
// byte, against atmega128's compiler listings and linker map, and with bytes cut or changed.
#include "TestFiles.h"

#include "host/CoreException.h"
#include "host/IBinaryInformation.h"
#include "host/ISourceInformation.h"
#include "host/ISymbolInformation.h"
#include "host/Status.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"
#include "reader/CParser.h"

#include <boost/filesystem.hpp>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <regex>

namespace ubrof::test {
namespace {

namespace fs = boost::filesystem;

const std::string kBoard = "avr-mega128-board/";

// Every file of the collection whose t_version says 10 or 11, by its path inside the collection.
std::vector<std::string> newerFiles()
{
    std::vector<std::string> files;
    for (const fs::directory_entry& folder : fs::directory_iterator(realFile(""))) {
        if (!fs::is_directory(folder))
            continue;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
            std::ifstream in(entry.path().string(), std::ios::binary);
            unsigned char head[9] = {};
            in.read(reinterpret_cast<char*>(head), sizeof head);
            if (head[0] == 0xA5 && head[7] == 0xBD && (head[8] == 10 || head[8] == 11))
                files.push_back(folder.path().filename().string() + "/" + entry.path().filename().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

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
    const std::vector<std::string> files = newerFiles();
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

// Tag starts of a file, as the reader meets them.
std::vector<uint64_t> tagStarts(const std::string& path)
{
    TarnUbrofParser store;
    CParser reader(store.fileHeader, store.nameTable, store.typeTable, store.groupTable, store.moduleTable,
                   store.blockTree, store.symbolTable, store.codeMemory, store.eepromMemory, store.dataMemory,
                   store.sourceFileTable, store.lineTable, store.fileIndex, store.fileLineRanges);
    reader.acceptNewerVersions(true);
    std::vector<uint64_t> starts;
    reader.observeTags([&starts](uint64_t offset, uint8_t) { starts.push_back(offset); });
    EXPECT_EQ(1, reader.parse(path.c_str()));
    return starts;
}

// Cut at sampled offsets, or with a changed byte at sampled tag starts, a file fails with an error
// that says where, or (a changed tag byte can be another tag that fits) still reads; it never crashes.
TEST(NewerFiles, FailClearlyWhenCutShortOrChanged)
{
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

// Code entries of the map, by module and name.
std::map<std::pair<std::string, std::string>, uint32_t> mapFunctions(const std::string& relative)
{
    std::ifstream in(realFile(relative));
    const std::regex module(R"(^\s+(PROGRAM|LIBRARY) MODULE, NAME : (\S+))");
    const std::regex segment(R"(^\s+Relative segment, address: (\w+) )");
    const std::regex entry(R"(^ {11}(\S+) +([0-9A-F]{8})\b)");
    std::map<std::pair<std::string, std::string>, uint32_t> entries;
    std::string current;
    bool inCode = false;
    std::smatch match;
    for (std::string line; std::getline(in, line);) {
        if (std::regex_search(line, match, module))
            current = match[2];
        else if (std::regex_search(line, match, segment))
            inCode = match[1] == "CODE";
        else if (inCode && !current.empty() && std::regex_search(line, match, entry))
            entries[{current, match[1]}] = static_cast<uint32_t>(std::stoul(match[2], nullptr, 16));
    }
    return entries;
}

/// A statement of a listing: the source line it is printed under and the address of its code.
struct ListedCode {
    std::string function;
    uint32_t line = 0;
    uint32_t address = 0;
    std::string hex; ///< the code as listed: 16-bit words, most significant digit first
    bool startsStatement = false;
};

// The code lines of every listing that the map places: "\   OFFSET   BYTES   INSTRUCTION", the offset
// counted from the segment part of the function whose label came last.
std::vector<ListedCode> listedCode()
{
    const auto functions = mapFunctions(kBoard + "atmega128.map");
    const std::regex number(R"(^\s+(\d+)$)");
    const std::regex segment(R"(^\s+\\\s+In\s+segment (\S+?),)");
    const std::regex label(R"(^\s+\\\s+([A-Za-z_?][\w?]*):\s*$)");
    const std::regex code(R"(^\s+\\\s+([0-9A-F]{8})\s{3}([0-9A-F.]+)\s)");
    std::vector<ListedCode> listed;
    for (const fs::directory_entry& entry : fs::directory_iterator(realFile(kBoard + "listings"))) {
        const std::string module = entry.path().stem().string();
        std::ifstream in(entry.path().string());
        uint32_t line = 0;
        bool pending = false, inCode = false;
        std::string function;
        std::smatch match;
        for (std::string text; std::getline(in, text);) {
            if (std::regex_search(text, match, number)) {
                line = static_cast<uint32_t>(std::stoul(match[1]));
                pending = true;
            } else if (std::regex_search(text, match, segment)) {
                inCode = match[1] == "CODE";
                function.clear();
            } else if (std::regex_search(text, match, label)) {
                if (match[1].str().rfind("??", 0) != 0)
                    function = match[1];
            } else if (inCode && !function.empty() && std::regex_search(text, match, code)) {
                const auto placed = functions.find({module, function});
                if (placed == functions.end())
                    continue; // left out by the linker
                listed.push_back({function, line, placed->second + static_cast<uint32_t>(std::stoul(match[1], nullptr, 16)),
                                  match[2], pending});
                pending = false;
            }
        }
    }
    return listed;
}

TEST(NewerFiles, StatementRowsOfAtmega128GiveTheListingsLines)
{
    const std::unique_ptr<TarnUbrofParser> store = readNewer(realFile(kBoard + "atmega128.d90"));
    // Where a listing prints a statement's code, under its last line: at an address, the last
    // row there; between rows, the row before.
    std::map<uint32_t, uint32_t> endLineAt;
    for (const StatementRow& row : store->facts.newer.rows)
        endLineAt[row.address] = row.endLine;

    size_t statements = 0, matched = 0;
    for (const ListedCode& code : listedCode()) {
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
    UbrofParseOptions options;
    options.readNewerVersions = true;
    UbrofParser parser(realFile(kBoard + "atmega128.d90"), options);
    const auto symbols = parser.createSymbolInformation();
    const auto functions = mapFunctions(kBoard + "atmega128.map");

    // Every function the map places and the file describes: its symbol at the map's address, and
    // the scope at that address is the function (its prologue included).
    size_t scoped = 0;
    for (const auto& [where, address] : functions) {
        const tarn::ISymbolContext::Ptr function = symbols->lookupGlobalSymbol(where.second, false);
        if (!function || function->getSymbolClass() != tarn::ISymbolContext::CodeSymbol)
            continue;
        EXPECT_EQ(address, function->getProperties().at("Address").as_uint64()) << where.second;
        const tarn::ISymbolContext::Ptr scope = symbols->getScopeContextFromPc(address);
        if (scope && scope->getName() == where.second)
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
    for (const ListedCode& code : listedCode()) {
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
            EXPECT_EQ(std::tie(a.kind, a.nameIndex, a.lowAddress, a.highAddress, a.symbols, a.lineRanges),
                      std::tie(b.kind, b.nameIndex, b.lowAddress, b.highAddress, b.symbols, b.lineRanges));
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
