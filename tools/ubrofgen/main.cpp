// ubrofgen: writes the bundled sample program, or a large synthetic one for benchmarks, as a UBROF file.
#include "tools/ubrofgen/ProgramBuilder.h"
#include "tools/ubrofgen/TypeStress.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

namespace {

const char* const kUsage =
    "usage: ubrofgen OUTPUT\n"
    "       ubrofgen --large MODULES FUNCTIONS STATEMENTS OUTPUT\n"
    "       ubrofgen --wide-struct VARIABLES MEMBERS OUTPUT\n"
    "       ubrofgen --self-typedef VARIABLES OUTPUT\n"
    "Writes the sample program (or a large one of MODULES x FUNCTIONS x STATEMENTS) as a UBROF file;\n"
    "--wide-struct: VARIABLES globals of one structure of MEMBERS members; --self-typedef: VARIABLES\n"
    "globals of a typedef that names itself, and types that hold or name each other.\n";

bool parseCount(const char* text, uint32_t& value)
{
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(text, &end, 0);
    if (end == text || *end != '\0' || parsed > 100000 || text[0] == '-')
        return false;
    value = static_cast<uint32_t>(parsed);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc == 2 && std::string(argv[1]) != "--help") {
            ubrof::gen::sampleProgram().save(argv[1]);
            return 0;
        }
        uint32_t modules = 0, functions = 0, statements = 0;
        if (argc == 6 && std::string(argv[1]) == "--large" && parseCount(argv[2], modules) &&
            parseCount(argv[3], functions) && parseCount(argv[4], statements)) {
            ubrof::gen::largeProgram(modules, functions, statements).save(argv[5]);
            return 0;
        }
        uint32_t variables = 0, members = 0;
        if (argc == 5 && std::string(argv[1]) == "--wide-struct" && parseCount(argv[2], variables) &&
            parseCount(argv[3], members)) {
            ubrof::gen::wideStructProgram(variables, members).save(argv[4]);
            return 0;
        }
        if (argc == 4 && std::string(argv[1]) == "--self-typedef" && parseCount(argv[2], variables)) {
            ubrof::gen::selfTypedefProgram(variables).save(argv[3]);
            return 0;
        }
        std::cerr << kUsage;
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "ubrofgen: " << e.what() << "\n";
        return 1;
    }
}
