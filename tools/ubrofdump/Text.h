// ubrofdump's human output: aligned tables drawn from the same answers the --json form prints.
#pragma once

#include "tools/ubrofdump/Report.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ubrofdump {

/// What the human form of a command needs besides the answer.
struct TextRequest {
    bool withData = false;     ///< segments: the bytes too
    uint64_t start = 0;        ///< lines: the range asked for
    uint64_t end = 0;
    bool startGiven = false;
    bool endGiven = false;
    uint64_t pc = kNoPc;       ///< symbol commands: where locations were resolved
    std::string subject;       ///< lookup: the name; context: the ID
    AddressWidths widths;
};

/// The widest a table column or a summary value gets; longer texts are cut with "...".
constexpr size_t kMaxColumnWidth = 40;

/// Left-aligned columns two blanks apart, written a window of rows at a time: each column is as
/// wide as its widest cell so far. A table of no more rows than the window is aligned
/// throughout; a longer one can widen a column only where a window begins.
class Table {
public:
    static constexpr size_t kWhole = SIZE_MAX;

    Table(std::ostream& out, std::vector<std::string> header, size_t window = kWhole);
    void add(std::vector<std::string> row);
    /// Writes the rows still held.
    void finish();

private:
    std::ostream& out_;
    const size_t window_;
    std::vector<size_t> widths_;
    std::vector<std::vector<std::string>> rows_;
};

/// Prints the answer of a command (by its key) as text; the context trees are streamed instead.
void printText(std::ostream& out, const Answer& answer, const TextRequest& request);

/// A text from the file made safe for one line of a terminal: control characters become '?'.
std::string printable(std::string text);
/// The same, cut to kMaxColumnWidth with "..." for a table column, keeping the end of a path
/// when keepEnd.
std::string tableCell(const std::string& text, bool keepEnd = false);

// The context trees' tables: the header, a context's row with its name indented by depth, and
// the line above the table.
const std::vector<std::string>& contextHeader();
std::vector<std::string> contextRow(const boost::json::object& context, int depth, const AddressWidths& widths);
std::string treeTitle(const std::string& key, const TextRequest& request);

} // namespace ubrofdump
