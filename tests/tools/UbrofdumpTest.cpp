// ubrofdump as a user runs it: whole outputs on the bundled sample against golden files in golden/
// (UBROF_UPDATE_GOLDEN=1 rewrites them; see scripts/update-golden), and what it says about
// numbers, contexts, bad files, source names, JSON and layout on writer-built files.
#include "DumpRun.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace ubrof {
namespace {

namespace json = boost::json;
using test::fileText;
using test::ScratchDir;

// Enumeration numbers come with their names, and no key is spelled in a second way.
void expectNamedEnumerations(const json::value& value, const std::string& what)
{
    if (value.is_array())
        for (const auto& element : value.get_array())
            expectNamedEnumerations(element, what);
    if (!value.is_object())
        return;
    for (const auto& entry : value.get_object()) {
        const std::string key = entry.key();
        EXPECT_NE("Id", key) << what;
        for (const char* enumeration : {"Class", "TypeClass", "StorageClass", "AddressingMode", "ByteOrder"}) {
            if (key == enumeration) {
                EXPECT_TRUE(value.get_object().contains(key + "Name")) << what << ": " << key;
            }
        }
        expectNamedEnumerations(entry.value(), what);
    }
}

struct GoldenCase {
    const char* name;
    std::vector<std::string> args;
    int status;
};

std::ostream& operator<<(std::ostream& out, const GoldenCase& c)
{
    return out << c.name;
}

const std::string kSource = "C:\\work\\thermo\\";

const GoldenCase kCases[] = {
    {"summary", {"sample.d90"}, 0},
    {"summary-json", {"--json", "summary", "sample.d90"}, 0},
    {"segments", {"segments", "sample.d90", "--data"}, 0},
    {"segments-json", {"segments", "--json", "sample.d90", "--data"}, 0},
    {"sources", {"sources", "sample.d90"}, 0},
    {"sources-json", {"sources", "sample.d90", "--json"}, 0},
    {"sources-mapped", {"--map-path", kSource + "=src/", "sources", "sample.d90"}, 0},
    {"sources-mapped-separators", {"--map-path", "c:/WORK=/home/me/work", "sources", "sample.d90"}, 0},
    {"lines", {"lines", "sample.d90"}, 0},
    {"lines-json", {"lines", "sample.d90", "--json"}, 0},
    {"lines-range", {"lines", "sample.d90", "0x100", "272"}, 0},
    {"lines-none", {"lines", "sample.d90", "0x300", "0x400"}, 3},
    {"lines-none-json", {"--json", "lines", "sample.d90", "0x300", "0x400"}, 3},
    {"lines-reversed", {"lines", "sample.d90", "0x200", "0x100"}, 2},
    {"line2addr", {"line2addr", "sample.d90", "c:\\WORK\\thermo\\SENSOR.c", "19"}, 0},
    {"line2addr-json", {"--json", "--map-path", kSource + "=src/", "line2addr", "sample.d90", "src/main.c", "54"}, 0},
    {"line2addr-base-name", {"line2addr", "sample.d90", "SENSOR.C", "0x13"}, 0},
    {"line2addr-none", {"line2addr", "sample.d90", kSource + "sensor.c", "22"}, 3},
    {"line2addr-no-source", {"line2addr", "sample.d90", "sensr.c", "19"}, 3},
    {"scope", {"scope", "sample.d90", "0xa0"}, 0},
    {"scope-json", {"scope", "sample.d90", "0x108", "--json"}, 0},
    {"scope-none", {"scope", "sample.d90", "0x10"}, 3},
    {"symbols", {"symbols", "sample.d90"}, 0},
    {"symbols-pc", {"symbols", "sample.d90", "--pc", "0xf4"}, 0},
    {"symbols-json", {"symbols", "sample.d90", "--json", "--pc=0xb0"}, 0},
    {"symbols-members", {"symbols", "sample.d90", "--members"}, 0},
    {"lookup", {"lookup", "sample.d90", "ADMUX"}, 0},
    {"lookup-pc-json", {"lookup", "sample.d90", "value", "--pc", "0xe0", "--json"}, 0},
    {"lookup-scope", {"lookup", "sample.d90", "sum", "--scope", "9"}, 0},
    {"lookup-function-json", {"lookup", "sample.d90", "average", "--json"}, 0},
    {"lookup-none", {"lookup", "sample.d90", "count"}, 3},
    {"lookup-none-json", {"lookup", "sample.d90", "count", "--json"}, 3},
    {"context", {"context", "sample.d90", "33"}, 0},
    {"context-json", {"context", "sample.d90", "31", "--json"}, 0},
    {"context-members-json", {"context", "sample.d90", "33", "--json", "--members"}, 0},
    {"context-type", {"context", "sample.d90", "178"}, 0},
    {"context-none", {"context", "sample.d90", "99999"}, 3},
    {"context-none-json", {"context", "sample.d90", "99999", "--json"}, 3},
    {"compiler", {"compiler", "sample.d90"}, 0},
    {"compiler-json", {"compiler", "sample.d90", "--json"}, 0},
    {"usage-json", {"--json", "frobnicate", "sample.d90"}, 2},
    {"help", {"--help"}, 0},
    {"addr2line", {"addr2line", "sample.d90", "0x80", "0x92", "average", "lcd_init+2", "0x60"}, 0},
    {"addr2line-json", {"--json", "--map-path", kSource + "=src/", "addr2line", "sample.d90", "0x94", "0x60"}, 0},
    {"nm", {"nm", "sample.d90"}, 0},
    {"nm-json", {"nm", "sample.d90", "--json", "--module", "sensor"}, 0},
    {"nm-selected", {"nm", "sample.d90", "lcd_*", "--functions", "--size-sort"}, 0},
    {"nm-none", {"nm", "sample.d90", "--variables", "--module", "lcd", "x*"}, 3},
    {"size", {"size", "sample.d90"}, 0},
    {"size-json", {"--json", "size", "sample.d90", "--by", "module", "--top", "3"}, 0},
};

class Golden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, MatchesTheWholeOutput)
{
    const GoldenCase& c = GetParam();
    ScratchDir dir;
    copySample(dir);

    const DumpResult run = ubrofdump(dir, c.args);
    EXPECT_EQ(c.status, run.status);
    const std::string outFile = std::string(UBROF_GOLDEN_DIR) + "/" + c.name + ".out";
    const std::string errFile = std::string(UBROF_GOLDEN_DIR) + "/" + c.name + ".err";
    if (std::getenv("UBROF_UPDATE_GOLDEN")) {
        std::ofstream(outFile, std::ios::binary) << run.out;
        std::remove(errFile.c_str());
        if (!run.err.empty())
            std::ofstream(errFile, std::ios::binary) << run.err;
        return;
    }
    EXPECT_EQ(fileText(outFile), run.out);
    // Anything on standard error that the golden files do not expect fails the case.
    EXPECT_EQ(fileText(errFile), run.err);

    if (std::string(c.name).find("json") == std::string::npos)
        return;
    EXPECT_EQ("", run.err) << "with --json, everything goes to standard output";
    const json::value document = json::parse(run.out);
    ASSERT_TRUE(document.is_object());
    EXPECT_EQ("Schema", document.get_object().begin()->key());
    EXPECT_EQ(3, document.at("Schema").to_number<int>());
    EXPECT_EQ(c.status != 0, document.get_object().contains("Error"));
    expectNamedEnumerations(document, c.name);
}

INSTANTIATE_TEST_SUITE_P(Ubrofdump, Golden, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<GoldenCase>& info) {
                             std::string name = info.param.name;
                             for (char& c : name)
                                 if (c == '-')
                                     c = '_';
                             return name;
                         });

// summary counts the code areas a window of addresses at a time; whatever the layout, the count
// is every statement of a source file: code at both ends of the address space with nothing
// between, statements without code, several at one address, and none at all.
TEST(UbrofdumpSummary, CountsEveryCodeAreaWhereverTheCodeLies)
{
    ScratchDir dir;
    auto count = [&](UbrofWriter w) {
        dir.save(w.end().eof(), "layout.d90");
        const DumpResult run = ubrofdump(dir, {"--json", "summary", "layout.d90"});
        EXPECT_EQ(0, run.status) << run.err;
        return json::parse(run.out).at("Summary").at("CodeAreas").as_int64();
    };
    auto program = [] {
        UbrofWriter w;
        w.begFile1().version(8).begLib("m").fileRef(0, "m.c");
        return w;
    };
    UbrofWriter ends = program();
    ends.org(1, 0).srcStat(1, 1).absVar({1, 2}).srcStat(2, 2).absVar({3});
    ends.org(1, 0xFFFF0000).srcStat(3, 3).absVar({4, 5}).org(1, 0xFFFFFFF0).srcStat(4, 4).absVar({6});
    EXPECT_EQ(4, count(ends));

    UbrofWriter tail = program();
    tail.org(1, 0x12345).srcStat(1, 1).absVar({1, 2, 3});
    for (uint16_t line = 2; line < 300; ++line)
        tail.srcStat(line, line).absVar({uint8_t(line)});
    // Statements whose code never came, the last two at the address the module ended at.
    tail.srcStat(400, 400).begLib("n").fileRef(0, "n.c").srcStat(401, 401).end().begLib("o");
    EXPECT_EQ(301, count(tail));

    UbrofWriter wide = program();
    for (uint32_t i = 0; i < 40; ++i)
        wide.org(1, i * 0x3000000 + 0x123 * (i + 1)).srcStat(uint16_t(i + 1), uint16_t(i + 1)).absVar({0, 0});
    EXPECT_EQ(40, count(wide));

    EXPECT_EQ(0, count(program()));
}

// The golden cases give addresses in hex and ranges and lines in both forms; context and scope
// numbers they give in decimal alone.
TEST(UbrofdumpNumbers, HexAndDecimalReachTheModuleAsTheSameNumber)
{
    ScratchDir dir;
    copySample(dir);
    const std::pair<std::vector<std::string>, std::vector<std::string>> pairs[] = {
        {{"context", "sample.d90", "0x21"}, {"context", "sample.d90", "33"}},
        {{"lookup", "sample.d90", "sum", "--scope", "0x9"}, {"lookup", "sample.d90", "sum", "--scope", "9"}},
    };
    for (const auto& [hex, decimal] : pairs) {
        const DumpResult asHex = ubrofdump(dir, hex), asDecimal = ubrofdump(dir, decimal);
        EXPECT_EQ(0, asHex.status) << hex[0] << ": " << asHex.err;
        EXPECT_EQ(asDecimal.out, asHex.out) << hex[0];
    }
}

// Files no command reads: cut short, of a version too new, not UBROF, empty, and a folder.
void saveUnreadableFiles(const ScratchDir& dir)
{
    UbrofWriter cut;
    cut.begFile1().version(8).begPgm("main").org(1, 0x100).absVar({1, 2, 3, 4}).end().eof();
    dir.save(cut.prefix(cut.size() - 3), "cut.d90");
    UbrofWriter newer;
    newer.begFile1().version(12).begLib("main").end().eof();
    dir.save(newer, "newer.d43");
    std::ofstream(dir.path("notes.txt")) << "not an object file\n";
    std::ofstream(dir.path("empty.d90"));
    boost::filesystem::create_directory(dir.path("folder"));
}

TEST(UbrofdumpMessages, FilesThatCannotBeReadSayWhyAndKeepTheModulesReport)
{
    ScratchDir dir;
    saveUnreadableFiles(dir);
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"missing.d90", "no-such-file", "there is no file missing.d90; check the path"},
        {"folder", "is-directory", "folder is a directory; give the path of a UBROF file in it"},
        {"empty.d90", "empty-file", "empty.d90 is empty; the link that wrote it may have failed"},
        {"notes.txt", "not-ubrof", "notes.txt is not a UBROF file: it begins with the byte 0x6E"},
        {"newer.d43", "newer-version", "newer.d43 is in UBROF format version 12, which no command reads: the debugger "
                                       "module reads versions up to 8, and 10 and 11 when its host opts in"},
        {"cut.d90", "damaged", "cut.d90 begins as a UBROF file but could not be read to its end"},
    };
    // The summary reads the program too, and still fails as the module does; nm reads only the
    // program. (Versions 10 and 11, which the program commands read, have a test of their own.)
    for (const std::string command : {"symbols", "summary", "nm"})
        for (const auto& [file, code, sentence] : cases) {
            if (command == "nm") { // the program's reader, not the module, says what it knows
                const bool newer = code == std::string("newer-version");
                expectRefused(dir, {command, file}, 1, code,
                              newer ? "the program commands read versions up to 8, 10 and 11" : sentence);
                continue;
            }
            expectRefused(dir, {command, file}, 1, code, sentence);
            // The module's own report follows, in text and in JSON.
            const std::string text = ubrofdump(dir, {command, file}).err;
            EXPECT_NE(std::string::npos, text.find("\nubrofdump: the module answered error 0x20027: ")) << text;
            const json::value document = json::parse(ubrofdump(dir, {"--json", command, file}).out);
            EXPECT_EQ(0x20027, document.at("Error").at("Module").at("Code").to_number<int>()) << file;
            EXPECT_NE(std::string::npos,
                      std::string(document.at("Error").at("Module").at("Message").as_string()).find(file));
        }
}

// Two sources of one base name in one module; only the first holds code, a statement at line 7.
void saveRadios(const ScratchDir& dir)
{
    UbrofWriter w;
    w.begFile1().version(8).begPgm("radio").fileRef(0, "C:\\work\\a\\radio.c").org(1, 0x100);
    w.funcBegin1("send").srcStat(7, 7).absVar({0, 0}).blockEnd().fileRef(1, "C:\\work\\b\\Radio.c").end().eof();
    dir.save(w, "radios.d90");
}

// Where the name is not unique, or the file holds no code, the refusal table below says so.
TEST(UbrofdumpMessages, SourcesAreNamedByAnyUniqueEndOfTheirPath)
{
    ScratchDir dir;
    saveRadios(dir);

    for (const char* name : {"a/RADIO.C", "a\\radio.c", "work/a/radio.c", "C:/work/a/radio.c"}) {
        const DumpResult run = ubrofdump(dir, {"line2addr", "radios.d90", name, "7"});
        EXPECT_EQ(0, run.status) << name << ": " << run.err;
        EXPECT_NE(std::string::npos, run.out.find("0x0100   send")) << run.out;
    }
}

// Every refusal, of the debugger commands and of the program commands, has its status and message,
// and with --json is one error document with the text form's status. (The golden files hold the
// whole output of the sample's not-found cases.)
TEST(UbrofdumpMessages, EveryRefusalIsNamedAndIsOneDocumentWithTheTextFormsStatus)
{
    ScratchDir dir;
    copySample(dir);
    saveUnreadableFiles(dir);
    saveRadios(dir);
    const std::tuple<std::vector<std::string>, int, const char*, const char*> cases[] = {
        {{}, 2, "usage", ""},
        {{"line2addr", "radios.d90", "radio.c", "7"}, 2, "usage", "radio.c matches 2 source files, C:\\work\\a\\radio.c and "
                                                               "C:\\work\\b\\Radio.c; give more of the path\n"},
        {{"line2addr", "radios.d90", "b/radio.c", "7"}, 3, "not-found",
         "no code at line 7 of C:\\work\\b\\Radio.c; the file has no code\n"},
        {{"line2addr", "radios.d90", "dio.c", "7"}, 3, "not-found", "no source file matches dio.c; the closest are "},
        {{"frobnicate", "sample.d90"}, 2, "usage", "unknown command frobnicate; the commands are summary, "},
        {{"sample.d90", "frobnicate"}, 2, "usage", "unknown command frobnicate; the commands are summary, "},
        {{"scope", "sample.d90"}, 2, "usage", ""},
        {{"lines", "sample.d90", "1", "2", "3"}, 2, "usage", ""},
        {{"lookup", "sample.d90", "x", "--pc", "1", "--scope", "2"}, 2, "usage", ""},
        {{"--map-path", "nothing", "sample.d90"}, 2, "usage", ""},
        {{"scope", "sample.d90", "12abc"}, 2, "usage", ""},
        {{"--frobnicate", "sample.d90"}, 2, "usage", ""},
        {{"segments", "sample.d90", "--pc", "4"}, 2, "usage", ""},
        {{"segments", "sample.d90", "--members"}, 2, "usage", "--members does not belong to segments"},
        {{"lines", "sample.d90", "0x400", "0x300"}, 2, "usage", ""},
        {{"lookup", "sample.d90", ""}, 2, "usage", ""},
        {{"nm", "sample.d90", "--top", "3"}, 2, "usage", "--top does not belong to nm; it belongs to size"},
        {{"lookup", "sample.d90", "main", "--functions"}, 2, "usage", "--functions does not belong to lookup"},
        {{"nm", "sample.d90", "--size-sort", "--name-sort"}, 2, "usage", "not both"},
        {{"size", "sample.d90", "--by", "file"}, 2, "usage", "--by takes memory, module or function, not file"},
        {{"size", "sample.d90", "--top", "0"}, 2, "usage", "give at least 1"},
        {{"addr2line", "sample.d90"}, 2, "usage", "wrong number of arguments for addr2line"},
        {{"addr2line", "sample.d90", "80h"}, 2, "usage", "not a number for ADDR: 80h"},
        {{"addr2line", "sample.d90", "0x100000000"}, 2, "usage", "ADDR out of range"},
        {{"lookup", "sample.d90", "sum", "--scope", "99999"}, 3, "not-found", ""},
        {{"context", "sample.d90", "4294967298"}, 3, "not-found", "no context 4294967298: context IDs go up to 2147483647"},
        {{"line2addr", "sample.d90", "main.c", "1"}, 3, "not-found", ""},
        {{"line2addr", "sample.d90", "nothing.c", "1"}, 3, "not-found", ""},
        {{"addr2line", "sample.d90", "mian"}, 3, "not-found", "mian is neither an address nor a function"},
        {{"nm", "sample.d90", "--module", "sensr"}, 3, "not-found", "no module sensr in sample.d90; the closest is sensor"},
        {{"nm", "sample.d90", "lcd_init*", "--variables"}, 3, "not-found", "no variable with an address matches lcd_init*"},
        {{"size", "cut.d90"}, 1, "damaged", "cut.d90 begins as a UBROF file but could not be read to its end: it is cut "
                                            "short or damaged (Error: Unexpected end of file at offset 39, where a tag "
                                            "should begin (format version 8)); link the program again\n"},
        {{"summary", "sample.d90", "--plugin", "/nonexistent/module"}, 4, "no-module", ""},
    };
    for (const auto& [args, status, code, message] : cases)
        expectRefused(dir, args, status, code, message);
}

// A code segment above 64 KiB and names longer than a column.
TEST(UbrofdumpLayout, AddressesTakeTheirMemorysWidthAndColumnsStayNarrow)
{
    ScratchDir dir;
    const std::string longName = "read_the_temperature_sensor_and_average_the_last_eight_samples";
    const std::string longPath = "C:\\projects\\thermometer\\firmware\\sources\\sensor_readout.c";
    UbrofWriter w;
    w.begFile1().version(8).begPgm("sensor").fileRef(0, longPath).org(1, 0x12340);
    w.funcBegin1(longName).srcStat(7, 7).absVar({0, 0, 0, 0}).blockEnd().org(2, 0x100).absVar({'h', 'i', 0, 0x7F});
    w.end().eof();
    dir.save(w, "wide.d90");

    const DumpResult lines = ubrofdump(dir, {"lines", "wide.d90"});
    ASSERT_EQ(0, lines.status) << lines.err;
    EXPECT_NE(std::string::npos, lines.out.find("0x012340  0x012344  7      " + longName.substr(0, 37) + "...  ..." +
                                                longPath.substr(longPath.size() - 37) + "\n"))
        << lines.out;
    const json::value areas = json::parse(ubrofdump(dir, {"--json", "lines", "wide.d90"}).out);
    EXPECT_EQ(longName, areas.at("CodeAreas").at(0).at("Function").as_string());
    EXPECT_EQ(longPath, areas.at("CodeAreas").at(0).at("File").as_string());

    const DumpResult segments = ubrofdump(dir, {"segments", "wide.d90", "--data"});
    EXPECT_NE(std::string::npos, segments.out.find("  0x012340  00 00 00 00" + std::string(12 * 3, ' ') + "  ....\n"))
        << segments.out;
    EXPECT_NE(std::string::npos, segments.out.find("  0x0100  68 69 00 7f" + std::string(12 * 3, ' ') + "  hi..\n"))
        << segments.out;
}

std::vector<std::string> childNames(const json::value& context)
{
    std::vector<std::string> names;
    for (const auto& child : context.at("Children").as_array())
        names.emplace_back(child.at("Name").as_string());
    return names;
}

// Runs a context command with --json and answers its types by name, after checking that each is
// listed once and that every TypeID of the document names a context of the tree or of the types.
std::map<std::string, json::value> listedTypes(const ScratchDir& dir, std::vector<std::string> args,
                                               json::value* document = nullptr)
{
    args.push_back("--json");
    const DumpResult run = ubrofdump(dir, args);
    EXPECT_EQ(0, run.status) << run.err;
    const json::value parsed = json::parse(run.out);
    std::set<std::string> ids, named;
    std::function<void(const json::value&)> walk = [&](const json::value& context) {
        ids.emplace(context.at("ID").as_string());
        if (const auto* type = context.as_object().if_contains("TypeID"))
            named.emplace(type->as_string());
        for (const auto& child : context.at("Children").as_array())
            walk(child);
    };
    walk((parsed.as_object().begin() + 1)->value());
    std::map<std::string, json::value> types;
    for (const auto& type : parsed.at("Types").as_array()) {
        EXPECT_EQ(0u, ids.count(std::string(type.at("ID").as_string()))) << "listed twice: " << type;
        walk(type);
        types[std::string(type.at("Name").as_string())] = type;
    }
    for (const std::string& id : named)
        EXPECT_EQ(1u, ids.count(id)) << "TypeID " << id << " is not listed in " << run.out;
    if (document)
        *document = parsed;
    return types;
}

// A typedef of itself, a structure that holds itself, two typedefs of each other, and a list
// that reaches itself through a pointer, each the type of a variable.
TEST(UbrofdumpTypes, TypesThatNameThemselvesAreListedOnceAndEndTheWalk)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8);
    w.scopedName("loop_t").typeTypedef(100, 100, 0);
    w.typeStruct(101, "node", 2, {{"self", 101, 0}, {"value", 1, 1}}); // names 1 to 3
    w.scopedName("ping_t").scopedName("pong_t").typeTypedef(102, 103, 4).typeTypedef(103, 102, 5);
    w.typePointer(104, 15, 105).typeStruct(105, "list", 3, {{"value", 1, 0}, {"next", 104, 1}});
    w.begPgm("loops");
    const std::pair<const char*, uint16_t> variables[] = {
        {"loop", 100}, {"node", 101}, {"ping", 102}, {"pong", 103}, {"list", 105}};
    for (const auto& [name, type] : variables)
        w.symbolDef1({name, 2, 2, 0x100u + type, type, {}});
    w.end().eof();
    dir.save(w, "loops.d90");

    json::value document;
    auto types = listedTypes(dir, {"symbols", "loops.d90", "--members"}, &document);
    for (const char* name : {"loop_t", "ping_t", "pong_t", "struct list", "struct list *", "struct node"})
        EXPECT_EQ(1u, types.count(name)) << name;
    // Members are leaves: a structure a member holds is the type listed once.
    EXPECT_EQ((std::vector<std::string>{"self", "value"}), childNames(types["struct node"]));
    const json::value& node = document.at("Symbols").at("Children").at(0).at("Children").at(1);
    for (const auto& member : node.at("Children").as_array())
        EXPECT_EQ(std::vector<std::string>{}, childNames(member)) << node;

    const std::string id(types["struct node"].at("ID").as_string());
    EXPECT_EQ(0u, listedTypes(dir, {"context", "loops.d90", id}).count("struct node")) << "the root is not repeated";
}

TEST(UbrofdumpOutput, AFullDiskFailsTheRunInsteadOfPassingForWritten)
{
    ScratchDir dir;
    copySample(dir);
    for (const char* command : {"symbols", "segments"}) {
        const DumpResult run = runIn(dir, UBROFDUMP, {command, "sample.d90"}, {}, "/dev/full");
        EXPECT_EQ(1, run.status) << command;
        EXPECT_EQ("ubrofdump: standard output could not be written\n", run.err) << command;
    }
}

// A thousand variables of one structure of a thousand members: listed under every variable,
// the members made a million rows and gigabytes of memory.
TEST(UbrofdumpTypes, AWideStructureCostsItsMembersOnce)
{
    ScratchDir dir;
    std::vector<WriterStructMember> members;
    for (uint32_t m = 0; m < 1000; ++m)
        members.push_back({"m" + std::to_string(m), 1, m});
    UbrofWriter w;
    w.begFile1().version(8).typeStruct(100, "wide", 1000, members).begPgm("wide");
    for (uint32_t v = 0; v < 1000; ++v)
        w.symbolDef1({"v" + std::to_string(v), 2, 2, 0x100 + 1000 * v, 100, {}});
    w.end().eof();
    dir.save(w, "wide.d90");

    for (const std::vector<std::string>& args : {std::vector<std::string>{"symbols", "wide.d90"},
                                                 std::vector<std::string>{"symbols", "wide.d90", "--json"}}) {
        const DumpResult run = ubrofdump(dir, args);
        ASSERT_EQ(0, run.status) << run.err;
        // The peak also counts the test's own pages that the child held before it became ubrofdump,
        // and under the address sanitizer its shadow memory, which is no part of ubrofdump's cost.
#if !defined(__SANITIZE_ADDRESS__)
        EXPECT_LT(run.peakKiB, 64 * 1024) << args.back();
#endif
        EXPECT_LT(run.out.size(), 2u << 20) << args.back();
    }
}

TEST(UbrofdumpRealFiles, Line2addrTakesTheBaseNameOfAStoredPath)
{
    UBROF_NEED_REAL_FILES();
    ScratchDir dir;
    boost::filesystem::copy_file(test::realFile("avr-mobit-nmea/nmea.d90"), dir.path("nmea.d90"));
    const DumpResult byBaseName = ubrofdump(dir, {"line2addr", "nmea.d90", "radio.c", "182"});
    EXPECT_EQ(0, byBaseName.status) << byBaseName.err;
    EXPECT_EQ(ubrofdump(dir, {"line2addr", "nmea.d90", "D:\\work\\argos\\RS_RADIO\\radio.c", "182"}).out,
              byBaseName.out);
}

TEST(ScriptsRun, RunsTheSampleButNamesAMistypedPath)
{
    ScratchDir dir;
    const std::string run = std::string(UBROF_SOURCE_DIR) + "/scripts/run";
    const std::vector<std::pair<std::string, std::string>> build{{"UBROF_BUILD_DIR", UBROF_BUILD_DIR}};

    const DumpResult sample = runIn(dir, run, {}, build);
    EXPECT_EQ(0, sample.status) << sample.err;
    EXPECT_NE(std::string::npos, sample.out.find("sample.d90\nMachine:")) << sample.out;

    const DumpResult typo = runIn(dir, run, {"firmwre/thermo.d90", "symbols"}, build);
    EXPECT_NE(0, typo.status);
    EXPECT_EQ("", typo.out);
    EXPECT_NE(std::string::npos, typo.err.find("there is no file firmwre/thermo.d90")) << typo.err;
}

TEST(Ubrofgen, LargeProgramsHaveTheShapeAskedFor)
{
    ScratchDir dir;
    const std::string file = dir.path("large.d90");
    const std::string command = std::string(UBROFGEN) + " --large 3 4 5 " + file;
    ASSERT_EQ(0, std::system(command.c_str()));
    const DumpResult run = ubrofdump(dir, {"--json", "large.d90"});
    ASSERT_EQ(0, run.status) << run.err;
    const auto summary = json::parse(run.out).at("Summary");
    EXPECT_EQ(3, summary.at("Modules").to_number<int>());
    EXPECT_EQ(12, summary.at("Functions").to_number<int>());
    EXPECT_EQ(60, summary.at("CodeAreas").to_number<int>());
    EXPECT_EQ(3, summary.at("SourceFiles").to_number<int>());
    EXPECT_EQ(3 * (4 + 4), summary.at("GlobalSymbols").to_number<int>());
}

// The debugger commands see the module only as a host does, through the bundle; the program
// commands alone read the model.
TEST(UbrofdumpBuild, OnlyTheProgramCommandsReadTheModel)
{
    // Symbol and debug names of the views and the bundle would be in the executable if it linked them;
    // the service type (plugin/OspService.h) is what a host and the bundle share.
    const std::string executable = fileText(UBROFDUMP);
    ASSERT_FALSE(executable.empty());
    for (const char* name : {"UbrofSymbolContext", "UbrofSourceInformation", "DebuggerUbrofBundleActivator"})
        EXPECT_EQ(std::string::npos, executable.find(name)) << name;
    EXPECT_NE(std::string::npos, executable.find("OspService")) << "the probe finds names that are there";

    const std::regex moduleInclude(R"(#\s*include\s*["<](model|parser|reader|info)/)");
    size_t sources = 0;
    for (const auto& entry : boost::filesystem::directory_iterator(std::string(UBROF_SOURCE_DIR) + "/tools/ubrofdump")) {
        const std::string name = entry.path().filename().string();
        ++sources;
        if (name != "ProgramCommands.cpp" && name != "ExportCommand.cpp") {
            EXPECT_FALSE(std::regex_search(fileText(entry.path().string()), moduleInclude)) << name;
        }
    }
    EXPECT_GT(sources, 10u);
    for (const char* name : {"ProgramCommands.cpp", "ExportCommand.cpp"})
        EXPECT_TRUE(std::regex_search(fileText(std::string(UBROF_SOURCE_DIR) + "/tools/ubrofdump/" + name), moduleInclude))
            << name;
}

} // namespace
} // namespace ubrof
