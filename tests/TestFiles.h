// Test support: a scratch directory per test, writer-built files saved into it, and files read back.
#pragma once

#include "writer/UbrofWriter.h"

#include <boost/filesystem.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace ubrof::test {

/// With UBROF_SEED_DIR set, every file a test saves is also kept there, named by its content, as a
/// seed for the fuzzer (scripts/fuzz sets it). Larger files would slow every mutation of the fuzzer
/// more than they could teach it.
inline void keepAsSeed(const std::vector<uint8_t>& bytes)
{
    const char* folder = std::getenv("UBROF_SEED_DIR");
    if (!folder || !*folder || bytes.size() > (1u << 20))
        return;
    uint64_t hash = 0xCBF29CE484222325ull;
    for (uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001B3ull;
    char name[32];
    std::snprintf(name, sizeof name, "writer-%016llx", static_cast<unsigned long long>(hash));
    std::ofstream(std::string(folder) + "/" + name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// A fresh directory for one test, removed with it.
class ScratchDir {
public:
    ScratchDir()
    {
        path_ = boost::filesystem::temp_directory_path() /
                boost::filesystem::unique_path("ubrof-test-%%%%-%%%%-%%%%");
        boost::filesystem::create_directories(path_);
    }
    ~ScratchDir()
    {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string path(const std::string& name) const { return (path_ / name).string(); }
    std::string dir() const { return path_.string(); }

    /// Saves the writer's bytes as name and answers the path.
    std::string save(const UbrofWriter& writer, const std::string& name = "test.d90") const
    {
        return save(writer.bytes(), name);
    }

    std::string save(const std::vector<uint8_t>& bytes, const std::string& name = "test.d90") const
    {
        const std::string file = path(name);
        UbrofWriter::save(file, bytes);
        keepAsSeed(bytes);
        return file;
    }

private:
    boost::filesystem::path path_;
};

/// The whole content of a file, empty when it cannot be read.
inline std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/// Whether the shared collection of real UBROF files is beside the repository.
inline bool realFilesPresent()
{
    return boost::filesystem::is_directory(UBROF_REAL_FILES_DIR);
}

/// Path of a file in the shared collection of real UBROF files.
inline std::string realFile(const std::string& relative)
{
    const std::string path = std::string(UBROF_REAL_FILES_DIR) + "/" + relative;
    EXPECT_TRUE(boost::filesystem::exists(path))
        << path << " is missing: the real UBROF files are read from the shared folder beside the repository";
    return path;
}

/// Every file of the shared collection whose t_version says 10 or 11, by its path inside the
/// collection, sorted.
inline std::vector<std::string> newerRealFiles()
{
    std::vector<std::string> files;
    for (const boost::filesystem::directory_entry& folder : boost::filesystem::directory_iterator(realFile(""))) {
        if (!boost::filesystem::is_directory(folder))
            continue;
        for (const boost::filesystem::directory_entry& entry : boost::filesystem::directory_iterator(folder.path())) {
            std::ifstream in(entry.path().string(), std::ios::binary);
            unsigned char head[9] = {};
            in.read(reinterpret_cast<char*>(head), sizeof head);
            if (head[0] == 0xA5 && head[7] == 0xBD && (head[8] == 10 || head[8] == 11))
                files.push_back(folder.path().filename().string() + "/" + entry.path().filename().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace ubrof::test

/// Opens a test that reads real UBROF files: a clone without the shared folder beside it skips
/// the test, saying where the files are expected; a continuous-integration run (CI set) must
/// have them and fails instead.
#define UBROF_NEED_REAL_FILES()                                                                        \
    do {                                                                                               \
        if (!::ubrof::test::realFilesPresent()) {                                                      \
            if (std::getenv("CI"))                                                                     \
                FAIL() << "CI is set, and the real UBROF files are not at " << UBROF_REAL_FILES_DIR;   \
            GTEST_SKIP() << "the real UBROF files are expected at " << UBROF_REAL_FILES_DIR;          \
        }                                                                                              \
    } while (false)
