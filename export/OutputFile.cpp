// Writing an exporter's finished output to a path: beside it under a temporary name, then renamed
// over it, so that no reader ever sees half a file and a failure leaves the old file as it was.
#include "export/OutputFile.h"

#include "export/ExportError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>

namespace ubrof::exporter {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why)
{
    throw ExportError("cannot write " + path + ": " + why);
}

/// The file a path names: a symbolic link is followed, so that the file it points to is replaced
/// rather than the link.
std::string targetOf(const std::string& path)
{
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
        return path;
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr)
        fail(path, std::string("it is a symbolic link whose target cannot be reached (") + std::strerror(errno) + ")");
    return resolved;
}

/// Creates a new file beside target, readable as the user's umask allows; answers its descriptor.
int createTemporary(const std::string& target, std::string& name)
{
    std::random_device seed;
    std::mt19937 random(seed());
    // A few names are tried, in case another process made one of them meanwhile.
    for (int attempt = 0; attempt < 16; ++attempt) {
        name = target + ".part" + std::to_string(random() % 1000000);
        const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0)
            return fd;
        if (errno != EEXIST)
            fail(target, std::strerror(errno));
    }
    fail(target, "no free temporary name beside it");
}

} // namespace

void saveFile(const std::string& path, const std::string& bytes)
{
    if (path.empty())
        throw ExportError("cannot write a file without a name");
    const std::string target = targetOf(path);
    struct stat info {};
    if (stat(target.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        fail(path, "it is a directory");
    std::string temporary;
    const int fd = createTemporary(target, temporary);
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            const std::string why = count < 0 ? std::strerror(errno) : "nothing more could be written";
            close(fd);
            unlink(temporary.c_str());
            fail(path, why + " (the file was left as it was)");
        }
        written += static_cast<size_t>(count);
    }
    if (close(fd) != 0 || rename(temporary.c_str(), target.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        unlink(temporary.c_str());
        fail(path, why + " (the file was left as it was)");
    }
}

} // namespace ubrof::exporter
