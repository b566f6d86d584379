// ubrofdump on the real files: the program commands print what the model holds (which the model's
// own tests hold against the linker maps, stack use included), and on atmega128.d90 statement lines
// against its listings and the debugger commands of a host that opts in.
#include "DumpRun.h"
#include "LinkerMap.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"

#include <boost/filesystem.hpp>
#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <cstdio>
#include <tuple>

namespace ubrof {
namespace {

namespace json = boost::json;
using test::ScratchDir;

class NewerFileCommands : public ::testing::TestWithParam<const char*> {};

// nm prints the model's entry, size, memory and name of every function and variable, in its order;
// addr2line at each described function's entry names it, the row's line and the line of its name
// (how the text form adds that line is held on writer-built files). Where the file gives a function
// no position, addr2line still names the function there.
TEST_P(NewerFileCommands, PrintTheModelsAnswerForEveryFunctionAndVariable)
{
    UBROF_NEED_REAL_FILES();
    const std::string path = test::realFile(GetParam());
    const model::Program program = model::loadProgram(path);
    ScratchDir dir;
    const json::value listed = answerOf(dir, {"nm", path});
    const std::vector<model::SymbolEntry> symbols = model::listSymbols(program);
    const json::array& printed = listed.at("NameList").as_array();
    ASSERT_EQ(symbols.size(), printed.size());
    std::vector<std::string> entries{"addr2line", path};
    std::vector<const model::Function*> described;
    for (size_t i = 0; i < symbols.size(); ++i) {
        const model::SymbolEntry& symbol = symbols[i];
        EXPECT_EQ(std::make_tuple(*symbol.qualifiedName, symbol.address, symbol.size, std::string(model::spaceName(symbol.space))),
                  std::make_tuple(std::string(printed[i].at("Name").as_string()), printed[i].at("Address").to_number<uint32_t>(),
                                  printed[i].at("Size").to_number<uint32_t>(), std::string(printed[i].at("Memory").as_string())));
        if (symbol.kind == model::SymbolEntry::Kind::Function && program.functions[symbol.index].isDescribed) {
            entries.push_back(std::to_string(symbol.address));
            described.push_back(&program.functions[symbol.index]);
        }
    }
    const json::value places = answerOf(dir, entries);
    size_t unpositioned = 0;
    for (size_t i = 0; i < described.size(); ++i) {
        const model::Function& function = *described[i];
        const model::LineRow* row = program.lineAt(function.entry);
        const json::value& symbol = places.at("Symbolized").at(i).at("Symbol").at(0);
        EXPECT_EQ(function.qualifiedName, symbol.at("FunctionName").as_string());
        EXPECT_EQ(function.line, symbol.at("StartLine").to_number<uint32_t>()) << function.name;
        EXPECT_EQ(row ? row->line : 0, symbol.at("Line").to_number<uint32_t>()) << function.name;
        unpositioned += function.line == 0;
    }
    std::printf("%s: nm prints the model's %zu functions and variables; addr2line at the entries of %zu described "
                "functions, %zu without a position in the file\n",
                GetParam(), symbols.size(), described.size(), unpositioned);
}

INSTANTIATE_TEST_SUITE_P(RealFiles, NewerFileCommands,
                         ::testing::Values("avr-mobit-nmea/nmea.d90", "avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90",
                                           "avr-mega128-board/atmega128.d90", "msp430-iotcar/Project_08.d43",
                                           "8051-cc2530-vfd/vfd.d51", "rl78-yrdk/prbRL78G13.d87",
                                           "8051-zstack-genericapp/GenericApp.d51"));

// At the address of each statement of atmega128.d90's compiler listings, addr2line gives the
// listing's line (for loops' increments sit on the for line, where the listing prints them under
// the loop's end); main is named on main.c line 60.
TEST(NewerRealFiles, Atmega128sStatementsAreOnTheirListingsLines)
{
    UBROF_NEED_REAL_FILES();
    const std::string board = test::realFile("avr-mega128-board/");
    std::vector<std::string> names;
    for (const boost::filesystem::directory_entry& entry : boost::filesystem::directory_iterator(board + "listings"))
        names.push_back(entry.path().filename().string());
    const test::Listings listings = test::readListings(board + "listings", names, test::readLinkerMap(board + "atmega128.map"));
    std::vector<std::string> args{"addr2line", board + "atmega128.d90"};
    std::vector<uint32_t> lines;
    for (const test::ListedStatement& statement : listings.statements)
        if (statement.startsStatement) {
            args.push_back(std::to_string(statement.address));
            lines.push_back(statement.line);
        }
    ScratchDir dir;
    const json::value places = answerOf(dir, args);
    size_t matched = 0;
    for (size_t i = 0; i < lines.size(); ++i)
        matched += places.at("Symbolized").at(i).at("Symbol").at(0).at("Line").to_number<uint32_t>() == lines[i];
    std::printf("atmega128.d90: addr2line gives the listing's line for %zu of %zu statements\n", matched, lines.size());
    EXPECT_GE(matched * 100, lines.size() * 95);
    EXPECT_GT(lines.size(), 150u);
    EXPECT_EQ("main at C:\\Users\\Administrator\\Desktop\\ATmega128Project\\src\\main.c:73 (declared at line 60)\n",
              ubrofdump(dir, {"addr2line", board + "atmega128.d90", "main"}).out);
}

// --newer-versions makes ubrofdump a host that opts in: the module then answers for atmega128.d90
// (what it answers is the module's own tests' business), main's line at main's entry in the model.
TEST(NewerRealFiles, AHostThatOptsInReadsAtmega128ThroughTheModule)
{
    UBROF_NEED_REAL_FILES();
    const std::string path = test::realFile("avr-mega128-board/atmega128.d90");
    const model::Program program = model::loadProgram(path);
    ScratchDir dir;
    const json::value summary = answerOf(dir, {"--newer-versions", "summary", path});
    EXPECT_EQ(10, summary.at("Summary").at("FormatVersion").to_number<int>());
    EXPECT_GT(summary.at("Summary").at("Functions").to_number<int>(), 20);

    const model::Function& main = program.functions.at(model::findFunctions(program, "main").at(0));
    const json::value address = answerOf(dir, {"--newer-versions", "line2addr", path, "main.c", "73"});
    EXPECT_EQ(main.entry, address.at("Addresses").at(0).at("Address").to_number<uint32_t>());
}

} // namespace
} // namespace ubrof
