// Writing an embedded source's copy: relative to the folder's descriptor, never through a link.
#include "reader/EmbeddedSourceFile.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ubrof {
namespace {

#ifdef O_PATH
// The parent is only a starting point for the *at calls, so it needs no read permission.
constexpr int kParentFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int kParentFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// Text is handed to the file in pieces of this size: few system calls, little memory.
constexpr size_t kWriteChunk = 64 * 1024;

// Names of temporary files already tried by any parse in this process; with the process id
// they keep concurrent parses apart, and O_EXCL settles the rest.
std::atomic<uint32_t> temporaryCounter{0};

// A few collisions with files left by a crashed process are possible; beyond that the
// folder is not one to write into.
constexpr int kTemporaryAttempts = 16;

void closeQuietly(int& descriptor)
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

} // namespace

bool EmbeddedSourceFile::isPlainName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.size() <= NAME_MAX &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

EmbeddedSourceFile::EmbeddedSourceFile(const std::string& parent, const std::string& name) : name_(name)
{
    if (!isPlainName(name_) || parent.find('\0') != std::string::npos) {
        failed_ = true;
        return;
    }
    // The parent is the folder of the file the user opened, reached however the user reached
    // it; from there on nothing is resolved by name except through no-follow calls.
    int parentFolder = ::open(parent.empty() ? "." : parent.c_str(), kParentFlags);
    if (parentFolder >= 0) {
        // Whether it was made now or before (or cannot be made on a read-only disk), the
        // no-follow open alone decides whether a real folder is there.
        ::mkdirat(parentFolder, kFolder, 0777);
        folder_ = ::openat(parentFolder, kFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        closeQuietly(parentFolder);
    }
    if (folder_ < 0) {
        failed_ = true;
        return;
    }

    // The temporary name cannot be a copy's: those end in "_emb", a number and the extension.
    const std::string prefix = "." + std::to_string(::getpid()) + "-";
    for (int attempt = 0; attempt < kTemporaryAttempts && file_ < 0; ++attempt) {
        temporary_ = prefix + std::to_string(temporaryCounter++) + ".embtmp";
        file_ = ::openat(folder_, temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (file_ < 0 && errno != EEXIST)
            break;
    }
    if (file_ < 0) {
        temporary_.clear();
        failed_ = true;
    }
}

EmbeddedSourceFile::~EmbeddedSourceFile()
{
    discardTemporary();
    closeQuietly(folder_);
}

void EmbeddedSourceFile::append(const uint8_t* data, size_t size)
{
    if (failed_)
        return;
    pending_.append(reinterpret_cast<const char*>(data), size);
    if (pending_.size() >= kWriteChunk && !flush())
        failed_ = true;
}

bool EmbeddedSourceFile::flush()
{
    size_t done = 0;
    while (done < pending_.size()) {
        const ssize_t written = ::write(file_, pending_.data() + done, pending_.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<size_t>(written);
    }
    pending_.clear();
    return true;
}

bool EmbeddedSourceFile::commit()
{
    if (!failed_ && !flush())
        failed_ = true;
    if (file_ >= 0 && ::close(file_) != 0)
        failed_ = true;
    file_ = -1;
    // renameat replaces whatever has the name, a planted link included, without following it.
    if (!failed_ && ::renameat(folder_, temporary_.c_str(), folder_, name_.c_str()) == 0) {
        temporary_.clear();
        return true;
    }
    failed_ = true;
    discardTemporary();
    // Unlinking a link removes the link only; a folder of that name stays.
    if (folder_ >= 0)
        ::unlinkat(folder_, name_.c_str(), 0);
    return false;
}

void EmbeddedSourceFile::discardTemporary()
{
    closeQuietly(file_);
    if (folder_ >= 0 && !temporary_.empty())
        ::unlinkat(folder_, temporary_.c_str(), 0);
    temporary_.clear();
}

} // namespace ubrof
