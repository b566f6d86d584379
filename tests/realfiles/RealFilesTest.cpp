// Files from the real toolchain: the old formats parse with their programs' names, the rest are refused.
#include "TestFiles.h"

#include "host/CoreException.h"
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
TEST_P(OldFormat, ParsesToTheEndWithTheProgramsNames)
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

} // namespace
} // namespace ubrof::test
