// The program model of writer-built files of format version 10: sizes, positions, stack use and
// statement lines from the tags of those versions, and what it cannot read.
#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"

namespace ubrof::test {
namespace {

using namespace ubrof::model;

constexpr uint16_t kInt = 6;

class NewerModelTest : public ::testing::Test {
protected:
    static UbrofWriter fileStart()
    {
        UbrofWriter w;
        w.begFile1().version(10, 0, 2, UbrofWriter::newerSkipInfo(10));
        return w;
    }

    // Global lines: main.c 1-2, io.h 1-5 (included at main.c line 2), main.c 3-20.
    static WriterSourceFiles sources()
    {
        WriterSourceFiles files;
        files.directories = {"C:\\src\\"};
        files.files = {{"main.c", 1, 20, {}}, {"io.h", 1, 5, {}}};
        files.include(0, 0).include(2, 1).end().end();
        return files;
    }

    Program build(const UbrofWriter& w, BuildOptions options = {}) { return loadProgram(dir.save(w), options); }

    ScratchDir dir;
};

// main at 0x100: its prologue before its block, its epilogue after it; 12 bytes by t_function_info.
// Its rows: the entry on main.c 10 to 11, a statement on 12 with a call inside it, one on 13, and a
// row past its code. helper at 0x10C, sized by its line program alone, has a program the reader
// cannot run; a fragment at 0x120 serves both.
TEST_F(NewerModelTest, FunctionsTakeSizeStackPositionAndLinesFromTheirOwnTags)
{
    UbrofWriter w = fileStart();
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

    BuildOptions light;
    light.light = true;
    const Program summary = build(w, light);
    EXPECT_TRUE(summary.functions.empty() && summary.lines.empty() && summary.notes.empty());
    EXPECT_EQ(program.modules.at(0).size(MemorySpace::Code), summary.modules.at(0).size(MemorySpace::Code));
}

} // namespace
} // namespace ubrof::test
