// Asks every view of a parsed file every question a debugger would, and folds the answers into a
// digest: the fuzz target walks each input with it, the thread tests compare digests across threads.
#pragma once

#include "host/IObjectfileParser.h"
#include "host/IStackTraceContext.h"

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ubrof::walk {

/// What one walk may spend. A hostile symbol tree can be wide (every variable of a structure type
/// lists all its members) and deep (a structure whose members hold itself), so the walk is bounded
/// by time and by the contexts it holds at once, never by a count of contexts it visits.
struct WalkLimits {
    std::chrono::steady_clock::duration time = std::chrono::seconds(10);
    /// Contexts waiting on the walk's stack at once: the memory the walk itself takes.
    size_t heldContexts = size_t(1) << 18;
    /// Levels followed below a context. Self-holding structures nest without end; real programs
    /// nest a few levels deep.
    unsigned depth = 48;
};

struct WalkResult {
    bool parsed = false;
    /// False when a limit cut the walk short; its digest then depends on how far it got.
    bool complete = false;
    /// Questions asked and answered.
    uint64_t answers = 0;
    /// Of every answer in the order asked: equal digests mean equal answers.
    uint64_t digest = 0;
    /// Why the file did not parse.
    std::string error;
};

/// A stack frame stopped at pc, as a debugger hands one to getLocation.
boost::shared_ptr<tarn::IStackTraceContext> frameAt(uint64_t pc);

/// Walks the binary, source, compiler and symbol views of parser.
WalkResult walkViews(const tarn::IObjectfileParser& parser, const WalkLimits& limits = {});

/// Parses path and walks its views; a file that does not parse answers parsed == false.
WalkResult walkFile(const std::string& path, const WalkLimits& limits = {});

} // namespace ubrof::walk
