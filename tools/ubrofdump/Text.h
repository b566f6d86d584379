// ubrofdump's two output forms: an indented JSON document, and aligned tables for people.
#pragma once

#include "tools/ubrofdump/Report.h"

#include <boost/json/value.hpp>
#include <ostream>
#include <string>

namespace ubrofdump {

/// JSON with two-space indentation; arrays of plain values stay on one line.
void printJson(std::ostream& out, const boost::json::value& value);

/// What the human form of a command needs besides the answer.
struct TextRequest {
    bool withData = false; ///< segments: the bytes too
    uint64_t start = 0;    ///< lines: the range asked for
    uint64_t end = 0;
    uint64_t pc = kNoPc;   ///< symbol commands: where locations were resolved
    std::string subject;   ///< lookup: the name; context: the ID
};

/// Prints the answer of a command (by its key) as text.
void printText(std::ostream& out, const Answer& answer, const TextRequest& request);

} // namespace ubrofdump
