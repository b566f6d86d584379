// ubrofdump's program commands (addr2line, nm, size, the summary's account of the program, and
// qualified names in lookup) on writer-built files.
#include "DumpRun.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <map>
#include <set>

namespace ubrof {
namespace {

namespace json = boost::json;
using test::ScratchDir;

constexpr uint16_t kInt = 6;
constexpr uint8_t kPublic = 2, kStatic = 4;
constexpr uint16_t kCodeSpace = 1, kDataSpace = 2;

// A C++ program: the classes Motor and Valve each have a method Fsm whose entry code precedes
// its block; Motor has a static member and a vtable in code memory; main is plain C.
void saveCppProgram(const ScratchDir& dir)
{
    UbrofWriter w;
    w.begFile1().version(8).keyValue("__cpu_name", "ATmega16");
    w.begPgm("motor").fileRef(0, "src/motor.cpp");
    w.scopedName("Motor").scopedName("Fsm", 0).scopedName("Valve").scopedName("Fsm", 2); // names 0-3
    w.scopedName("count", 0).scopedName("__vtbl", 0).scopedName("main");                 // names 4-6
    w.symbolDef2(1, kPublic, kCodeSpace, 0x100, 0).symbolDef2(3, kPublic, kCodeSpace, 0x120, 0);
    w.symbolDef2(6, kPublic, kCodeSpace, 0x140, 0);
    w.symbolDef2(4, kPublic, kDataSpace, 0x200, kInt).symbolDef2(5, kStatic, kCodeSpace, 0x180, kInt);
    w.org(1, 0x100).srcStat(9, 9).absVar({0x0F, 0x93}).blockBegin3(1).srcStat(10, 10).absVar({1, 2, 3, 4}).blockEnd();
    w.org(1, 0x120).srcStat(19, 19).absVar({0x0F, 0x93}).blockBegin3(3).srcStat(20, 20).absVar({5, 6, 7, 8}).blockEnd();
    w.org(1, 0x140).blockBegin3(6).srcStat(30, 30).absVar({0x08, 0x95}).blockEnd();
    w.org(1, 0x180).absVar({0x00, 0x01});
    w.end().eof();
    dir.save(w, "motor.d90");
}

// The code range of a function context in a lookup answer: its value holds the low address,
// least significant byte first.
std::pair<uint64_t, uint64_t> scopeRange(const json::value& lookup)
{
    uint64_t low = 0;
    const json::array& value = lookup.at("Lookup").at("Value").as_array();
    for (size_t i = value.size(); i-- > 0;)
        low = (low << 8) | value[i].to_number<uint64_t>();
    return {low, low + lookup.at("Lookup").at("Size").to_number<uint64_t>()};
}

TEST(ProgramCommands, QualifiedNamesReachNmAddr2lineAndLookup)
{
    ScratchDir dir;
    saveCppProgram(dir);

    const DumpResult nm = ubrofdump(dir, {"nm", "motor.d90"});
    ASSERT_EQ(0, nm.status) << nm.err;
    EXPECT_EQ("0100 0006 T code   Motor::Fsm\n"
              "0120 0006 T code   Valve::Fsm\n"
              "0140 0002 T code   main\n"
              "0180 0002 r code   Motor::__vtbl\n"
              "0200 0002 D data   Motor::count\n",
              nm.out);
    EXPECT_EQ("0100 0006 T code   Motor::Fsm\n0120 0006 T code   Valve::Fsm\n",
              ubrofdump(dir, {"nm", "motor.d90", "Fsm"}).out) << "a pattern matches plain names too";

    // Entry code belongs to its function, and to the line that precedes the function's block.
    const DumpResult lines = ubrofdump(dir, {"addr2line", "motor.d90", "0x100", "0x124", "Valve::Fsm+1", "main", "0x160"});
    EXPECT_EQ("Motor::Fsm at src/motor.cpp:9\n"
              "Valve::Fsm at src/motor.cpp:20\n"
              "Valve::Fsm at src/motor.cpp:19\n"
              "main at src/motor.cpp:30\n"
              "?? ??:0\n",
              lines.out);
    const DumpResult ambiguous = ubrofdump(dir, {"addr2line", "motor.d90", "Fsm"});
    EXPECT_EQ(2, ambiguous.status);
    EXPECT_NE(std::string::npos, ambiguous.err.find("Fsm names 2 functions, Motor::Fsm and Valve::Fsm")) << ambiguous.err;

    // The module knows two functions named Fsm; the qualified name picks the one the program
    // places there, whose scope the module starts after the entry code.
    const json::value motor = answerOf(dir, {"lookup", "motor.d90", "Motor::Fsm"});
    const json::value valve = answerOf(dir, {"lookup", "motor.d90", "Valve::Fsm"});
    EXPECT_EQ("Fsm", motor.at("Lookup").at("Name").as_string());
    EXPECT_EQ((std::pair<uint64_t, uint64_t>{0x102, 0x106}), scopeRange(motor));
    EXPECT_EQ((std::pair<uint64_t, uint64_t>{0x122, 0x126}), scopeRange(valve));
    EXPECT_EQ(0u, ubrofdump(dir, {"lookup", "motor.d90", "Valve::Fsm"}).out.find("Symbol Valve::Fsm (no pc"));

    const json::value count = answerOf(dir, {"lookup", "motor.d90", "Motor::count"});
    EXPECT_EQ("count", count.at("Lookup").at("Name").as_string());
    EXPECT_EQ(0x200, count.at("Lookup").at("Location").at("Pieces").at(0).at("Address").to_number<int>());

    const std::tuple<std::vector<std::string>, int> refused[] = {
        {{"lookup", "motor.d90", "Motor::stop"}, 3},
        {{"lookup", "motor.d90", "Motor::Fsm", "--pc", "0x102"}, 2},
        {{"addr2line", "motor.d90", "Motor::stop"}, 3},
    };
    for (const auto& [args, status] : refused)
        EXPECT_EQ(status, ubrofdump(dir, args).status) << args[2];
}

// A module takes at least what its functions take, and a memory at least what its modules do.
void expectSizesAddUp(const ScratchDir& dir, const std::string& file)
{
    const json::value answer = answerOf(dir, {"size", file});
    if (!answer.is_object())
        return;
    const json::object& sizes = answer.at("Sizes").as_object();
    std::map<std::pair<std::string, std::string>, uint64_t> modules; // (module, memory) -> bytes
    std::map<std::string, uint64_t> inModules, memories;
    for (const auto& module : sizes.at("Modules").as_array()) {
        const std::string memory(module.at("Memory").as_string());
        const uint64_t bytes = module.at("Bytes").to_number<uint64_t>();
        modules[{std::string(module.at("Name").as_string()), memory}] = bytes;
        inModules[memory] += bytes;
    }
    std::map<std::string, uint64_t> inFunctions;
    for (const auto& function : sizes.at("Functions").as_array())
        inFunctions[std::string(function.at("Module").as_string())] += function.at("Bytes").to_number<uint64_t>();
    for (const auto& [module, bytes] : inFunctions)
        EXPECT_LE(bytes, (modules[{module, "code"}])) << file << ": the functions of " << module;
    for (const auto& memory : sizes.at("Memories").as_array())
        memories[std::string(memory.at("Name").as_string())] = memory.at("Bytes").to_number<uint64_t>();
    for (const auto& [memory, bytes] : inModules)
        EXPECT_LE(bytes, memories[memory]) << file << ": the modules in " << memory;
    EXPECT_FALSE(inFunctions.empty()) << file;
}

TEST(ProgramCommands, SizesAddUp)
{
    ScratchDir dir;
    copySample(dir);
    saveCppProgram(dir);
    for (const char* file : {"sample.d90", "motor.d90"})
        expectSizesAddUp(dir, file);
}

TEST(ProgramCommands, TheSummaryTellsTheProgramsDateProcessorMemoriesAndLargestModules)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1(WriterDate{2011, 6, 26, 10, 22, 26}).version(8).keyValue("__cpu_name", "ATmega16");
    for (int module = 1; module <= 6; ++module) {
        w.begPgm("m" + std::to_string(module)).org(1, 0x100 * module);
        w.absVar(std::vector<uint8_t>(module * 2, 0)).end();
    }
    w.begPgm("v").scopedName("counter").symbolDef2(0, kPublic, kDataSpace, 0x60, kInt).end().eof();
    dir.save(w, "six.d90");

    const DumpResult text = ubrofdump(dir, {"summary", "six.d90"});
    ASSERT_EQ(0, text.status) << text.err;
    EXPECT_NE(std::string::npos, text.out.find("Global symbols:  1\n"
                                               "Format version:  8\n"
                                               "Created:         2011-06-26T10:22:26\n"
                                               "Processor:       ATmega16 (AVR)\n"
                                               "Memories:        code 42 bytes, data 2 bytes\n"
                                               "Program modules: 7; the 5 largest by code bytes:\n"
                                               "                 12  m6\n"
                                               "                 10  m5\n"))
        << text.out;
    EXPECT_NE(std::string::npos, text.out.find("                  4  m2\n")) << text.out;
    EXPECT_EQ(std::string::npos, text.out.find("m1\n")) << text.out;

    UbrofWriter undated;
    undated.begFile1(WriterDate{2011, 13, 40, 10, 0, 0}).version(8).begPgm("m").end().eof();
    dir.save(undated, "undated.d90");
    const json::value summary = answerOf(dir, {"summary", "undated.d90"});
    EXPECT_TRUE(summary.at("Summary").at("Created").is_null());
    EXPECT_EQ(0u, summary.at("Summary").at("LargestModules").as_array().size());
    EXPECT_NE(std::string::npos, ubrofdump(dir, {"summary", "undated.d90"}).out.find("Created:         unknown\n"));
}

// A program of format version 10. main at 0x100 is named on main.c line 10 and its code is listed
// from its brace on line 11; helper at 0x106 is named in io.h, its code on main.c line 18; reset
// at 0x10A, an assembler routine, is named by its symbol alone. Global lines run main.c 1-2, io.h
// 1-5, main.c 3-20. main takes 7 bytes of CSTACK and 2 of RSTACK, helper 9 of CSTACK.
void saveNewerProgram(const ScratchDir& dir, const std::string& name)
{
    UbrofWriter w;
    w.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10));
    w.segInfo({{"CODE", {{0x100, 0x10}}, 1}, {"CSTACK", {{0x200, 0x40}}, 2}, {"RSTACK", {{0x240, 0x20}}, 2}});
    WriterSourceFiles files;
    files.directories = {"C:\\src\\"};
    files.files = {{"main.c", 1, 20, {}}, {"io.h", 1, 5, {}}};
    files.include(0, 0).include(2, 1).end().end();
    w.begPgm("main").sourceFiles(files).scopedName("main").scopedName("helper").scopedName("reset");
    w.symbolDef2(0, kPublic, kCodeSpace, 0x100, 0).symbolPosition(0, 10).stackUseCount(2).stackUse(1, 7).stackUse(2, 2);
    w.symbolDef2(1, kPublic, kCodeSpace, 0x106, 0).symbolPosition(1, 3).stackUseCount(1).stackUse(1, 9);
    w.symbolDef2(2, kPublic, kCodeSpace, 0x10A, 0);
    WriterLineProgram main, helper;
    main.kind(3).spans(1).line(15).row(0).row(1, 2);
    helper.kind(3).line(23).row(0);
    w.org(1, 0x100).functionSize(6, 0).lineProgramHeader(2).lineProgram({0, 3, 2, 0, 15, 1, 3, 1, main.bytes});
    w.absVar({1, 2}).blockBegin3(0).absVar({3, 4, 5, 6}).blockEnd();
    w.org(1, 0x106).functionSize(4, 1).lineProgram({1, 2, 2, 1, 23, 1, 0, 1, helper.bytes});
    w.blockBegin3(1).absVar({7, 8, 9, 10}).blockEnd().org(1, 0x10A).absVar({0x08, 0x95});
    w.end().eof();
    dir.save(w, name);
}

// At an entry whose row lies on another line than the function's name, the name's line follows.
// Stack use per function, "?" where the file records none, and a file that records none says so.
TEST(ProgramCommands, EntriesKeepTheLineOfTheirNameAndFunctionsTheirStack)
{
    ScratchDir dir;
    saveNewerProgram(dir, "newer.d90");
    copySample(dir);
    EXPECT_EQ("main at C:\\src\\main.c:11 (declared at line 10)\n"
              "main at C:\\src\\main.c:12\n"
              "helper at C:\\src\\main.c:18 (declared at C:\\src\\io.h:3)\n"
              "reset at ??:?\n",
              ubrofdump(dir, {"addr2line", "newer.d90", "main", "0x102", "helper", "reset"}).out);

    EXPECT_EQ("0100 0006 T code   CSTACK=7 RSTACK=2 main\n"
              "0106 0004 T code   CSTACK=9 RSTACK=0 helper\n"
              "010a 0002 T code   CSTACK=? RSTACK=? reset\n",
              ubrofdump(dir, {"nm", "newer.d90", "--stack"}).out);
    const json::value listed = answerOf(dir, {"nm", "newer.d90", "--stack", "reset"});
    EXPECT_EQ(json::parse(R"({"CSTACK": null, "RSTACK": null})"), listed.at("NameList").at(0).at("Stack"));
    const DumpResult sizes = ubrofdump(dir, {"size", "newer.d90", "--stack", "--top", "1"});
    EXPECT_EQ("Stack bytes per stack segment and function, largest first:\n\n"
              "  Segment  Bytes  Entry   Module  Function\n"
              "  CSTACK   9      0x0106  main    helper\n"
              "  RSTACK   2      0x0100  main    main\n",
              sizes.out) << sizes.err;

    const std::tuple<std::vector<std::string>, int, const char*> refused[] = {
        {{"nm", "sample.d90", "--stack"}, 3, "sample.d90 records no stack use; files of format versions 10 and 11 do, "
                                             "and it is of version 8"},
        {{"nm", "newer.d90", "--stack", "--variables"}, 2, "nm --stack lists functions"},
        {{"size", "newer.d90", "--stack", "--by", "module"}, 2, "size --stack lists stack use instead"},
        {{"addr2line", "newer.d90", "main", "--stack"}, 2, "--stack does not belong to addr2line; it belongs to nm and size"},
    };
    for (const auto& [args, status, message] : refused) {
        const DumpResult run = ubrofdump(dir, args);
        EXPECT_EQ(status, run.status) << args.back();
        EXPECT_NE(std::string::npos, run.err.find(message)) << run.err;
    }
}

// Without the host's opt-in the module refuses version 10: the summary shows the program's part and
// then says how the module can read it, with the module's refusal as its error. With it, the
// module answers too.
TEST(ProgramCommands, TheSummaryOfANewerFileShowsTheProgramAndHowTheModuleCanReadIt)
{
    ScratchDir dir;
    saveNewerProgram(dir, "newer.d90");
    UbrofWriter cut;
    cut.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10)).begPgm("main").org(1, 0x100).absVar({1, 2}).end().eof();
    dir.save(cut.prefix(cut.size() - 3), "cut.d90");

    const DumpResult text = ubrofdump(dir, {"summary", "newer.d90"});
    EXPECT_EQ(1, text.status);
    EXPECT_EQ(0u, text.out.find("File:            newer.d90\nFormat version:  10\n")) << text.out;
    EXPECT_NE(std::string::npos, text.out.find("\nProgram modules: 1;")) << text.out;
    EXPECT_EQ(0u, text.err.find("ubrofdump: newer.d90 is in UBROF format version 10, which the debugger module reads "
                                "only when its host sets the platform preference "
                                "com.quarnel.tarndbg.ubrof.readNewerVersions to true; --newer-versions makes "
                                "ubrofdump such a host, and the program commands (addr2line, nm, size, export) read "
                                "the file as it is\nubrofdump: the module answered error 0x20027: "))
        << text.err;
    EXPECT_EQ(text.err, ubrofdump(dir, {"segments", "newer.d90"}).err);

    const DumpResult asJson = ubrofdump(dir, {"--json", "summary", "newer.d90"});
    EXPECT_EQ(1, asJson.status);
    const json::value document = json::parse(asJson.out);
    const json::object& summary = document.at("Summary").as_object();
    EXPECT_EQ(10, summary.at("FormatVersion").to_number<int>());
    EXPECT_FALSE(summary.contains("Segments")) << "the module's counts are not zeros";
    EXPECT_EQ("newer-version", document.at("Error").at("Code").as_string());
    EXPECT_EQ(0x20027, document.at("Error").at("Module").at("Code").to_number<int>());

    const json::value opted = answerOf(dir, {"--newer-versions", "summary", "newer.d90"});
    EXPECT_EQ(1, opted.at("Summary").at("Segments").to_number<int>());
    EXPECT_EQ(10, opted.at("Summary").at("FormatVersion").to_number<int>());
    EXPECT_EQ(2, ubrofdump(dir, {"--newer-versions", "nm", "newer.d90"}).status) << "the program commands need no opt-in";

    // A damaged file is told as damaged, where the program's reader stopped, and not as a version to opt in to.
    const DumpResult damaged = ubrofdump(dir, {"--json", "summary", "cut.d90"});
    EXPECT_EQ(1, damaged.status);
    expectErrorDocument(damaged.out, "damaged", "cut.d90");
}

} // namespace
} // namespace ubrof
