// The memory-class keyword rule: the first keyword of a type's memory name decides its class.
#include "parser/Vocabulary.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

TEST(Vocabulary, MemoryClassIsDecidedByTheFirstKeywordInOrder)
{
    const std::pair<const char*, uint8_t> cases[] = {
        {"__flash", 1}, {"__nearfunc", 1}, {"flashio", 1}, {"__io", 8},   {"regio", 8},
        {"io_regs", 8}, {"__eeprom", 4},   {"ioeeprom", 8}, {"EEPROM", 2}, {"__regvar", 16},
        {"FLASH", 2},   {"data", 2},       {"", 2},
    };
    for (const auto& [name, memoryClass] : cases)
        EXPECT_EQ(memoryClass, memoryClassOfName(name)) << name;
}

} // namespace
} // namespace ubrof
