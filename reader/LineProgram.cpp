// The line-number programs of tag 0xD5 and the include tree of tag 0xD6, decoded from their bytes.
#include "reader/LineProgram.h"

#include "reader/ByteCursor.h"

#include <algorithm>
#include <array>

namespace ubrof {
namespace {

// Operand counts of the opcodes whose meaning runLineProgram knows; a header that gives one of
// them another count describes programs this decoder would misread.
constexpr std::array<uint8_t, 14> kKnownOperandCounts{0, 0, 1, 1, 1, 1, 1, 0, 1, 0, 1, 1, 1, 1};

// Header parameters are bytes holding 7-bit signed numbers: 0x78 is -8.
int32_t signed7(uint8_t byte)
{
    return (byte & 0x40) != 0 ? int32_t(byte) - 0x80 : int32_t(byte);
}

std::string at(const char* what, size_t offset)
{
    return std::string(what) + " at byte " + std::to_string(offset);
}

} // namespace

std::optional<LineProgramHeader> parseLineProgramHeader(const uint8_t* body, size_t size, std::string& problem)
{
    LineProgramHeader header;
    try {
        ByteCursor cursor(body, size);
        if (cursor.varNumber() != 1) {
            problem = "not a header record";
            return std::nullopt;
        }
        header.index = cursor.varNumber();
        const uint8_t format = cursor.byte();
        if (format != 1) {
            problem = "a header of format " + std::to_string(format);
            return std::nullopt;
        }
        header.unit = cursor.byte();
        header.lineBase = signed7(cursor.byte());
        header.lineRange = cursor.byte();
        header.startColumnBase = signed7(cursor.byte());
        header.startColumnRange = cursor.byte();
        header.endColumnBase = signed7(cursor.byte());
        header.endColumnRange = cursor.byte();
        header.opcodeBase = cursor.byte();
        header.operandCounts.resize(header.opcodeBase);
        for (uint8_t& count : header.operandCounts)
            count = cursor.byte();
        if (!cursor.atEnd()) {
            problem = at("bytes after the header", cursor.offset());
            return std::nullopt;
        }
    } catch (const ByteCursorError& error) {
        problem = at(error.what, error.offset);
        return std::nullopt;
    }
    // Each of these would divide by zero or leave no opcode to mean anything.
    if (header.unit == 0 || header.lineRange == 0 || header.startColumnRange == 0 ||
        header.endColumnRange == 0 || header.opcodeBase == 0) {
        problem = "a header with a zero parameter";
        return std::nullopt;
    }
    for (size_t op = 1; op < header.operandCounts.size() && op < kKnownOperandCounts.size(); ++op) {
        if (header.operandCounts[op] != kKnownOperandCounts[op]) {
            problem = "opcode " + std::to_string(op) + " takes " + std::to_string(header.operandCounts[op]) +
                      " operands in this header";
            return std::nullopt;
        }
    }
    return header;
}

std::optional<LineProgramRecord> parseLineProgramRecord(const uint8_t* body, size_t size, std::string& problem)
{
    LineProgramRecord record;
    try {
        ByteCursor cursor(body, size);
        if (cursor.varNumber() != 2) {
            problem = "not a function record";
            return std::nullopt;
        }
        record.header = cursor.varNumber();
        record.units = cursor.varNumber();
        record.nameId = cursor.varNumber();
        record.form = cursor.varNumber();
        record.order = cursor.varNumber();
        record.extent.line = cursor.varNumber();
        record.extent.column = cursor.varNumber();
        record.extent.extraLines = cursor.varNumber();
        record.extent.lastColumn = cursor.varNumber();
        record.program = cursor.here();
        record.programSize = cursor.remaining();
        record.programOffset = cursor.offset();
    } catch (const ByteCursorError& error) {
        problem = at(error.what, error.offset);
        return std::nullopt;
    }
    return record;
}

bool isUnderstoodForm(uint32_t form)
{
    return form == 2 || form == 6;
}

DecodedLineProgram runLineProgram(const LineProgramHeader& header, const uint8_t* program, size_t size)
{
    DecodedLineProgram result;
    const uint64_t span = uint64_t(header.lineRange) * header.startColumnRange * header.endColumnRange;
    const uint64_t longAdvance = ((255 - std::min<uint64_t>(header.opcodeBase, 255)) * 256 + 255) / span;

    // The registers: wide enough that no file can make them wrap before the checks below see it.
    int64_t address = 0;
    int64_t line = 0;
    int64_t startColumn = 0;
    int64_t endColumn = 0;
    // What the opcodes say about the next row.
    uint32_t kindCode = 0;
    uint32_t callee = 0xFFFFFFFF;
    bool fallsThrough = true;
    int64_t extraLines = 0;

    ByteCursor cursor(program, size);
    size_t opcodeAt = 0;
    auto stop = [&](std::string problem) {
        result.problem = std::move(problem);
        result.problemOffset = opcodeAt;
    };
    try {
        while (!cursor.atEnd()) {
            opcodeAt = cursor.offset();
            const uint8_t op = cursor.byte();
            if (op >= header.opcodeBase) {
                const uint64_t value = uint64_t(op - header.opcodeBase) * 256 + cursor.byte();
                const uint64_t rest = value % span;
                address += int64_t(value / span) * header.unit;
                line += int64_t(rest % header.lineRange) + header.lineBase;
                startColumn += int64_t((rest / header.lineRange) % header.startColumnRange) + header.startColumnBase;
                endColumn += int64_t(rest / (uint64_t(header.lineRange) * header.startColumnRange)) + header.endColumnBase;

                const int64_t endLine = line + extraLines;
                if (address > INT64_C(0xFFFFFFFF)) {
                    stop("an address beyond 32 bits");
                    break;
                }
                if (line < 1 || endLine > INT64_C(0xFFFFFFFF)) {
                    stop("a line outside the module's lines");
                    break;
                }
                if (startColumn < 0 || endColumn < 0 || startColumn > INT64_C(0xFFFFFFFF) ||
                    endColumn > INT64_C(0xFFFFFFFF)) {
                    stop("a column outside the line");
                    break;
                }
                LineProgramRow row;
                row.offset = static_cast<uint32_t>(address);
                row.line = static_cast<uint32_t>(line);
                row.endLine = static_cast<uint32_t>(endLine);
                row.column = static_cast<uint32_t>(startColumn);
                row.endColumn = static_cast<uint32_t>(endColumn);
                row.kindCode = kindCode;
                row.callee = callee;
                row.fallsThrough = fallsThrough;
                if (kindCode == 3)
                    row.kind = RowKind::Entry;
                else if (kindCode == 12)
                    row.kind = RowKind::Return;
                else if (callee != 0xFFFFFFFF || kindCode == 4 || kindCode == 5 || kindCode == 6)
                    row.kind = RowKind::Call;
                result.rows.push_back(row);
                kindCode = 0;
                callee = 0xFFFFFFFF;
                fallsThrough = true;
                extraLines = 0;
                continue;
            }
            switch (op) {
            case 0: {
                // Extended: a counted block whose first byte says what it is. Sub-op 3 (a source
                // position) and 4 (a jump into a shared fragment) move no register.
                const uint32_t count = cursor.varNumber();
                if (count == 0 || count > cursor.remaining()) {
                    stop("an extended opcode of " + std::to_string(count) + " bytes");
                    return result;
                }
                const uint8_t subOp = cursor.byte();
                cursor.skip(count - 1);
                if (subOp != 3 && subOp != 4) {
                    stop("extended opcode " + std::to_string(subOp));
                    return result;
                }
                break;
            }
            case 2:
                address += int64_t(cursor.varNumber()) * header.unit;
                break;
            case 3:
                line += cursor.signedVarNumber();
                break;
            case 4:
                extraLines = cursor.varNumber();
                break;
            case 5:
                startColumn += cursor.signedVarNumber();
                break;
            case 6:
                endColumn += cursor.signedVarNumber();
                break;
            case 7:
                address += int64_t(longAdvance) * header.unit;
                break;
            case 8:
                kindCode = cursor.varNumber();
                break;
            case 9:
                fallsThrough = false;
                break;
            case 10:
                cursor.signedVarNumber(); // the row a branch goes to: not kept
                break;
            case 11:
            case 12:
                cursor.varNumber(); // operands of inlined calls, not decoded
                break;
            case 13:
                callee = cursor.varNumber();
                break;
            default:
                stop("opcode " + std::to_string(op));
                return result;
            }
        }
    } catch (const ByteCursorError& error) {
        result.problem = error.what;
        result.problemOffset = error.offset;
    }
    return result;
}

IncludeTree::IncludeTree(const std::vector<IncludeStep>& steps, const std::vector<uint32_t>& lineCounts)
{
    struct Open {
        uint32_t file;
        uint32_t line; ///< lines of it already placed
    };
    std::vector<Open> open;
    uint64_t next = 1;
    auto place = [&](uint32_t file, uint32_t firstLine, uint32_t count) {
        spans_.push_back({static_cast<uint32_t>(next), file, firstLine, count});
        next += count;
    };
    for (const IncludeStep& step : steps) {
        if (step.enters) {
            if (step.file >= lineCounts.size()) {
                problem_ = "an include of file " + std::to_string(step.file) + " of " +
                           std::to_string(lineCounts.size());
                return;
            }
            // The including line itself comes before the included file's lines.
            if (!open.empty() && step.line > open.back().line) {
                place(open.back().file, open.back().line + 1, step.line - open.back().line);
                open.back().line = step.line;
            }
            open.push_back({step.file, 0});
        } else {
            if (open.empty()) {
                problem_ = "the end of a file that was never included";
                return;
            }
            const Open closed = open.back();
            open.pop_back();
            const uint32_t lines = lineCounts[closed.file];
            if (lines > closed.line)
                place(closed.file, closed.line + 1, lines - closed.line);
        }
        if (next > 0xFFFFFFFFu) {
            problem_ = "more global lines than 32 bits count";
            return;
        }
    }
    if (!open.empty())
        problem_ = std::to_string(open.size()) + " files left open";
}

std::pair<uint32_t, uint32_t> IncludeTree::locate(uint32_t globalLine) const
{
    const auto after = std::upper_bound(spans_.begin(), spans_.end(), globalLine,
                                        [](uint32_t line, const IncludeSpan& span) { return line < span.first; });
    if (after == spans_.begin())
        return {0xFFFFFFFF, globalLine};
    const IncludeSpan& span = *(after - 1);
    if (globalLine - span.first >= span.count)
        return {0xFFFFFFFF, globalLine};
    return {span.file, span.firstLine + (globalLine - span.first)};
}

} // namespace ubrof
