// ubrofgen: writes the bundled sample program, or a large synthetic one for benchmarks, as a UBROF file.
#include "tools/ubrofgen/ProgramBuilder.h"
#include "tools/ubrofgen/Synthetic.h"
#include "tools/ubrofgen/TypeStress.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "usage: ubrofgen OUTPUT\n"
    "       ubrofgen --large MODULES FUNCTIONS STATEMENTS OUTPUT\n"
    "       ubrofgen --synthetic SIZE [--seed N] OUTPUT\n"
    "       ubrofgen --wide-struct VARIABLES MEMBERS OUTPUT\n"
    "       ubrofgen --self-typedef VARIABLES OUTPUT\n"
    "Writes the sample program, a large one of MODULES x FUNCTIONS x STATEMENTS, or a synthetic\n"
    "program of about SIZE bytes (suffixes K, M, G) shaped like a real one, as a UBROF file;\n"
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

bool parseSize(const std::string& text, uint64_t& value)
{
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(text.c_str(), &end, 10);
    if (end == text.c_str() || text[0] == '-')
        return false;
    const std::string suffix(end);
    const unsigned shift = suffix.empty() ? 0 : suffix == "K" ? 10 : suffix == "M" ? 20 : suffix == "G" ? 30 : 64;
    // A synthetic file beyond 4 GiB would outgrow the format's 32-bit code addresses.
    if (shift == 64 || parsed == 0 || parsed > (uint64_t(4) << 30 >> shift))
        return false;
    value = uint64_t(parsed) << shift;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const std::vector<std::string> args(argv + 1, argv + argc);
        if (args.size() == 1 && args[0] != "--help") {
            ubrof::gen::sampleProgram().save(args[0]);
            return 0;
        }
        uint32_t modules = 0, functions = 0, statements = 0;
        if (args.size() == 5 && args[0] == "--large" && parseCount(argv[2], modules) &&
            parseCount(argv[3], functions) && parseCount(argv[4], statements)) {
            ubrof::gen::largeProgram(modules, functions, statements).save(args[4]);
            return 0;
        }
        uint64_t size = 0;
        uint32_t seed = 1;
        const bool seeded = args.size() == 5 && args[2] == "--seed" && parseCount(argv[4], seed);
        if ((args.size() == 3 || seeded) && args[0] == "--synthetic" && parseSize(args[1], size)) {
            ubrof::gen::writeSyntheticProgram(args.back(), size, seed);
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
