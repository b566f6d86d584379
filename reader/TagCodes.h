// Tag codes and names of the UBROF tag table, for code that reads, writes or labels tags.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ubrof {

enum class Tag : uint8_t {
#define UBROF_TAG(code, name, handler) name = code,
#include "reader/Tags.def"
#undef UBROF_TAG
};

constexpr size_t kTagCount = 0
#define UBROF_TAG(code, name, handler) +1
#include "reader/Tags.def"
#undef UBROF_TAG
    ;
static_assert(kTagCount == 38, "the tag table has 38 entries");

/// The table name of a tag code ("t_version"), or nullptr for a code without an entry.
constexpr const char* tagName(uint8_t code)
{
    switch (code) {
#define UBROF_TAG(code, name, handler) \
    case code:                         \
        return #name;
#include "reader/Tags.def"
#undef UBROF_TAG
    }
    return nullptr;
}

} // namespace ubrof
