// libFuzzer target: any bytes, written to a file, parsed, walked through every view and built into a program.
#include "fuzz/ViewWalker.h"
#include "model/ProgramBuilder.h"

#include <boost/filesystem.hpp>
#include <cstdio>
#include <unistd.h>

namespace {

// The parser reads a path, and embedded sources are extracted beside it, so every
// input gets the same file in a private scratch directory.
const std::string& scratchFile()
{
    static const std::string path = [] {
        const auto dir = boost::filesystem::temp_directory_path() /
                         ("ubrof-fuzz-" + std::to_string(::getpid()));
        boost::filesystem::create_directories(dir);
        return (dir / "input.d90").string();
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& path = scratchFile();
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    ubrof::fuzz::walkFile(path);
    // The program model reads the same store with the facts kept beside it.
    try {
        ubrof::model::loadProgram(path);
    } catch (const ubrof::model::ModelError&) {
    }
    return 0;
}
