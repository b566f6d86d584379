// Programs whose types make a symbol listing costly: many variables of one wide structure, and
// types that refer to themselves. ubrofdump's tests and benchmarks measure its output on them.
#pragma once

#include "writer/UbrofWriter.h"

#include <cstdint>

namespace ubrof::gen {

/// One module of `variables` globals, each of one structure type of `members` one-byte members.
UbrofWriter wideStructProgram(uint32_t variables, uint32_t members);

/// One module of `variables` globals, each of a typedef that names itself, then one of a
/// structure that holds itself and one of a typedef pair that name each other.
UbrofWriter selfTypedefProgram(uint32_t variables);

} // namespace ubrof::gen
