// Running the real tools that judge an export (objcopy, readelf, avr-gdb, simavr...) from a test.
#pragma once

#include "TestFiles.h"

#include <gtest/gtest.h>

#include <sys/types.h>

#include <string>
#include <vector>

namespace ubrof::test {

struct ToolResult {
    int status = -1;       ///< exit status; -1 when it did not exit by itself
    bool timedOut = false; ///< stopped by us when its time was up
    std::string out;
    std::string err;
};

/// The path of an executable found on PATH, or empty.
std::string findTool(const std::string& name);

/// Runs argv (argv[0] looked up on PATH) with no input; stops it (SIGTERM, then SIGKILL) after
/// timeoutSeconds and reports that.
ToolResult runTool(const std::vector<std::string>& argv, double timeoutSeconds = 60);

/// A tool left running while the test talks to it (simavr's gdb server); killed with the object.
class BackgroundTool {
public:
    explicit BackgroundTool(const std::vector<std::string>& argv);
    ~BackgroundTool();
    BackgroundTool(const BackgroundTool&) = delete;
    BackgroundTool& operator=(const BackgroundTool&) = delete;
    bool running() const;

private:
    pid_t pid_ = -1;
};

/// objcopy's reading of a HEX or S-record file (format "ihex" or "srec") as a binary from its
/// lowest address, gaps filled with 0xFF; the test fails when objcopy complains.
std::string objcopyToBinary(const ScratchDir& dir, const std::string& input, const std::string& format);

/// ubrofdump, as built beside the tests, run with the arguments.
ToolResult runUbrofdump(const std::vector<std::string>& args);

/// Whether a missing tool fails the test (CI is set) rather than skipping it.
bool toolsRequired();

} // namespace ubrof::test

/// Skips the test, in one line, when the tool is not installed, unless CI is set: then it fails.
#define REQUIRE_TOOL(name)                                                                 \
    do {                                                                                   \
        if (::ubrof::test::findTool(name).empty()) {                                       \
            if (::ubrof::test::toolsRequired())                                            \
                FAIL() << name << " is not installed, and CI needs it";                    \
            GTEST_SKIP() << name << " is not installed";                                   \
        }                                                                                  \
    } while (false)
