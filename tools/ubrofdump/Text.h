// ubrofdump's human output: aligned tables drawn from the same answers the --json form prints.
#pragma once

#include "tools/ubrofdump/Report.h"

#include <ostream>
#include <string>

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

/// Prints the answer of a command (by its key) as text.
void printText(std::ostream& out, const Answer& answer, const TextRequest& request);

} // namespace ubrofdump
