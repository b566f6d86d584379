// Files from the real toolchain through the module: the old formats parse with their programs'
// names, whether or not the newer versions are allowed, and the rest are refused unless they are.
#include "LinkerMap.h"
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
#include <set>
#include <sstream>

namespace ubrof::test {
namespace {

namespace fs = boost::filesystem;

// Parsed from a copy, since an embedded source would be written beside the file parsed.
std::string copyInto(const ScratchDir& dir, const std::string& relative)
{
    const fs::path source(realFile(relative));
    const std::string copy = dir.path(source.filename().string());
    fs::copy_file(source, copy);
    return copy;
}

// The names NAMES.txt lists for one file, from its "functions:" and "variables:" lines.
std::vector<std::string> listedNames(const std::string& relative)
{
    const fs::path file(relative);
    std::ifstream in(realFile((file.parent_path() / "NAMES.txt").string()));
    std::vector<std::string> names;
    bool inSection = false;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] == '[')
            inSection = line == "[" + file.filename().string() + "]";
        else if (inSection && (line.rfind("functions:", 0) == 0 || line.rfind("variables:", 0) == 0)) {
            std::istringstream words(line.substr(line.find(':') + 1));
            for (std::string word; words >> word;)
                names.push_back(word);
        }
    }
    return names;
}

// Names of every symbol and every function of the store.
std::set<std::string> storeNames(const TarnUbrofParser& store)
{
    std::set<std::string> names;
    for (const SymbolRecord& symbol : store.symbolTable.symbols)
        names.insert(store.nameTable.nameText(symbol.nameIndex));
    for (const BlockRecord& block : store.blockTree.blocks)
        if (block.kind == FunctionBlock)
            names.insert(store.nameTable.nameText(static_cast<uint32_t>(block.nameIndex)));
    return names;
}

std::pair<tarn::ErrorCode, std::string> failureOf(const std::string& path)
{
    try {
        UbrofParser parser(path);
    } catch (const tarn::CoreException& e) {
        return {e.getErrorCode(), e.getStatus()->getMessage()};
    }
    return {tarn::ErrorCode::Ok, "parsed"};
}

class OldFormat : public ::testing::TestWithParam<const char*> {};

// NAMES.txt also lists names of functions and variables that the linker left out: the file
// declares their names but no scope or symbol uses them. Those are the only ones allowed missing.
TEST_P(OldFormat, ParsesToTheEndWithTheProgramsNamesWithOrWithoutTheNewerVersions)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    UbrofParser parser(copyInto(dir, GetParam()));
    const TarnUbrofParser& store = *parser.getStore();
    EXPECT_LT(store.fileHeader.versionBytes[0], 9);
    EXPECT_FALSE(store.moduleTable.empty());
    EXPECT_FALSE(store.lineTable.empty());

    const std::vector<std::string> listed = listedNames(GetParam());
    ASSERT_GT(listed.size(), 10u);
    const std::set<std::string> present = storeNames(store);
    std::set<std::string> declared;
    for (uint32_t i = 0; i < store.nameTable.records.size(); ++i)
        declared.insert(store.nameTable.nameText(i));
    size_t found = 0;
    for (const std::string& name : listed) {
        if (present.count(name))
            ++found;
        else
            EXPECT_TRUE(declared.count(name)) << name << " is not even a declared name";
    }
    std::printf("%s: %zu of %zu listed names in the symbol tree\n", GetParam(), found, listed.size());
    RecordProperty("found", std::to_string(found) + " of " + std::to_string(listed.size()));

    // Neither the newer versions' reader nor the facts kept for the program model change what the
    // module answers from these files.
    TarnUbrofParser opted;
    opted.initialize();
    opted.readNewerVersions = opted.keepFacts = true;
    ASSERT_EQ(StoreOk, opted.parseFile(store.filePath));
    // What the views read of a store: its lines, scopes with their symbols and lines, symbols and table sizes.
    auto answers = [](const TarnUbrofParser& s) {
        std::vector<std::vector<uint64_t>> rows;
        for (const LineRecord& a : s.lineTable)
            rows.push_back({a.address, a.size, a.line, a.lineSpan, a.column, a.endColumn, a.flags});
        for (uint32_t i = 0; i < s.blockTree.blocks.size(); ++i) {
            const BlockRecord& b = s.blockTree.blocks[i];
            rows.push_back({b.kind, uint64_t(b.nameIndex), b.lowAddress, b.highAddress});
            for (const auto& list : {s.blockTree.symbols(i).toVector(), s.blockTree.lineRanges(i).toVector()})
                rows.emplace_back(list.begin(), list.end());
        }
        for (const SymbolRecord& symbol : s.symbolTable.symbols)
            rows.push_back({symbol.value, symbol.typeIndex});
        rows.push_back({s.typeTable.types.size(), s.sourceFileTable.size(), s.codeAreas.size()});
        return rows;
    };
    EXPECT_TRUE(answers(store) == answers(opted));
    EXPECT_EQ(0u, opted.facts.newer.endOffset);
    EXPECT_TRUE(opted.facts.newer.rows.empty());
}

INSTANTIATE_TEST_SUITE_P(RealFiles, OldFormat,
                         ::testing::Values("avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90",
                                           "avr-mobit-nmea/nmea.d90"));

TEST(RealFiles, RefusesNewerFormatsAndRelocatableObjects)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    size_t newer = 0, relocatable = 0;
    for (const fs::directory_entry& folder : fs::directory_iterator(realFile(""))) {
        if (!fs::is_directory(folder))
            continue;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
            const std::string name = entry.path().filename().string();
            const std::string relative = folder.path().filename().string() + "/" + name;
            std::ifstream in(entry.path().string(), std::ios::binary);
            char head[9] = {};
            in.read(head, sizeof head);
            const std::string path = dir.path(folder.path().filename().string() + "-" + name);
            if (entry.path().extension() == ".not-a5") {
                fs::copy_file(entry.path(), path);
                EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed,
                                         "Failed to initialize Nordic Parser. The file " + path +
                                             " was not recognized as a Nordic Object file"),
                          failureOf(path));
                ++relocatable;
            } else if (uint8_t(head[0]) == 0xA5 && uint8_t(head[7]) == 0xBD && uint8_t(head[8]) >= 9) {
                fs::copy_file(entry.path(), path);
                EXPECT_EQ(std::make_pair(tarn::ErrorCode::ObjectfileParseFailed,
                                         "Failed to parse nordic object file " + path + "."),
                          failureOf(path))
                    << relative;
                ++newer;
            }
        }
    }
    EXPECT_EQ(2u, relocatable);
    EXPECT_EQ(12u, newer);
}

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

} // namespace
} // namespace ubrof::test
