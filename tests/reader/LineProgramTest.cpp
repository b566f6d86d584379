// The line-program decoder and the include tree, on bytes the writer builds: no file involved.
#include "reader/LineProgram.h"
#include "writer/UbrofWriter.h"

#include <gtest/gtest.h>
#include <functional>

namespace ubrof {
namespace {

// The body of a writer-built t_line_program tag, without its tag code and count.
std::vector<uint8_t> bodyOf(const UbrofWriter& w)
{
    std::vector<uint8_t> bytes = w.bytes();
    size_t skip = 2; // tag code and a one-byte count
    if (bytes.size() > 1 && bytes[1] >= 0x80)
        skip = 3;
    return std::vector<uint8_t>(bytes.begin() + long(skip), bytes.end());
}

LineProgramHeader standardHeader(uint8_t unit)
{
    UbrofWriter w;
    w.lineProgramHeader(unit, 0);
    const std::vector<uint8_t> body = bodyOf(w);
    std::string problem;
    const std::optional<LineProgramHeader> header = parseLineProgramHeader(body.data(), body.size(), problem);
    EXPECT_TRUE(header) << problem;
    return header.value_or(LineProgramHeader{});
}

DecodedLineProgram run(const WriterLineProgram& program, uint8_t unit = 2)
{
    return runLineProgram(standardHeader(unit), program.bytes.data(), program.bytes.size());
}

using Row = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>; // offset, line, end line, columns

std::vector<Row> rowsOf(const DecodedLineProgram& decoded)
{
    std::vector<Row> rows;
    for (const LineProgramRow& row : decoded.rows)
        rows.emplace_back(row.offset, row.line, row.endLine, row.column, row.endColumn);
    return rows;
}

// The header every known file declares is read by every decoder test below, whose rows depend
// on each of its fields; headers that would make the decoder misread or divide by zero are
// refused, with the reason.
TEST(LineProgram, RefusesHeadersThatWouldMisleadTheDecoder)
{
    UbrofWriter w;
    w.lineProgramHeader(2);
    const std::vector<uint8_t> body = bodyOf(w);
    using Change = std::function<void(std::vector<uint8_t>&)>;
    const std::pair<Change, const char*> cases[] = {
        {[](auto& b) { b[11 + 3] = 2; }, "opcode 3 takes 2 operands in this header"},
        {[](auto& b) { b[5] = 0; }, "a header with a zero parameter"}, // line range
        {[](auto& b) { b.push_back(0); }, "bytes after the header at byte 25"},
        {[](auto& b) { b.resize(20); }, "the body ends inside a field at byte 20"},
        {[](auto& b) { b[2] = 2; }, "a header of format 2"}};
    for (const auto& [change, expected] : cases) {
        std::vector<uint8_t> changed = body;
        change(changed);
        std::string problem;
        EXPECT_FALSE(parseLineProgramHeader(changed.data(), changed.size(), problem));
        EXPECT_EQ(expected, problem);
    }
}

TEST(LineProgram, TwoByteRowsMoveAllFourRegistersAtOnce)
{
    WriterLineProgram program;
    program.line(100).row(0, 0, 1, 4); // the line register starts at 0
    program.row(1, 4, 8, 20);          // the largest moves of the two-byte form
    program.row(16, 0, -8, -20);       // and the smallest
    program.longAdvance().row(0);
    // 0xEB 0xC9 0x00: +9451, the example of the note; the last byte's bit 0x40 is the sign.
    program.byte(3).byte(0xEB).byte(0xC9).byte(0x00).row(0);
    program.line(-9600).row(0); // below the module's first line
    const DecodedLineProgram decoded = run(program);
    EXPECT_EQ((std::vector<Row>{{0, 100, 100, 1, 4},
                                {2, 104, 104, 9, 24},
                                {34, 104, 104, 1, 4},
                                {68, 104, 104, 1, 4},
                                {68, 9555, 9555, 1, 4}}),
              rowsOf(decoded));
    EXPECT_EQ("a line outside the module's lines", decoded.problem);
    EXPECT_EQ(program.bytes.size() - 2, decoded.problemOffset);

    // Two-byte rows count in address units: three bytes each on some processors.
    WriterLineProgram wide;
    wide.line(1).row(5);
    EXPECT_EQ(15u, run(wide, 3).rows.at(0).offset);
}

TEST(LineProgram, SingleOpcodesSayWhatKindOfCodeTheNextRowStarts)
{
    WriterLineProgram program;
    program.kind(3).spans(2).line(60).row(0, 0, 5, 8);           // the entry, on the line of its name
    program.advance(40).startColumn(-3).endColumn(30).row(0);   // beyond the two-byte form
    program.calls(7).row(2);
    program.kind(12).branch(-1).row(2);
    program.noFallThrough().kind(9).row(1);
    program.extended({3, 1, 2, 3, 4}).extended({4, 3, 1, 0x80, 0x01, 2}).row(1);
    const DecodedLineProgram decoded = run(program);
    ASSERT_TRUE(decoded.understood()) << decoded.problem;
    EXPECT_EQ((std::vector<Row>{{0, 60, 62, 5, 8}, {80, 60, 60, 2, 38}, {84, 60, 60, 2, 38}, {88, 60, 60, 2, 38},
                                {90, 60, 60, 2, 38}, {92, 60, 60, 2, 38}}),
              rowsOf(decoded));
    std::vector<std::tuple<RowKind, uint32_t, bool, uint32_t>> kinds;
    for (const LineProgramRow& row : decoded.rows)
        kinds.emplace_back(row.kind, row.kindCode, row.fallsThrough, row.callee);
    EXPECT_EQ((decltype(kinds){{RowKind::Entry, 3, true, 0xFFFFFFFF},
                               {RowKind::Statement, 0, true, 0xFFFFFFFF},
                               {RowKind::Call, 0, true, 7},
                               {RowKind::Return, 12, true, 0xFFFFFFFF},
                               {RowKind::Statement, 9, false, 0xFFFFFFFF},
                               {RowKind::Statement, 0, true, 0xFFFFFFFF}}),
              kinds);
}

TEST(LineProgram, StopsWhereItIsNotUnderstoodAndKeepsTheRowsBefore)
{
    using Build = std::function<void(WriterLineProgram&)>;
    const std::tuple<Build, const char*, size_t> cases[] = {
        {[](auto& p) { p.byte(1).row(1); }, "opcode 1", 4},
        {[](auto& p) { p.extended({7, 1}).row(1); }, "extended opcode 7", 4},
        {[](auto& p) { p.extended({}).row(1); }, "an extended opcode of 0 bytes", 4},
        {[](auto& p) { p.byte(3).byte(0x80); }, "the body ends inside a field", 6},
        {[](auto& p) { p.byte(20); }, "the body ends inside a field", 5},
        {[](auto& p) { p.startColumn(-100).row(0); }, "a column outside the line", 7}};
    for (const auto& [build, problem, offset] : cases) {
        WriterLineProgram program;
        program.line(5).row(0);
        build(program);
        const DecodedLineProgram decoded = run(program);
        EXPECT_EQ(std::make_tuple(size_t(1), std::string(problem), offset),
                  std::make_tuple(decoded.rows.size(), decoded.problem, decoded.problemOffset));
    }
}

TEST(LineProgram, ReadsAFunctionRecordUpToItsProgram)
{
    WriterLineProgram program;
    program.line(9482).row(0);
    UbrofWriter w;
    w.lineProgram({0x9C, 27, 2, 1, 9482, 5, 161, 1, program.bytes, 0});
    const std::vector<uint8_t> body = bodyOf(w);
    std::string problem;
    const std::optional<LineProgramRecord> record = parseLineProgramRecord(body.data(), body.size(), problem);
    ASSERT_TRUE(record) << problem;
    EXPECT_EQ(std::make_tuple(0u, 27u, 0x9Du, 2u, 1u, 9482u, 5u, 161u, 1u),
              std::make_tuple(record->header, record->units, record->nameId, record->form, record->order,
                              record->extent.line, record->extent.column, record->extent.extraLines,
                              record->extent.lastColumn));
    EXPECT_EQ(program.bytes, std::vector<uint8_t>(record->program, record->program + record->programSize));
    EXPECT_FALSE(parseLineProgramRecord(body.data(), 5, problem));
    EXPECT_EQ("the body ends inside a field at byte 5", problem);
}

TEST(IncludeTree, CountsGlobalLinesThroughEveryIncludedFile)
{
    // main.c (10 lines) includes a.h (3 lines) at its line 2, and b.h (4 lines) at line 5;
    // b.h includes a.h again at its line 1.
    const IncludeTree tree({{true, 0, 0}, {true, 2, 1}, {false}, {true, 5, 2}, {true, 1, 1}, {false}, {false}, {false}},
                           {10, 3, 4});
    ASSERT_EQ("", tree.problem());
    using Place = std::pair<uint32_t, uint32_t>;
    std::vector<Place> places;
    for (uint32_t line = 1; line <= 21; ++line)
        places.push_back(tree.locate(line));
    EXPECT_EQ((std::vector<Place>{{0, 1}, {0, 2}, {1, 1}, {1, 2}, {1, 3}, {0, 3}, {0, 4}, {0, 5}, {2, 1},
                                  {1, 1}, {1, 2}, {1, 3}, {2, 2}, {2, 3}, {2, 4}, {0, 6}, {0, 7}, {0, 8},
                                  {0, 9}, {0, 10}, {0xFFFFFFFF, 21}}),
              places);
    EXPECT_EQ(Place(0xFFFFFFFF, 0), tree.locate(0));

    EXPECT_EQ("an include of file 3 of 3", IncludeTree({{true, 0, 3}}, {10, 3, 4}).problem());
    EXPECT_EQ("the end of a file that was never included", IncludeTree({{true, 0, 0}, {false}, {false}}, {1}).problem());
    EXPECT_EQ("2 files left open", IncludeTree({{true, 0, 0}, {true, 1, 0}}, {1}).problem());
    EXPECT_EQ("more global lines than 32 bits count",
              IncludeTree({{true, 0, 0}, {false}, {true, 0, 0}, {false}}, {0xFFFFFFFF}).problem());
}

} // namespace
} // namespace ubrof
