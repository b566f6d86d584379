// A real file's program for the model's tests: parsed as loadProgram parses it, with the store kept
// for what the model leaves out, and the time each step took.
#pragma once

#include "TestFiles.h"

#include "model/ProgramBuilder.h"
#include "parser/TarnUbrofParser.h"

#include <boost/filesystem.hpp>

#include <chrono>
#include <string>

namespace ubrof::test {

/// A parsed copy (embedded sources would be written beside the file parsed) and its program.
struct RealProgram {
    ScratchDir dir;
    TarnUbrofParser store;
    model::Program program;
    double parseMilliseconds = 0;
    double buildMilliseconds = 0;

    explicit RealProgram(const std::string& relative)
    {
        const boost::filesystem::path source(realFile(relative));
        const std::string copy = dir.path(source.filename().string());
        boost::filesystem::copy_file(source, copy);
        store.keepFacts = true;
        store.readNewerVersions = true;
        store.initialize();
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, store.parseFile(copy)) << store.parseError;
        parseMilliseconds = since(start);
        start = std::chrono::steady_clock::now();
        program = model::buildProgram(store);
        buildMilliseconds = since(start);
    }

private:
    static double since(std::chrono::steady_clock::time_point start)
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
};

} // namespace ubrof::test
