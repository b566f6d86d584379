// Running ubrofdump as a user does, for the tool tests: in a scratch directory, with the bundled
// sample beside it, what its JSON error documents must hold, and the JSON answer of one that succeeds.
#pragma once

#include "TestFiles.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

struct DumpResult {
    int status = -1;
    std::string out;
    std::string err;
    long peakKiB = 0; ///< the child's peak resident memory
};

// Runs program in dir, with extra environment variables, so that embedded sources land there
// and paths stay relative. Standard output goes to outPath when one is given, and is then not
// read back (a device may never end).
inline DumpResult runIn(const test::ScratchDir& dir, const std::string& program,
                        const std::vector<std::string>& args,
                        const std::vector<std::pair<std::string, std::string>>& environment = {},
                        const std::string& device = {})
{
    const std::string outPath = device.empty() ? dir.path("stdout") : device;
    const std::string errPath = dir.path("stderr");
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0 || chdir(dir.dir().c_str()) != 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(127);
        for (const auto& [name, value] : environment)
            setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    DumpResult run;
    int status = 0;
    struct rusage usage {};
    if (child > 0 && wait4(child, &status, 0, &usage) == child && WIFEXITED(status))
        run.status = WEXITSTATUS(status);
    run.peakKiB = usage.ru_maxrss;
    if (device.empty())
        run.out = test::fileText(outPath);
    run.err = test::fileText(errPath);
    return run;
}

inline DumpResult ubrofdump(const test::ScratchDir& dir, const std::vector<std::string>& args)
{
    return runIn(dir, UBROFDUMP, args);
}

// The JSON answer of a command that must succeed; null when it did not, so that reading any key of
// it throws and ends the test.
inline boost::json::value answerOf(const test::ScratchDir& dir, std::vector<std::string> args)
{
    args.insert(args.begin(), "--json");
    const DumpResult run = ubrofdump(dir, args);
    EXPECT_EQ(0, run.status) << args[1] << ": " << run.out << run.err;
    return run.status == 0 ? boost::json::parse(run.out) : boost::json::value();
}

inline void copySample(const test::ScratchDir& dir)
{
    const std::string sample = test::fileText(UBROF_SAMPLE_FILE);
    ASSERT_FALSE(sample.empty()) << "the build writes " << UBROF_SAMPLE_FILE;
    std::ofstream(dir.path("sample.d90"), std::ios::binary) << sample;
}

// A JSON error document: the schema, then an Error with a code and a message, nothing else.
inline void expectErrorDocument(const std::string& out, const std::string& code, const std::string& what)
{
    const boost::json::value document = boost::json::parse(out);
    ASSERT_TRUE(document.is_object()) << what;
    EXPECT_EQ(3, document.at("Schema").to_number<int>()) << what;
    EXPECT_EQ(2u, document.get_object().size()) << what;
    const boost::json::object& error = document.at("Error").get_object();
    EXPECT_EQ(code, error.at("Code").as_string()) << what;
    EXPECT_FALSE(error.at("Message").as_string().empty()) << what;
    for (const auto& entry : error)
        EXPECT_TRUE(entry.key() == "Code" || entry.key() == "Message" || entry.key() == "Module") << entry.key();
}

// A refused command: its status, nothing on standard output and the message on standard error;
// with --json, the same status, nothing on standard error and one error document of that code.
inline void expectRefused(const test::ScratchDir& dir, std::vector<std::string> args, int status,
                          const std::string& code, const std::string& message)
{
    const std::string what = ::testing::PrintToString(args);
    const DumpResult text = ubrofdump(dir, args);
    EXPECT_EQ(status, text.status) << what;
    EXPECT_EQ("", text.out) << what;
    EXPECT_EQ(0u, text.err.find("ubrofdump: ")) << what << ": " << text.err;
    EXPECT_NE(std::string::npos, text.err.find(message)) << what << ": " << text.err;
    args.insert(args.begin(), "--json");
    const DumpResult asJson = ubrofdump(dir, args);
    EXPECT_EQ(status, asJson.status) << what;
    EXPECT_EQ("", asJson.err) << what;
    expectErrorDocument(asJson.out, code, what);
}

} // namespace ubrof
