// Statement positions of format versions 10 and 11: the line-number programs of tag 0xD5, and the
// include tree of tag 0xD6 that turns their global line numbers into lines of files.
//
//   LineProgramHeader header;                 // from a kind-1 record: parseLineProgramHeader
//   LineProgramRecord record;                 // from a kind-2 record: parseLineProgramRecord
//   DecodedLineProgram program = runLineProgram(header, record.program, record.programSize);
//   IncludeTree tree(steps, lineCounts);      // a module's 0xD6 include tree
//   tree.locate(program.rows[0].line)         // -> (file of the module, line in that file)
//
// Nothing here reads a file or touches the store: the reader hands in the bytes of a tag body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

/// The parameters of the line programs that name it (t_line_program kind 1). The defaults are
/// the values every known file declares.
struct LineProgramHeader {
    uint32_t index = 0;
    uint32_t unit = 1; ///< bytes per address unit of the processor
    int32_t lineBase = 0;
    uint32_t lineRange = 5;
    int32_t startColumnBase = -8;
    uint32_t startColumnRange = 17;
    int32_t endColumnBase = -20;
    uint32_t endColumnRange = 41;
    uint32_t opcodeBase = 14; ///< opcodes from here on are two-byte rows
    std::vector<uint8_t> operandCounts{0, 0, 1, 1, 1, 1, 1, 0, 1, 0, 1, 1, 1, 1}; ///< of opcodes below opcodeBase
};

/// A kind-1 body (from its kind byte on); a text that says what is wrong when it is not one.
std::optional<LineProgramHeader> parseLineProgramHeader(const uint8_t* body, size_t size, std::string& problem);

/// A source extent as tag 0xD7 gives it: global line, first column, lines below the first, last column.
struct SourceExtent {
    uint32_t line = 0;
    uint32_t column = 0;
    uint32_t extraLines = 0;
    uint32_t lastColumn = 0;
};

/// A kind-2 body: one function's record before its program runs.
struct LineProgramRecord {
    uint32_t header = 0;   ///< the index of its kind-1 record
    uint32_t units = 0;    ///< code size in address units
    uint32_t nameId = 0;   ///< its name index plus one
    uint32_t form = 0;     ///< 2 (and 6, for runtime functions) ordinary; 0 shared fragment; 1, 3 inlined code
    uint32_t order = 0;    ///< its position among the module's functions in source order
    SourceExtent extent;   ///< the function's own extent
    const uint8_t* program = nullptr;
    size_t programSize = 0;
    size_t programOffset = 0; ///< where the program starts in the body
};

/// A kind-2 body (from its kind byte on); a text that says what is wrong when it is not one.
std::optional<LineProgramRecord> parseLineProgramRecord(const uint8_t* body, size_t size, std::string& problem);

/// Forms of record whose programs are understood: ordinary functions, and runtime functions.
bool isUnderstoodForm(uint32_t form);

/// What kind of code a row starts, from the operand of opcode 0x08 and 0x0D.
enum class RowKind : uint8_t {
    Statement,
    Entry,  ///< the function's first row, on the line of its name
    Call,   ///< a call (0x0D names the callee)
    Return, ///< the point a call returns to
};

/// One row of a program: where a statement's code starts and which source it covers.
struct LineProgramRow {
    uint32_t offset = 0;    ///< bytes from the code address of the record's t_org
    uint32_t line = 0;      ///< global line of its first source line
    uint32_t endLine = 0;   ///< global line of its last
    uint32_t column = 0;    ///< first column, from 1
    uint32_t endColumn = 0; ///< last column, inclusive
    RowKind kind = RowKind::Statement;
    uint32_t kindCode = 0;  ///< the operand of 0x08 as read; 0 when there was none
    bool fallsThrough = true;   ///< false: its code ends in a jump or a return
    uint32_t callee = 0xFFFFFFFF; ///< with 0x0D: the callee's name index as the program gives it
};

struct DecodedLineProgram {
    std::vector<LineProgramRow> rows;
    /// Empty when the whole program was understood; else what stopped it, at problemOffset
    /// bytes into the program. Rows decoded before the problem are kept.
    std::string problem;
    size_t problemOffset = 0;
    bool understood() const { return problem.empty(); }
};

/// Runs one function's program.
DecodedLineProgram runLineProgram(const LineProgramHeader& header, const uint8_t* program, size_t size);

/// A step of a module's include tree (tag 0xD6): at line `line` of the current file, `file` is
/// included; or, with `enters` false, the current file ends.
struct IncludeStep {
    bool enters = true;
    uint32_t line = 0;
    uint32_t file = 0;
};

/// Global lines first .. first + count - 1 are lines firstLine .. of file.
struct IncludeSpan {
    uint32_t first = 0;
    uint32_t file = 0;
    uint32_t firstLine = 0;
    uint32_t count = 0;
};

/// The global line numbers of one module: they count from 1 through each file, an included file's
/// lines standing right after the line that includes it.
class IncludeTree {
public:
    IncludeTree() = default;
    /// lineCounts: the lines of each file of the module. Steps that name a file the module does
    /// not have, or that leave files open or close more than were opened, leave a problem.
    IncludeTree(const std::vector<IncludeStep>& steps, const std::vector<uint32_t>& lineCounts);

    const std::vector<IncludeSpan>& spans() const { return spans_; }
    const std::string& problem() const { return problem_; }

    /// The file (index in the module's list) and line of a global line; the file is
    /// 0xFFFFFFFF when no span holds the line.
    std::pair<uint32_t, uint32_t> locate(uint32_t globalLine) const;

private:
    std::vector<IncludeSpan> spans_;
    std::string problem_;
};

} // namespace ubrof
