// The type-class rules, applied to type texts as the type table renders them.
#include "info/UbrofSymbolContext.h"

#include <gtest/gtest.h>

namespace ubrof {

struct UbrofSymbolContextProbe {
    static int typeClassOf(const std::string& text) { return UbrofSymbolContext::GetTypeClassFromTypeName(text); }
};

namespace {

TEST(TypeClass, FirstMatchingRuleDecides)
{
    const std::vector<std::pair<std::string, int>> cases = {
        {"int", 2}, {"wchar", 2}, {"long long", 2},
        {"enum color", 1}, {"bool", 1}, {"unsigned long long", 1},
        {"float", 3}, {"long double", 3},
        {"int[4]", 5}, {"char *[3]", 5}, // an array of pointers is an array
        {"char *", 4}, {"int const *", 4}, {"(int) (char) *", 4},
        {"struct point", 6}, {"union u", 6}, {"class c", 6}, {"struct point const", 6},
        // Qualified texts are searched for the plain names, unsigned ones first.
        {"unsigned int const", 1}, {"unsigned char const", 1}, {"bool volatile", 1},
        {"char volatile", 2}, {"long register", 2}, {"double const", 3},
        {"void const", 0}, {"my_int", 0}, {"unsigned", 0}, {"(int) (char)", 0}, {"", 0},
        // Whole-text rules do not match inside longer names.
        {"integer", 0}, {"points", 0},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, UbrofSymbolContextProbe::typeClassOf(text)) << text;
}

} // namespace
} // namespace ubrof
