// libFuzzer target: any bytes, written to a file, parsed and walked through every view, built into
// the program model, and that program run through every exporter.
#include "fuzz/ProgramExports.h"
#include "fuzz/ViewWalker.h"

#include "host/CoreException.h"
#include "parser/UbrofParser.h"

#include <boost/filesystem.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <unistd.h>

namespace {

namespace fs = boost::filesystem;

// The parser reads a path and extracts embedded sources into a folder beside it, so every input
// gets the same file in a private folder; /dev/shm keeps the writes off the disk.
const fs::path& scratchFolder()
{
    static const fs::path folder = [] {
        const char* base = std::getenv("UBROF_FUZZ_SCRATCH");
        fs::path root = base ? fs::path(base) : fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        const fs::path dir = root / ("ubrof-fuzz-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        return dir;
    }();
    // A run that ends normally leaves nothing behind; one that crashes keeps the input there.
    // Registered once the path exists, so that it runs before the path is destroyed.
    static const bool removedAtExit = std::atexit([] {
        boost::system::error_code ignored;
        fs::remove_all(scratchFolder(), ignored);
    }) == 0;
    (void)removedAtExit;
    return folder;
}

// Time is what bounds a walk; an input whose walk outlasts it is still a finding if the parse or
// the exporters hang, which the fuzzer's own -timeout catches.
ubrof::walk::WalkLimits walkLimits()
{
    ubrof::walk::WalkLimits limits;
    limits.time = std::chrono::seconds(2);
    return limits;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fs::path& folder = scratchFolder();
    const std::string path = (folder / "input.d90").string();
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    std::optional<ubrof::UbrofParser> parser;
    try {
        // Versions 10 and 11 too: older files read the same either way, and newer ones reach their tags.
        ubrof::UbrofParseOptions options;
        options.readNewerVersions = true;
        parser.emplace(path, options);
    } catch (const tarn::CoreException&) {
    }
    if (parser)
        ubrof::walk::walkViews(*parser, walkLimits());
    // The model reads formats the views refuse, so it gets every input, in both of its builds.
    if (const auto program = ubrof::walk::programOf(path))
        ubrof::walk::exportAll(*program);
    ubrof::model::BuildOptions light;
    light.light = true;
    if (const auto program = ubrof::walk::programOf(path, light))
        ubrof::walk::exportAll(*program);

    // An input may embed a thousand sources; over millions of inputs their copies would fill the
    // folder with names no later input reuses.
    boost::system::error_code ignored;
    fs::remove_all(folder / "embedded_source", ignored);
    return 0;
}
