// Running external tools with a time limit, their output captured through temporary files.
#include "Tools.h"

#include <boost/filesystem.hpp>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ubrof::test {

namespace {

/// Starts argv in a process group of its own, so that stopping it stops whatever it started.
pid_t spawn(const std::vector<std::string>& argv, const std::string& outPath, const std::string& errPath)
{
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(127);
        std::vector<char*> args;
        for (const std::string& arg : argv)
            args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return child;
}

/// Waits for the child up to timeout; answers whether it exited, with its status.
bool waitFor(pid_t child, double timeoutSeconds, int& status)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    while (true) {
        const pid_t done = waitpid(child, &status, WNOHANG);
        if (done == child || done < 0)
            return done == child;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void stop(pid_t child)
{
    int status = 0;
    kill(-child, SIGTERM);
    if (!waitFor(child, 2, status)) {
        kill(-child, SIGKILL);
        waitpid(child, &status, 0);
    }
}

} // namespace

std::string findTool(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        const std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

bool toolsRequired()
{
    return std::getenv("CI") != nullptr;
}

ToolResult runTool(const std::vector<std::string>& argv, double timeoutSeconds)
{
    const boost::filesystem::path base =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("ubrof-tool-%%%%-%%%%");
    const std::string outPath = base.string() + ".out", errPath = base.string() + ".err";
    ToolResult result;
    const pid_t child = spawn(argv, outPath, errPath);
    int status = 0;
    if (child > 0) {
        if (waitFor(child, timeoutSeconds, status)) {
            result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        } else {
            result.timedOut = true;
            stop(child);
        }
    }
    result.out = fileText(outPath);
    result.err = fileText(errPath);
    boost::system::error_code ignored;
    boost::filesystem::remove(outPath, ignored);
    boost::filesystem::remove(errPath, ignored);
    return result;
}

std::string objcopyToBinary(const ScratchDir& dir, const std::string& input, const std::string& format)
{
    const std::string output = dir.path("objcopy-" + format + ".bin");
    const ToolResult run = runTool({"objcopy", "-I", format, "-O", "binary", "--gap-fill", "0xff", input, output});
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ("", run.err);
    return fileText(output);
}

ToolResult runUbrofdump(const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {UBROFDUMP};
    argv.insert(argv.end(), args.begin(), args.end());
    return runTool(argv);
}

BackgroundTool::BackgroundTool(const std::vector<std::string>& argv)
{
    pid_ = spawn(argv, "/dev/null", "/dev/null");
}

BackgroundTool::~BackgroundTool()
{
    if (pid_ > 0)
        stop(pid_);
}

bool BackgroundTool::running() const
{
    int status = 0;
    return pid_ > 0 && waitpid(pid_, &status, WNOHANG) == 0;
}

} // namespace ubrof::test
