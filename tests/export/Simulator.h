// simavr from a test: a run of about a second, the signs of a faulting program, and avr-gdb
// debugging through the simulator's gdb server on loopback port 1234 (one such test at a time).
#pragma once

#include "Tools.h"

#include <string>
#include <vector>

namespace ubrof::test {

/// Whether simavr's output says the program faulted: the core's complaints, and its crash handler,
/// which also opens the gdb port for a post-mortem.
bool simulatorFaulted(const ToolResult& run);

/// simavr on the ELF file for about a second, the device taken from the file alone.
ToolResult simulateForASecond(const std::string& elf);

/// avr-gdb -batch connected to `simavr -g elf`, running the commands after `target remote`; the
/// simulator is stopped afterwards. Fails the test when port 1234 is taken before simavr starts.
ToolResult debugInSimulator(const std::string& elf, const std::vector<std::string>& commands);

} // namespace ubrof::test
