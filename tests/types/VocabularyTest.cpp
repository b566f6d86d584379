// The memory-class keyword rule and the two tables that turn a memory class into a memory space.
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

TEST(Vocabulary, MemoryClassesNameSegmentAndLocationSpaces)
{
    const struct {
        uint8_t memoryClass;
        const char* segment;
        const char* location;
    } rows[] = {
        {0, "prog", ""},       {1, "prog", "prog"},     {2, "data", "data"}, {3, "prog", ""},
        {4, "eeprom", "eeprom"}, {5, "prog", ""},       {8, "prog", ""},     {15, "prog", ""},
        {16, "prog", "registers"}, {17, "prog", ""},    {0x40, "prog", ""},  {255, "prog", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.segment, segmentMemorySpace(row.memoryClass)) << int(row.memoryClass);
        EXPECT_EQ(row.location, locationMemorySpace(row.memoryClass)) << int(row.memoryClass);
    }
    EXPECT_EQ("user_signatures", MemorySpaceNames::UserSignatures);
    EXPECT_EQ("MultiLocation", SymbolKeys::MultiLocation);
}

} // namespace
} // namespace ubrof
