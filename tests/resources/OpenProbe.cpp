// Opens one UBROF file so that the resource tests can measure it from outside: as a debugger does
// (parses it and asks each view what a debugger asks when it first shows the file), or with
// --model as the program commands do (builds its program model). Prints "parsed" or "refused: "
// and the reason, and exits 0 either way; anything else is a fault.
#include "fuzz/ViewWalker.h"
#include "host/CoreException.h"
#include "model/ProgramBuilder.h"
#include "parser/UbrofParser.h"

#include <cstdio>

namespace {

// A debugger reads what it shows or downloads, in pieces; past this a memory is far larger than
// any of the processors' own, and reading it all would measure the copy, not the module.
constexpr uint64_t kReadPerSegment = 16u << 20;
constexpr uint32_t kReadChunk = 4096;
constexpr uint32_t kAreaWindow = 1024;

void open(const std::string& path)
{
    const ubrof::UbrofParser parser(path);
    const auto source = parser.createSourceInformation();
    tarn::Status status;
    std::vector<std::string> files;
    source->getSourcefiles(status, files);

    // The disassembly of what it shows: its bytes, and the lines of a window of them at a time,
    // since each line's area carries its file's and function's names.
    std::vector<uint8_t> bytes;
    std::vector<tarn::CodeArea> areas;
    for (const auto& segment : parser.createBinaryInformation()->getProgramSegments()) {
        for (uint64_t offset = 0; offset < std::min<uint64_t>(segment->getSize(), kReadPerSegment); offset += kReadChunk) {
            const uint64_t start = segment->getStartAddress() + offset;
            segment->readData(bytes, start, kReadChunk);
            for (uint64_t at = start; at < start + kReadChunk && at <= 0xFFFFFFFF; at += kAreaWindow)
                source->getCodeAreasFromAddressRange(status, at, std::min<uint64_t>(at + kAreaWindow - 1, 0xFFFFFFFF), areas);
        }
    }

    const auto compiler = parser.createCompilerInformation();
    compiler->getBaseTypes();

    // The symbol browser's first two levels, and a stop at each function.
    const auto symbols = parser.createSymbolInformation();
    const auto root = symbols->getSymbolContextFromID("0");
    for (int symbolClass = 0; symbolClass <= 3; ++symbolClass) {
        for (const auto& child : root->getChildren(tarn::ISymbolContext::SymbolClass(symbolClass))) {
            child->getName();
            child->getProperties();
            for (const auto& function : child->getChildren(tarn::ISymbolContext::CodeSymbol)) {
                const uint64_t pc = function->getAddress();
                function->getLocation(ubrof::walk::frameAt(pc));
                if (const auto scope = symbols->getScopeContextFromPc(pc))
                    scope->getChildren(tarn::ISymbolContext::DataSymbol);
                symbols->lookupSymbolFromPc("main", pc, false);
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bool model = argc == 3 && std::string(argv[1]) == "--model";
    if (argc != 2 && !model) {
        std::fprintf(stderr, "usage: ubrof_open_probe [--model] FILE\n");
        return 2;
    }
    try {
        if (model)
            ubrof::model::loadProgram(argv[2]);
        else
            open(argv[1]);
        std::printf("parsed\n");
    } catch (const tarn::CoreException& e) {
        std::printf("refused: %s\n", e.what());
    } catch (const ubrof::model::ModelError& e) {
        std::printf("refused: %s\n", e.what());
    }
    return 0;
}
