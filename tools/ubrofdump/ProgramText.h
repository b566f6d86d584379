// The program commands' human output, in the manner of the tools they are named after, drawn
// from the same answers their --json form prints.
#pragma once

#include "tools/ubrofdump/Text.h"

#include <ostream>

namespace ubrofdump {

/// Prints the answer of a program command (addr2line, nm, size); false for any other answer.
bool printProgramText(std::ostream& out, const Answer& answer, const TextRequest& request);

} // namespace ubrofdump
