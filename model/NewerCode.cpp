// CodeBuilder for files of format versions 10 and 11: function sizes (t_function_info, else the line
// program's size), stack use (t_stack_use) and statement lines from the decoded line programs.
#include "model/CodeBuilder.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <unordered_set>

namespace ubrof::model::detail {
namespace {

using FunctionLines = NewerFormatFacts::FunctionLines;

// What one note may list before it stops: real files name a handful of functions in one.
constexpr size_t kMaxNoteText = 400;

std::string hexAddress(uint32_t address)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", address);
    return text;
}

bool startsStatement(const StatementRow& row)
{
    // Calls and the points they return to lie inside the statement that makes the call.
    return row.kind == RowKind::Statement || row.kind == RowKind::Entry;
}

} // namespace

uint32_t CodeBuilder::newerCodeSize(uint32_t entry, const std::string& name)
{
    const NewerFormatFacts& newer = context_.facts.newer;
    if (!newerSizesIndexed_) {
        newerSizesIndexed_ = true;
        // t_function_info speaks first; a line program's size (of an ordinary function) after it.
        for (const NewerFormatFacts::FunctionCode& code : newer.functionSizes)
            if (code.size != 0)
                newerSizes_.push_back({code.address, 0, code.nameIndex, code.size});
        for (const FunctionLines& lines : newer.functionLines)
            if (lines.size != 0 && isUnderstoodForm(lines.form))
                newerSizes_.push_back({lines.address, 1, lines.nameIndex, lines.size});
        std::stable_sort(newerSizes_.begin(), newerSizes_.end(), [](const NewerSize& a, const NewerSize& b) {
            return std::tie(a.address, a.rank) < std::tie(b.address, b.rank);
        });
    }
    const auto [first, last] =
        std::equal_range(newerSizes_.begin(), newerSizes_.end(), NewerSize{entry, 0, 0, 0},
                         [](const NewerSize& a, const NewerSize& b) { return a.address < b.address; });
    if (first == last)
        return 0;
    // Several functions can start one segment part; the record that names the function wins.
    for (auto candidate = first; candidate != last; ++candidate)
        if (context_.nameText(candidate->nameIndex) == name)
            return candidate->size;
    return first->size;
}

std::vector<std::pair<std::string, uint32_t>> CodeBuilder::newerStackUse(uint32_t symbol)
{
    const NewerFormatFacts& newer = context_.facts.newer;
    if (!stackUseIndexed_) {
        stackUseIndexed_ = true;
        stackUseBySymbol_ = newer.stackUses;
        std::stable_sort(stackUseBySymbol_.begin(), stackUseBySymbol_.end(),
                         [](const NewerFormatFacts::StackUse& a, const NewerFormatFacts::StackUse& b) {
                             return a.symbol < b.symbol;
                         });
    }
    // One entry per stack segment, in the order of t_seg_info, where the file lists them.
    std::map<uint32_t, uint64_t> bytesIn;
    const auto [first, last] =
        std::equal_range(stackUseBySymbol_.begin(), stackUseBySymbol_.end(), NewerFormatFacts::StackUse{symbol, 0, 0},
                         [](const NewerFormatFacts::StackUse& a, const NewerFormatFacts::StackUse& b) {
                             return a.symbol < b.symbol;
                         });
    for (auto use = first; use != last; ++use)
        bytesIn[use->segment] += use->bytes;
    std::vector<std::pair<std::string, uint32_t>> use;
    for (const auto& [segment, bytes] : bytesIn)
        use.emplace_back(segment < newer.segments.size() ? newer.segments[segment].name
                                                          : "segment " + std::to_string(segment),
                         static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX)));
    return use;
}

void CodeBuilder::emitNewerLines()
{
    const NewerFormatFacts& newer = context_.facts.newer;
    const std::vector<Function>& functions = program_.functions;
    std::vector<LineRow>& lines = program_.lines;

    // The rows of each function: those of the understood records whose code starts inside it.
    std::vector<std::vector<uint32_t>> rowsOf(functions.size());
    for (const FunctionLines& record : newer.functionLines) {
        const uint32_t function = program_.functionAt(record.address);
        if (!record.understood)
            continue;
        if (function == kNone || !functions[function].isDescribed) {
            const std::string name = context_.nameText(record.nameIndex);
            context_.note("the statement rows of " + (name.empty() ? std::string("an unnamed record") : name) +
                          " at " + hexAddress(record.address) + " lie in no function the file describes; left out");
            continue;
        }
        const uint64_t last = std::min<uint64_t>(uint64_t(record.firstRow) + record.rowCount, newer.rows.size());
        for (uint64_t r = record.firstRow; r < last; ++r)
            if (!newer.rows[r].fallback)
                rowsOf[function].push_back(static_cast<uint32_t>(r));
    }

    std::vector<bool> hasRows(functions.size(), false);
    for (uint32_t f = 0; f < functions.size(); ++f) {
        const Function& function = functions[f];
        if (!function.isDescribed || function.entry == function.end)
            continue;
        std::vector<uint32_t>& rows = rowsOf[f];
        std::stable_sort(rows.begin(), rows.end(),
                         [&newer](uint32_t a, uint32_t b) { return newer.rows[a].address < newer.rows[b].address; });
        const size_t before = lines.size();
        size_t outside = 0, unplaced = 0;
        // Code before the first row, or a function without rows, stands on the line of its name.
        auto fallBack = [&](uint32_t low, uint32_t high) {
            lines.push_back({low, high, function.file, function.line, 0, f, true});
        };
        for (size_t i = 0; i < rows.size();) {
            const StatementRow& first = newer.rows[rows[i]];
            if (first.address < function.entry || first.address >= function.end) {
                ++outside;
                ++i;
                continue;
            }
            // Of several rows at one address the last gives the line, as the compiler lists the
            // code under it; the address starts a statement when any of them does.
            size_t next = i;
            bool statement = false;
            for (; next < rows.size() && newer.rows[rows[next]].address == first.address; ++next)
                statement = statement || startsStatement(newer.rows[rows[next]]);
            const StatementRow& row = newer.rows[rows[next - 1]];
            i = next;
            const uint32_t end = next < rows.size() ? std::min(function.end, newer.rows[rows[next]].address)
                                                    : function.end;
            if (lines.size() == before && row.address > function.entry)
                fallBack(function.entry, row.address);
            if (row.file == ProgramFacts::kNone || row.file >= program_.files.size()) {
                ++unplaced;
                fallBack(row.address, end);
                continue;
            }
            // A statement's code is listed under its last line, where it is complete; the column
            // is kept only when the statement stands on that one line.
            const uint32_t column = row.line == row.endLine ? row.column : 0;
            const LineRow line{row.address, end, row.file, row.endLine, column, f, statement};
            if (lines.size() > before) {
                LineRow& previous = lines.back();
                if (previous.end == line.address && previous.file == line.file && previous.line == line.line &&
                    (!line.isStatement || previous.column == line.column)) {
                    previous.end = line.end;
                    continue;
                }
            }
            lines.push_back(line);
        }
        hasRows[f] = lines.size() > before;
        if (lines.size() == before)
            fallBack(function.entry, function.end);
        if (outside != 0)
            context_.note("function " + function.qualifiedName + ": " + std::to_string(outside) +
                          " statement rows lie outside its code and are left out");
        if (unplaced != 0)
            context_.note("function " + function.qualifiedName + ": " + std::to_string(unplaced) +
                          " statement rows name a line outside its module's source files; their code "
                          "stands on the line of its name");
    }
    lines.shrink_to_fit();
    noteNewerRecords(hasRows);
}

void CodeBuilder::noteNewerRecords(const std::vector<bool>& hasRows)
{
    const NewerFormatFacts& newer = context_.facts.newer;
    const std::vector<Function>& functions = program_.functions;
    // The records not understood, said once each in terms of the program; the reader's notes on
    // them are left out, its other notes follow as it gave them.
    std::unordered_set<uint64_t> explained;
    std::vector<std::string> problems(functions.size());
    std::map<uint32_t, std::vector<const FunctionLines*>> fragments; // by code address
    for (const FunctionLines& record : newer.functionLines) {
        if (record.understood)
            continue;
        explained.insert(record.offset);
        const uint32_t function = program_.functionAt(record.address);
        if (function == kNone) {
            fragments[record.address].push_back(&record);
        } else if (!hasRows[function]) {
            // A function has a record or two; a file that gives it thousands says the first few.
            if (problems[function].size() < kMaxNoteText)
                problems[function] += (problems[function].empty() ? "" : "; ") + record.problem;
        } else {
            context_.note("function " + functions[function].qualifiedName + ": the statement rows of " +
                          context_.nameText(record.nameIndex) + " at " + hexAddress(record.address) +
                          " are not understood (" + record.problem + "); the function's own rows give that code its lines");
        }
    }
    for (uint32_t f = 0; f < functions.size(); ++f)
        if (functions[f].isDescribed && functions[f].entry != functions[f].end && !hasRows[f])
            context_.note("function " + functions[f].qualifiedName + ": no statement rows are understood" +
                          (problems[f].empty() ? std::string() : " (" + problems[f] + ")") +
                          "; its code stands on the line of its name");
    // One code fragment serves several functions, and each of them has a record for it.
    for (const auto& [address, records] : fragments) {
        std::set<std::string> seen;
        std::string list;
        for (const FunctionLines* record : records) {
            std::string name = context_.nameText(record->nameIndex);
            if (list.size() < kMaxNoteText && seen.insert(name).second)
                list += (list.empty() ? "" : ", ") + name;
        }
        context_.note("code at " + hexAddress(address) + " (" + std::to_string(records.front()->size) +
                      " bytes): the statement rows of " + list + " are not understood (" + records.front()->problem +
                      "); it lies in no function and has no line");
    }
    for (const NewerFormatFacts::Note& note : newer.notes)
        if (!explained.count(note.offset))
            context_.note("at byte " + std::to_string(note.offset) + ": " + note.text);
}

} // namespace ubrof::model::detail
