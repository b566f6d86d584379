// The program model from writer-built files: true function ranges, a line for every code byte,
// qualified names, resolved types, modules and memories, the tags of format version 10 (sizes,
// positions, stack use, statement rows and what it cannot read), and files that make no sense.
#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "parser/TarnUbrofParser.h"

namespace ubrof::test {
namespace {

using namespace ubrof::model;
using Kind = Type::Kind;

constexpr uint16_t kUnsignedChar = 1, kChar = 2, kInt = 6, kVoid = 12;
constexpr uint8_t kPublic = 2, kStatic = 4, kFrame = 7, kRegister = 8, kComputed = 23;
constexpr uint16_t kCodeSpace = 1, kDataSpace = 2;

class ModelTest : public ::testing::Test {
protected:
    Program build(const UbrofWriter& w, BuildOptions options = {}) { return loadProgram(dir.save(w), options); }

    static UbrofWriter fileStart()
    {
        UbrofWriter w;
        w.begFile1().version(8);
        return w;
    }

    static UbrofWriter newerStart()
    {
        UbrofWriter w;
        w.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10));
        return w;
    }

    // Global lines of a version 10 file: main.c 1-2, the header 1-5 (included at main.c line 2), main.c 3-20.
    static WriterSourceFiles sources(const std::string& header = "io.h")
    {
        WriterSourceFiles files;
        files.directories = {"C:\\src\\"};
        files.files = {{"main.c", 1, 20, {}}, {header, 1, 5, {}}};
        files.include(0, 0).include(2, 1).end().end();
        return files;
    }

    static const Function& function(const Program& program, const std::string& name)
    {
        const std::vector<uint32_t> found = findFunctions(program, name);
        EXPECT_EQ(1u, found.size()) << name;
        return program.functions.at(found.at(0));
    }

    static const Variable& variable(const Program& program, const std::string& name)
    {
        const std::vector<uint32_t> found = findVariables(program, name);
        EXPECT_EQ(1u, found.size()) << name;
        return program.variables.at(found.at(0));
    }

    using FunctionRow = std::tuple<std::string, uint32_t, uint32_t, bool>; ///< name, entry, end, described
    static std::vector<FunctionRow> functionRows(const Program& program)
    {
        std::vector<FunctionRow> rows;
        for (const Function& function : program.functions)
            rows.emplace_back(function.qualifiedName, function.entry, function.end, function.isDescribed);
        return rows;
    }

    /// The line and whether it starts a statement at each address of [low, high); 0 for none.
    static std::vector<std::pair<uint32_t, bool>> linesOf(const Program& program, uint32_t low, uint32_t high)
    {
        std::vector<std::pair<uint32_t, bool>> lines;
        for (uint32_t address = low; address < high; ++address) {
            const LineRow* row = program.lineAt(address);
            lines.emplace_back(row ? row->line : 0, row && row->isStatement && row->address == address);
        }
        return lines;
    }

    ScratchDir dir;
};

// Entry code comes before the function's block begins and code after its statements follows
// them: the function spans all of it, and every byte takes the line of the statement before it.
TEST_F(ModelTest, FunctionsSpanTheirEntryCodeAndEveryByteHasALine)
{
    UbrofWriter w = fileStart();
    w.begPgm("motor").fileRef(0, "motor.c");
    w.scopedName("start").scopedName("stop"); // names 0, 1
    w.symbolDef2(0, kPublic, kCodeSpace, 0x100, 0).sourceRange(0, 10);
    w.symbolDef2(1, kStatic, kCodeSpace, 0x120, 0);
    w.org(1, 0x100).srcStat(10, 11, 14).absVar({0x0F, 0x93, 0x1F, 0x93}); // header and prologue
    w.blockBegin3(0).srcStat(12, 12).absVar({1, 2}).absVar({3, 4});       // a second chunk of line 12
    w.blockBegin1().srcStat(13, 13).absVar({5, 6}).blockEnd();
    w.absVar({7, 8});                                                       // after the inner block
    w.srcStat(14, 14).absVar({0x08, 0x95}).absVar({0xFF, 0xCF}).blockEnd(); // and after the last statement
    w.org(1, 0x120).blockBegin3(1).absVar({9, 9}).srcStat(20, 20).absVar({0x08, 0x95}).blockEnd();
    w.end().eof();
    const Program program = build(w);

    EXPECT_EQ((std::vector<FunctionRow>{{"start", 0x100, 0x110, true}, {"stop", 0x120, 0x124, true}}), functionRows(program));
    const Function& start = program.functions.at(0);
    EXPECT_EQ(std::make_tuple(true, 10u, std::string("motor.c"), false),
              std::make_tuple(start.isExternal, start.line, program.files.at(start.file).path, program.functions[1].isExternal));

    using Lines = std::vector<std::pair<uint32_t, bool>>;
    EXPECT_EQ((Lines{{10, true}, {10, false}, {10, false}, {10, false}, {12, true}, {12, false}, {12, false},
                     {12, false}, {13, true}, {13, false}, {13, false}, {13, false}, {14, true}, {14, false},
                     {14, false}, {14, false}}),
              linesOf(program, 0x100, 0x110));
    // Entry code before any statement takes the function's first one.
    EXPECT_EQ((Lines{{20, false}, {20, false}, {20, true}, {20, false}}), linesOf(program, 0x120, 0x124));
    for (size_t i = 1; i < program.lines.size(); ++i)
        EXPECT_LE(program.lines[i - 1].end, program.lines[i].address);

    ASSERT_EQ(1u, start.blocks.size());
    EXPECT_EQ(std::make_pair(0x108u, 0x10Au), std::make_pair(program.blocks[start.blocks[0]].low, program.blocks[start.blocks[0]].high));
    EXPECT_EQ(std::make_pair(0u, 0xFu), std::make_pair(symbolize(program, 0x10F).function, symbolize(program, 0x10F).offset));
    EXPECT_EQ(kNone, symbolize(program, 0x110).function);
    EXPECT_EQ(nullptr, symbolize(program, 0x118).row);
}

// Functions never overlap, whatever their blocks wrote; code written far away is not theirs.
TEST_F(ModelTest, AFunctionEndsWhereTheNextBegins)
{
    UbrofWriter w = fileStart();
    w.begPgm("m").scopedName("first").scopedName("second");
    w.symbolDef2(0, kPublic, kCodeSpace, 0x200, 0).symbolDef2(1, kPublic, kCodeSpace, 0x204, 0);
    w.org(1, 0x200).blockBegin3(0).srcStat(1, 1).absVar({1, 2, 3, 4, 5, 6, 7, 8});
    w.org(1, 0x400).absVar({0xAA, 0xBB}).blockEnd(); // a table the block placed elsewhere
    w.org(1, 0x208).blockBegin3(1).srcStat(2, 2).absVar({1, 2}).blockEnd().end().eof();
    const Program program = build(w);

    EXPECT_EQ((std::vector<FunctionRow>{{"first", 0x200, 0x204, true}, {"second", 0x204, 0x20A, true}}), functionRows(program));
    EXPECT_FALSE(program.notes.empty());
}

// Code a module writes after a function's block has closed is that function's tail, or, where a
// label stands, a piece of its own that functions jump to; a function known by its symbol alone
// runs over all its module writes there, past the labels of its loops.
TEST_F(ModelTest, CodeAfterAFunctionAndAnAssemblerRoutineBelongToFunctions)
{
    UbrofWriter w = fileStart();
    w.typeFunction35(100, kVoid, 0, 0, {});
    w.begPgm("fifo").fileRef(0, "fifo.c");
    w.scopedName("f").scopedName("g").scopedName("?Subroutine0").scopedName("h"); // names 0-3
    w.symbolDef2(0, kPublic, kCodeSpace, 0x100, 100).symbolDef2(1, kPublic, kCodeSpace, 0x106, 100);
    w.symbolDef2(2, kStatic, kCodeSpace, 0x10A, 0).symbolDef2(3, kPublic, kCodeSpace, 0x10C, 100);
    w.org(1, 0x100).blockBegin3(0).srcStat(1, 1).absVar({1, 2, 3, 4}).blockEnd().absVar({5, 6});
    w.blockBegin3(1).srcStat(5, 5).absVar({1, 2, 3, 4}).blockEnd().absVar({0x08, 0x95});
    w.blockBegin3(3).srcStat(9, 9).absVar({0x08, 0x95}).blockEnd().end();
    w.begPgm("stuff").fileRef(0, "stuff.asm").scopedName("_i2a").scopedName("??i2a_0"); // names 4, 5
    w.symbolDef2(4, kPublic, kCodeSpace, 0x200, 100).symbolDef2(5, kStatic, kCodeSpace, 0x202, 0);
    w.org(1, 0x200).srcStat(1, 1).absVar({1, 2}).srcStat(2, 2).absVar({3, 4}).srcStat(3, 3).absVar({5, 6});
    w.end().eof();
    const Program program = build(w);

    // ??i2a_0 is a loop's label inside _i2a, no function of its own.
    EXPECT_EQ((std::vector<FunctionRow>{{"f", 0x100, 0x106, true}, {"g", 0x106, 0x10A, true},
                                        {"?Subroutine0", 0x10A, 0x10C, false}, {"h", 0x10C, 0x10E, true},
                                        {"_i2a", 0x200, 0x206, false}}),
              functionRows(program));
    ASSERT_NE(nullptr, program.lineAt(0x105));
    EXPECT_EQ(1u, program.lineAt(0x105)->line);
}

// Parameters come first, one per parameter type; every location kind, and where it changes.
TEST_F(ModelTest, VariablesHaveTheirLocationsAndRanges)
{
    UbrofWriter w = fileStart();
    w.begPgm("m").scopedName("f").scopedName("a").scopedName("b").scopedName("t").scopedName("s");
    w.scopedName("s", 0).scopedName("k").scopedName("g"); // names 0-7
    w.typeFunction35(100, kVoid, 0, 0, {kInt, kChar});
    w.symbolDef2(0, kPublic, kCodeSpace, 0x300, 100);
    w.symbolDef2(5, kStatic, kDataSpace, 0x60, kInt); // the static local, listed at module level too
    w.symbolDef2(7, kPublic, kDataSpace, 0x62, kChar);
    w.org(1, 0x300).blockBegin3(0);
    w.symbolDef2(1, kRegister, 6, 40, kInt, {{0x300, kComputed, 0, 0}, {0x304, kRegister, 6, 41}, {0x308, 21, 0, 0}});
    w.symbolDef2(2, kRegister, 6, 18, kChar);
    w.symbolDef2(3, kFrame, kDataSpace, 0xFFFFFFFE, kInt);
    w.symbolDef2(4, kStatic, kDataSpace, 0x60, kInt);
    w.symbolDef2(6, 9, 0, 42, kInt);
    w.srcStat(1, 1).absVar({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}).blockEnd().end().eof();
    const Program program = build(w);

    const Function& f = function(program, "f");
    ASSERT_EQ(5u, f.variables.size());
    using Register = std::tuple<std::string, bool, Location::Kind, uint32_t, uint32_t>; // name, parameter, kind, first, count
    auto inRegisters = [](const Variable& v) {
        return Register(v.name, v.isParameter, v.location.kind, v.location.firstRegister, v.location.registerCount);
    };
    const Variable& a = program.variables[f.variables[0]];
    EXPECT_EQ(Register("a", true, Location::Kind::Register, 16, 2), inRegisters(a)); // register pair code 40
    std::vector<std::tuple<uint32_t, uint32_t, Location::Kind, uint32_t>> ranges; // low, high, kind, first register
    for (const LocationRange& range : a.ranges)
        ranges.emplace_back(range.low, range.high, range.location.kind, range.location.firstRegister);
    // Kind 21 at 0x308: back to its own location.
    EXPECT_EQ((decltype(ranges){{0x300, 0x304, Location::Kind::Computed, 0}, {0x304, 0x308, Location::Kind::Register, 18},
                                {0x308, 0x30C, Location::Kind::Register, 16}}),
              ranges);
    const Variable& b = program.variables[f.variables[1]];
    EXPECT_EQ(Register("b", true, Location::Kind::Register, 18, 1), inRegisters(b));
    EXPECT_TRUE(b.ranges.empty());
    const Variable& t = program.variables[f.variables[2]];
    EXPECT_EQ(std::make_tuple(false, Location::Kind::FrameOffset, -2), std::make_tuple(t.isParameter, t.location.kind, t.location.offset));
    const Location& k = variable(program, "k").location;
    EXPECT_EQ(std::make_pair(Location::Kind::Constant, 42u), std::make_pair(k.kind, k.address));

    // The static local is one variable, of its function, named after it.
    const Variable& s = variable(program, "f::s");
    EXPECT_EQ(std::make_tuple(0u, MemorySpace::Data, 0x60u, 2u), std::make_tuple(s.function, s.location.space, s.location.address, s.size));
    const Variable& g = variable(program, "g");
    EXPECT_EQ(std::make_pair(kNone, true), std::make_pair(g.function, g.isExternal));
    EXPECT_EQ((std::vector<uint32_t>{static_cast<uint32_t>(&g - program.variables.data())}),
              program.modules[0].variables);
}

// Names take their enclosing classes from the name records' parents; blocks and the compiler's
// internal namespaces add nothing, and plain C names stay as they are.
TEST_F(ModelTest, NamesAreQualifiedByTheirClasses)
{
    UbrofWriter w = fileStart();
    w.begPgm("m").scopedName("Motor").scopedName("Fsm", 0).scopedName("Valve").scopedName("Fsm", 2); // 0-3
    w.scopedName("count", 0).scopedName("__vtbl", 0).scopedName("<internal namespace 3 (m)>");        // 4-6
    w.scopedName("helper", 6).scopedBlockName(1, 1).scopedName("calls", 8).scopedName("main");       // 7-10
    w.symbolDef2(1, kPublic, kCodeSpace, 0x10, 0).symbolDef2(3, kPublic, kCodeSpace, 0x20, 0);
    w.symbolDef2(7, kStatic, kCodeSpace, 0x30, 0).symbolDef2(10, kPublic, kCodeSpace, 0x40, 0);
    w.symbolDef2(4, kPublic, kDataSpace, 0x100, kInt).symbolDef2(5, kPublic, kCodeSpace, 0x80, kInt);
    w.symbolDef2(9, kStatic, kDataSpace, 0x102, kChar);
    for (uint32_t name : {1u, 3u, 7u, 10u}) {
        w.org(1, name == 1 ? 0x10 : name == 3 ? 0x20 : name == 7 ? 0x30 : 0x40).blockBegin3(name);
        w.srcStat(1, 1).absVar({1, 2}).blockEnd();
    }
    w.end().eof();
    const Program program = build(w);

    EXPECT_EQ((std::vector<FunctionRow>{{"Motor::Fsm", 0x10, 0x12, true}, {"Valve::Fsm", 0x20, 0x22, true},
                                        {"helper", 0x30, 0x32, true}, {"main", 0x40, 0x42, true}}),
              functionRows(program));
    EXPECT_EQ(2u, findFunctions(program, "Fsm").size());
    for (const auto& [name, address] : std::vector<std::pair<std::string, uint32_t>>{
             {"Motor::count", 0x100}, {"Motor::__vtbl", 0x80}, {"Motor::Fsm::calls", 0x102}})
        EXPECT_EQ(address, variable(program, name).location.address) << name;
    const SourcePlace place = symbolize(program, 0x21);
    ASSERT_NE(kNone, place.function);
    EXPECT_EQ("Valve::Fsm", program.functions[place.function].qualifiedName);
}

// Typedef chains, members with bit fields, C syntax of function pointers, arrays and qualifiers,
// the memory a pointer points into, and type graphs that run in circles.
TEST_F(ModelTest, TypesAreResolvedAndWrittenInC)
{
    UbrofWriter w = fileStart();
    w.begPgm("m").scopedName("uint8_t").scopedName("u8").scopedName("loop").scopedName("v"); // 0-3
    w.memInfo(1, "__near", 2).memInfo(4, "__flash", 2).memInfo(8, "__nearfunc", 3);
    w.typeTypedef(100, kUnsignedChar, 0).typeTypedef(101, 100, 1);
    w.typeFunction35(102, 100, 0, 0, {}).typeInMemory(103, 43, 8, 102, 8).typePointer(104, 15, 103);
    w.typeBitField(106, 3, 0, kUnsignedChar).typeBitField(107, 5, 3, kUnsignedChar);
    w.typeStruct(105, "point", 4, {{"x", kInt, 0}, {"mode", 106, 2}, {"speed", 107, 2}});
    w.typeArray(108, kInt, 4, 2).typeArray(109, 108, 12, 3);
    w.typeEnum(110, kChar, "color", {{"red", 0}, {"dark", 0xFFFFFFFF}});
    w.typeInMemory(111, 42, 4, kUnsignedChar, 1).typePointer(112, 15, 111);
    w.typeQualified(113, 6, kInt).typeQualified(114, 0x50, kUnsignedChar);
    w.typeTypedef(115, 115, 2);                                          // a typedef naming itself
    w.typeStruct(116, "box", 2, {{"inner", 116, 0}});                    // containing itself
    w.typePointer(117, 15, 118).typeStruct(118, "node", 2, {{"next", 117, 0}}); // pointing at itself: sound
    w.typePointer(119, 15, 119);                                         // a pointer to itself
    w.symbolDef2(3, kPublic, kDataSpace, 0x100, 101).end().eof();
    const Program program = build(w);
    const std::vector<Type>& types = program.types;

    // Each type's C text, size and kind; a cycle leaves the types that close it unknown.
    const std::vector<std::tuple<uint32_t, std::string, uint32_t, Kind>> expected = {
        {101, "u8", 1, Kind::Typedef}, {104, "uint8_t (*)(void)", 3, Kind::Pointer}, // 3: its target's memory
        {109, "int[3][2]", 12, Kind::Array}, {112, "const unsigned char *", 2, Kind::Pointer},
    };
    for (const auto& [index, text, size, kind] : expected)
        EXPECT_EQ(std::make_tuple(text, size, kind), std::make_tuple(types[index].cName, types[index].size, types[index].kind))
            << index;
    for (const auto& [index, text] : std::vector<std::pair<uint32_t, std::string>>{
             {102, "uint8_t (void)"}, {105, "struct point"}, {113, "const volatile int"}, {117, "struct node *"}})
        EXPECT_EQ(text, types[index].cName) << index;
    EXPECT_EQ((std::vector<Kind>{Kind::Base, Kind::Unknown, Kind::Unknown, Kind::Structure, Kind::Unknown}),
              (std::vector<Kind>{types[114].kind, types[115].kind, types[116].kind, types[118].kind, types[119].kind}))
        << "an I/O mark is no qualifier of C";
    EXPECT_EQ(kUnsignedChar, types[101].resolved);
    EXPECT_EQ(1u, variable(program, "v").size);
    EXPECT_EQ(std::make_pair(MemorySpace::Code, 102u), std::make_pair(types[104].pointerSpace, types[104].target))
        << "past the memory qualifier";
    EXPECT_EQ(MemorySpace::Code, types[112].pointerSpace);

    const Type& point = types[105];
    ASSERT_EQ(3u, point.members.size());
    const Type::Member& speed = point.members[2];
    EXPECT_EQ(std::make_tuple(std::string("speed"), uint32_t(kUnsignedChar), 2u, 5u, 3u),
              std::make_tuple(speed.name, speed.type, speed.offset, speed.bitSize, speed.bitOffset));
    EXPECT_EQ((std::vector<uint32_t>{3, 2}), types[109].dimensions);
    EXPECT_EQ(uint32_t(kInt), types[109].target);
    ASSERT_EQ(2u, types[110].enumerators.size());
    EXPECT_EQ(std::make_pair(int64_t(-1), 1u), std::make_pair(int64_t(types[110].enumerators[1].value), types[110].size));
    EXPECT_EQ(Kind::Volatile, types[types[113].target].kind);
}

// Chains as long as the type indices allow resolve without a deep walk.
TEST_F(ModelTest, LongTypeChainsResolve)
{
    UbrofWriter w = fileStart();
    w.begPgm("m").scopedName("t");
    constexpr uint16_t kFirst = 100, kLast = 60000;
    w.typeTypedef(kFirst, kInt, 0);
    for (uint32_t index = kFirst + 1; index <= kLast; ++index)
        w.typeTypedef(static_cast<uint16_t>(index), static_cast<uint16_t>(index - 1), 0);
    w.typePointer(kLast + 1, 15, kLast + 2);
    for (uint32_t index = kLast + 2; index < 65535; ++index)
        w.typePointer(static_cast<uint16_t>(index), 15, static_cast<uint16_t>(index + 1));
    w.end().eof();
    const Program program = build(w);
    EXPECT_EQ(uint32_t(kInt), program.types[kLast].resolved);
    EXPECT_EQ(2u, program.types[kLast].size);
    EXPECT_EQ(Kind::Pointer, program.types[kLast + 1].kind);
    EXPECT_LE(program.types[kLast + 1].cName.size(), 512u);
}

// The processor: the CPU the file names; else the one device its sources' register headers name
// (version 8 file references, or the source files of version 10 with the core they name); else the
// module's target code; else the file's extension.
TEST_F(ModelTest, TheProcessorIsNamedByTheFileItsDeviceHeaderItsTargetOrItsExtension)
{
    struct Row {
        std::string cpu, core; ///< a core makes it a version 10 file
        std::vector<std::string> headers;
        std::string extension;
        std::string expected;
    };
    const std::string inc = "C:\\avr\\INC\\";
    std::vector<Row> rows = {
        {"", "", {inc + "iomacro.h", inc + "iom16.h", inc + "intrinsics.h"}, "d90", "AVR ATmega16"},
        {"", "", {inc + "iom16.h", inc + "iom32.h"}, "d90", "AVR "}, // two devices name none
        {"ATmega32", "", {inc + "iom16.h"}, "d90", "AVR ATmega32"},
        {"", "", {}, "d43", "AVR "}, // the target code comes before the extension
        {"", "plain", {"ioCC2530.h"}, "dbg", "8051 CC2530"},
        {"", "rl78_1", {"ior5f100le.h"}, "dbg", "RL78 R5F100LE"},
        {"", "430X", {"msp430fr5739.h"}, "dbg", "MSP430 MSP430FR5739"},
        {"", "430", {"msp430.h"}, "dbg", "MSP430 "},     // the generic header names no part
        {"", "430", {"msp430x14x.h"}, "dbg", "MSP430 "}, // nor does a family's
        {"", "430", {"ioCC2530.h"}, "dbg", "MSP430 "},   // a part of another family is no evidence
    };
    for (const auto& [header, device] : std::vector<std::pair<std::string, std::string>>{
             {"iotn2313.h", "ATtiny2313"}, {"IOM128.H", "ATmega128"}, {"ioavr.h", ""}, {"iom.h", ""}, {"iom16_x.h", ""}})
        rows.push_back({"", "", {"inc/" + header}, "d90", "AVR " + device});
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected + " from " + (row.headers.empty() ? row.extension : row.headers.back()));
        UbrofWriter w;
        if (row.core.empty()) {
            w.begFile1().version(8);
            if (!row.cpu.empty())
                w.keyValue("__cpu_name", row.cpu);
            w.begPgm("main").aux1("4.10B", 0x5A32);
            for (uint16_t reference = 0; reference < row.headers.size(); ++reference)
                w.fileRef(reference, row.headers[reference]);
        } else {
            w = newerStart();
            w.keyValue("__core", row.core).begPgm("m").sourceFiles(sources(row.headers.at(0)));
        }
        w.end().eof();
        const Program program = loadProgram(dir.save(w, "program." + row.extension));
        EXPECT_EQ(row.expected, std::string(familyName(program.processor.family)) + " " + program.processor.name);
    }
    UbrofWriter bare = fileStart();
    bare.begPgm("m").end().eof();
    EXPECT_EQ(Family::Msp430, loadProgram(dir.save(bare, "program.d43")).processor.family);
    EXPECT_EQ(Family::Unknown, loadProgram(dir.save(bare, "program.dbg")).processor.family);
}

// Modules by their names, with their files and what they occupy; memories as the runs written;
// and the entry point the file names.
TEST_F(ModelTest, ModulesMemoriesAndTheProcessor)
{
    UbrofWriter w = fileStart();
    w.keyValue("__cpu_name", "ATmega16").keyValue("__memory_model", "2");
    w.begPgm("main").aux1("4.10B", 0x5A32).fileRef(0, "inc/io.h").fileRef(1, "src/main.c").newFile(1);
    w.scopedName("main").scopedName("table").scopedName("__program_start").scopedName("counter"); // 0-3
    w.symbolDef2(0, kPublic, kCodeSpace, 0x10, 0).symbolDef2(3, kPublic, kDataSpace, 0x60, kInt);
    w.symbolDef2(1, kPublic, 3, 0x4, kChar);
    w.org(1, 0x10).blockBegin3(0).srcStat(5, 5).absVar({1, 2, 3, 4, 5, 6}).blockEnd();
    w.org(1, 0x12).absVar({9, 9});                                  // a later write wins
    w.org(3, 0x4).absVar({0x55}).end();
    w.begPgm("empty").fileRef(0, "src/empty.c").end();
    w.begLib("?RESET").aux1("2.10", 0x5A30).symbolDef2(2, kPublic, kCodeSpace, 0, 0);
    w.org(1, 0).absVar({0x0C, 0x94, 0x08, 0x00}).endAbs().eof();
    const Program program = build(w);

    EXPECT_EQ(8, program.version);
    EXPECT_EQ("4.10B", program.producer);
    EXPECT_EQ(2u, program.attributes.size());
    EXPECT_EQ(0u, program.entryPoint.value_or(1));

    // Each module: its name, its own file and how many it refers to, and what it takes of each memory.
    std::vector<std::tuple<std::string, std::string, size_t, uint64_t, uint64_t, uint64_t>> modules;
    for (const Module& module : program.modules)
        modules.emplace_back(module.name, module.file == kNone ? "" : program.files.at(module.file).path,
                             module.files.size(), module.size(MemorySpace::Code), module.size(MemorySpace::Data),
                             module.size(MemorySpace::Eeprom));
    EXPECT_EQ((decltype(modules){{"main", "src/main.c", 2, 6, 2, 1}, {"empty", "src/empty.c", 1, 0, 0, 0},
                                 {"?RESET", "", 0, 4, 0, 0}}),
              modules);

    const MemoryImage* code = program.memory(MemorySpace::Code);
    ASSERT_NE(nullptr, code);
    ASSERT_EQ(2u, code->runs.size());
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 9, 9, 5, 6}), code->runs[1].bytes);
    EXPECT_EQ(std::make_pair(uint64_t(10), uint64_t(0x16)), std::make_pair(code->byteCount(), code->endAddress()));
    EXPECT_EQ(1u, program.memory(MemorySpace::Eeprom)->byteCount());
    EXPECT_EQ(nullptr, program.memory(MemorySpace::Data));
    EXPECT_EQ("main", sizesByModule(program).at(0).name);
    EXPECT_EQ(10u, sizesByMemory(program).at(0).bytes);
    // A label such as __program_start is neither function nor variable.
    std::vector<std::pair<std::string, MemorySpace>> listed;
    for (const SymbolEntry& entry : listSymbols(program))
        listed.emplace_back(*entry.qualifiedName, entry.space);
    EXPECT_EQ((std::vector<std::pair<std::string, MemorySpace>>{
                  {"main", MemorySpace::Code}, {"counter", MemorySpace::Data}, {"table", MemorySpace::Eeprom}}),
              listed);
}

// What a memory takes: the bytes written there and the storage of the modules' variables, each
// byte once, whether a variable's initial value is written or not; a light build answers alike.
TEST_F(ModelTest, MemoryUseCountsEachByteOnce)
{
    UbrofWriter w = fileStart();
    w.begPgm("a").scopedName("x").scopedName("y").scopedName("z"); // names 0-2
    w.symbolDef2(0, kPublic, kDataSpace, 0x100, kInt).symbolDef2(1, kPublic, kDataSpace, 0x102, kInt);
    w.org(2, 0x101).absVar({0x12, 0x34});        // y's first byte, and the last of x
    w.org(1, 0x0).absVar({1, 2, 3, 4}).end();
    w.begPgm("b").symbolDef2(2, kPublic, kDataSpace, 0x200, kChar).org(1, 0x10).absVar({5, 6}).end();
    w.org(1, 0x40).absVar({7}).eof(); // no module's

    BuildOptions light;
    light.light = true;
    for (const Program& program : {build(w), build(w, light)}) {
        std::vector<std::tuple<MemorySpace, uint64_t, uint64_t, uint32_t, uint64_t>> uses; // bytes, written, low, end
        for (const MemoryUse& use : memoryUse(program))
            uses.emplace_back(use.space, use.bytes, use.written, use.low, use.end);
        // Data: x and y, 4 bytes with the 2 written among them, and z.
        EXPECT_EQ((decltype(uses){{MemorySpace::Code, 7, 7, 0, 0x41}, {MemorySpace::Data, 5, 2, 0x100, 0x201}}), uses);
    }
}

// main at 0x100: its prologue before its block, its epilogue after it; 12 bytes by t_function_info.
// Its rows: the entry on main.c 10 to 11, a statement on 12 with a call inside it, one on 13, and a
// row past its code. helper at 0x10C, sized by its line program alone, has a program the reader
// cannot run; a fragment at 0x120 serves both.
TEST_F(ModelTest, FunctionsTakeSizeStackPositionAndLinesFromTheirOwnTags)
{
    UbrofWriter w = newerStart();
    w.segInfo({{"CODE", {{0x100, 0x30}}, 1}, {"CSTACK", {{0x200, 0x40}}, 2}, {"RSTACK", {{0x240, 0x20}}, 2}});
    w.begPgm("main").sourceFiles(sources()).scopedName("main").scopedName("count").scopedName("helper");
    w.symbolDef2(0, 2, 1, 0x100, 0).symbolPosition(0, 10).sourcePosition(15, 6, 0, 9);
    w.stackUseCount(3).stackUse(1, 4).stackUse(2, 2).stackUse(1, 3);
    w.symbolDef2(1, 4, 2, 0x60, kInt).sourcePosition(4, 5, 0, 9);
    w.symbolDef2(2, 2, 1, 0x10C, 0).symbolPosition(0, 18).stackUseCount(1).stackUse(1, 9);
    WriterLineProgram main;
    main.kind(3).spans(1).line(15).row(0, 0, 1, 4).row(1, 2, 3, 10).calls(2).row(2).row(2, 1).row(3);
    w.org(1, 0x100).functionSize(12, 0).lineProgramHeader(2).lineProgram({0, 6, 2, 0, 15, 6, 3, 1, main.bytes});
    w.absVar({1, 2}).blockBegin3(0).absVar({3, 4, 5, 6, 7, 8, 9, 10}).blockEnd().absVar({11, 12});
    WriterLineProgram broken;
    broken.kind(3).line(23).row(0).byte(1).row(1);
    w.org(1, 0x10C).lineProgram({2, 2, 2, 0, 23, 1, 0, 1, broken.bytes}).blockBegin3(2).absVar({1, 2}).blockEnd();
    w.absVar({3, 4});
    WriterLineProgram fragment;
    fragment.line(18).row(0);
    w.org(1, 0x120).lineProgram({0, 1, 0, 9, 18, 3, 0, 7, fragment.bytes}).lineProgram({2, 1, 0, 9, 18, 3, 0, 7, fragment.bytes});
    w.absVar({0x11, 0x12}).counted(0xD5, {7, 1, 2}).end().eof();
    const Program program = build(w);

    ASSERT_EQ(2u, program.functions.size());
    const Function& f = program.functions[0];
    EXPECT_EQ(std::make_tuple(0x100u, 0x10Cu, 0u, 10u), std::make_tuple(f.entry, f.end, f.file, f.line));
    EXPECT_EQ((std::vector<std::pair<std::string, uint32_t>>{{"CSTACK", 7}, {"RSTACK", 2}}), f.stackUse);
    EXPECT_EQ((std::vector<std::string>{"CSTACK", "RSTACK"}), stackSegments(program));
    EXPECT_EQ(7u, stackUse(f, "CSTACK"));
    std::vector<std::tuple<std::string, uint32_t, uint32_t>> stack;
    for (const StackEntry& entry : stackUseByFunction(program))
        stack.emplace_back(entry.segment, entry.function, entry.bytes);
    EXPECT_EQ((decltype(stack){{"CSTACK", 1, 9}, {"CSTACK", 0, 7}, {"RSTACK", 0, 2}}), stack);
    const Variable& count = program.variables.at(findVariables(program, "count").at(0));
    EXPECT_EQ("C:\\src\\io.h", program.files.at(count.file).path);
    EXPECT_EQ(2u, count.line);

    // Each byte on the line its code is listed under: the entry on the brace (11); the call joins
    // its statement; the row past the code places nothing.
    std::vector<std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, bool>> rows;
    for (const LineRow& row : program.lines)
        rows.emplace_back(row.address, row.end, row.line, row.column, row.isStatement);
    EXPECT_EQ((decltype(rows){{0x100, 0x102, 11, 0, true}, {0x102, 0x10A, 12, 4, true}, {0x10A, 0x10C, 13, 4, true},
                              {0x10C, 0x110, 18, 0, true}}),
              rows);
    const SourcePlace place = symbolize(program, 0x100);
    EXPECT_EQ(0u, place.function);
    EXPECT_EQ(11u, place.row->line);
    EXPECT_EQ(kNone, symbolize(program, 0x120).function);

    ASSERT_EQ(3u, program.notes.size());
    EXPECT_EQ("function helper: no statement rows are understood (opcode 1 at byte 16 of its body); its code "
              "stands on the line of its name",
              program.notes[0]);
    EXPECT_EQ("code at 0x120 (2 bytes): the statement rows of main, helper are not understood (it is a shared code "
              "fragment (form 0)); it lies in no function and has no line",
              program.notes[1]);
    EXPECT_NE(std::string::npos, program.notes[2].find("a line-program record of kind 7")) << program.notes[2];
    EXPECT_EQ(0u, program.notes[2].rfind("at byte ", 0));
}

// A file that cannot be read says which and why; references into nothing build nothing false.
TEST_F(ModelTest, BadFilesGiveClearErrors)
{
    auto failure = [](const std::string& path) -> std::string {
        try {
            loadProgram(path);
        } catch (const ModelError& e) {
            return e.what();
        }
        return "built";
    };
    EXPECT_EQ(dir.path("missing.d90") + ": cannot be opened", failure(dir.path("missing.d90")));
    EXPECT_EQ(dir.path("not.d90") + ": not a UBROF file (its first byte is not 0xA5)",
              failure(dir.save(std::vector<uint8_t>{0x4D, 0xFF}, "not.d90")));
    UbrofWriter w = fileStart();
    w.begPgm("m");
    EXPECT_EQ(dir.path("cut.d90") + ": Error: Unexpected end of file at offset 21, where a tag should begin "
                                     "(format version 8)",
              failure(dir.save(w, "cut.d90")));
    UbrofWriter future;
    future.begFile1().version(12).begPgm("m").end().eof();
    EXPECT_NE(std::string::npos, failure(dir.save(future, "future.d90")).find("format version 12 is newer than 11"));

    TarnUbrofParser store;
    store.initialize();
    w.end().eof();
    ASSERT_EQ(0, store.parseFile(dir.save(w)));
    EXPECT_THROW(buildProgram(store), ModelError); // parsed without its facts

    UbrofWriter dangling = fileStart();
    dangling.begPgm("m").scopedName("f", 77).scopedFunctionName(900, 1).scopedBlockName(0, 3);
    dangling.symbolDef2(0, kPublic, kCodeSpace, 0x10, 4000, {{0x10, 8, 6, 200}});
    dangling.symbolDef2(9999, kPublic, kDataSpace, 0x20, 4001).typeStruct(100, "s", 2, {{"m", 5000, 0}});
    dangling.org(1, 0x10).blockBegin3(0).symbolDef2(0, kRegister, 6, 250, 100).blockBegin3(1);
    dangling.srcStat(1, 1).absVar({1, 2}).blockEnd().blockBegin3(77777).blockEnd().blockEnd().end().eof();
    const Program program = loadProgram(dir.save(dangling));
    ASSERT_EQ(1u, program.functions.size());
    EXPECT_EQ(0x12u, program.functions[0].end);
    EXPECT_EQ(Kind::Unknown, program.types[program.types[100].members.at(0).type].kind);
}

} // namespace
} // namespace ubrof::test
