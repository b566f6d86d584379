// Diagnosis: reads no more of a file than its first bytes, and only to explain a refusal.
#include "tools/ubrofdump/Diagnosis.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ubrofdump {
namespace {

// A file opens with t_beg_file1 (the byte 0xA5 and six date bytes) followed by t_version, whose
// first byte is the format version.
constexpr uint8_t kFileBegin = 0xA5, kVersionTag = 0xBD;
constexpr size_t kVersionTagAt = 7;
constexpr uint8_t kFirstUnreadVersion = 9;

Failure unreadable(const char* code, std::string message, const ModuleStatus& module)
{
    return Failure{kUnreadable, code, std::move(message), module};
}

std::string hexByte(uint8_t byte)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", byte);
    return text;
}

} // namespace

std::optional<Failure> refuseSpecialFile(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode) || S_ISDIR(info.st_mode))
        return std::nullopt;
    return Failure{kUnreadable, "not-a-file",
                   path + " is not a regular file but a pipe, socket or device; give the path of a UBROF file",
                   std::nullopt};
}

Failure explainUnparsed(const std::string& path, const ModuleStatus& module)
{
    if (path.empty())
        return unreadable("no-such-file", "the file name is empty; give the path of a UBROF file", module);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return unreadable("no-such-file", "there is no file " + path + "; check the path", module);
        return unreadable("cannot-read", path + " cannot be read: " + std::strerror(errno), module);
    }
    if (S_ISDIR(info.st_mode))
        return unreadable("is-directory", path + " is a directory; give the path of a UBROF file in it", module);

    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return unreadable("cannot-read", path + " cannot be read: " + std::strerror(errno) + "; check its permissions",
                          module);
    uint8_t head[kVersionTagAt + 2] = {};
    size_t length = 0;
    while (length < sizeof head) {
        const ssize_t got = read(fd, head + length, sizeof head - length);
        if (got <= 0)
            break;
        length += static_cast<size_t>(got);
    }
    close(fd);

    if (length == 0)
        return unreadable("empty-file",
                          path + " is empty; the link that wrote it may have failed, so link the program again", module);
    if (head[0] != kFileBegin)
        return unreadable("not-ubrof",
                          path + " is not a UBROF file: it begins with the byte " + hexByte(head[0]) +
                              " where a UBROF file begins with 0xA5; give the debug file of a linked program "
                              "(for example a .d90 file), not an object file, a listing or an image",
                          module);
    if (length == sizeof head && head[kVersionTagAt] == kVersionTag && head[kVersionTagAt + 1] >= kFirstUnreadVersion)
        return unreadable("newer-version",
                          path + " is in UBROF format version " + std::to_string(head[kVersionTagAt + 1]) +
                              "; the module reads versions up to 8, so link the program for version 8 or below "
                              "if the linker offers it",
                          module);
    return unreadable("damaged",
                      path + " begins as a UBROF file but could not be read to its end: it is cut short or damaged; "
                             "link the program again",
                      module);
}

} // namespace ubrofdump
