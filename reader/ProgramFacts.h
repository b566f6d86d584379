// Facts the reader keeps on the side for the program model: what the file says about the program
// that the store's own tables have no place for. Nothing the module answers is read from here.
#pragma once

#include "reader/NewerFacts.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

struct ProgramFacts {
    /// Compiler and linker attributes (t_key_value), in file order.
    std::vector<std::pair<std::string, std::string>> attributes;

    /// What only files of format versions 10 and 11 carry (reader/NewerFacts.h).
    NewerFormatFacts newer;
};

} // namespace ubrof
