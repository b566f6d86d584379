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

/// The tags only format versions 10 and 11 define.
enum class NewerTag : uint8_t {
#define UBROF_NEWER_TAG(code, name, skipCode, handler) name = code,
#include "reader/NewerTags.def"
#undef UBROF_NEWER_TAG
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

/// The name of a tag that only format versions 10 and 11 define ("t_line_program"), or nullptr.
constexpr const char* newerTagName(uint8_t code)
{
    switch (code) {
#define UBROF_NEWER_TAG(code, name, skipCode, handler) \
    case code:                                         \
        return #name;
#include "reader/NewerTags.def"
#undef UBROF_NEWER_TAG
    }
    return nullptr;
}

} // namespace ubrof
