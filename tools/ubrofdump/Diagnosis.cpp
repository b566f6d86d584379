// Diagnosis: reads no more of a file than its first bytes, and only to explain a refusal.
#include "tools/ubrofdump/Diagnosis.h"

#include "tools/ubrofdump/Host.h"

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
constexpr int kNewestOldVersion = 8;

// The versions the debugger module reads when its host opts in, and the program model always.
bool isOptInVersion(int version)
{
    return version == 10 || version == 11;
}

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

namespace {

// The causes any reader of the file meets alike: no file, a directory, no permission, no bytes,
// not UBROF. Otherwise nothing, and version holds the format version the header names (0 when
// the header is cut short).
std::optional<Failure> explainAnyReader(const std::string& path, const std::optional<ModuleStatus>& module,
                                        int& version)
{
    const auto unreadable = [&module](const char* code, std::string message) {
        return Failure{kUnreadable, code, std::move(message), module};
    };
    version = 0;
    if (path.empty())
        return unreadable("no-such-file", "the file name is empty; give the path of a UBROF file");
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return unreadable("no-such-file", "there is no file " + path + "; check the path");
        return unreadable("cannot-read", path + " cannot be read: " + std::strerror(errno));
    }
    if (S_ISDIR(info.st_mode))
        return unreadable("is-directory", path + " is a directory; give the path of a UBROF file in it");

    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return unreadable("cannot-read", path + " cannot be read: " + std::strerror(errno) + "; check its permissions");
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
        return unreadable("empty-file", path + " is empty; the link that wrote it may have failed, so link the program again");
    if (head[0] != kFileBegin)
        return unreadable("not-ubrof", path + " is not a UBROF file: it begins with the byte " + hexByte(head[0]) +
                                           " where a UBROF file begins with 0xA5; give the debug file of a linked "
                                           "program (for example a .d90 file), not an object file, a listing or an image");
    if (length == sizeof head && head[kVersionTagAt] == kVersionTag)
        version = head[kVersionTagAt + 1];
    return std::nullopt;
}

const char* const kDamaged = " begins as a UBROF file but could not be read to its end: it is cut short or damaged";

} // namespace

Failure explainUnparsed(const std::string& path, const ModuleStatus& module, bool readNewerVersions)
{
    int version = 0;
    if (auto failure = explainAnyReader(path, module, version))
        return *failure;
    const std::string format = path + " is in UBROF format version " + std::to_string(version);
    if (isOptInVersion(version) && !readNewerVersions)
        return unreadable("newer-version",
                          format + ", which the debugger module reads only when its host sets the platform preference " +
                              kReadNewerVersionsPreference + " to true; --newer-versions makes ubrofdump such a host, "
                              "and the program commands (addr2line, nm, size, export) read the file as it is",
                          module);
    if (version > kNewestOldVersion && !isOptInVersion(version))
        return unreadable("newer-version",
                          format + ", which no command reads: the debugger module reads versions up to 8, and 10 and 11 "
                                   "when its host opts in, as the program commands do; link the program for one of those "
                                   "if the linker offers it",
                          module);
    // Versions 10 and 11 included when the host let the module read them: it read as far as it
    // could, and its own report says where it stopped.
    return unreadable("damaged", path + kDamaged + "; link the program again", module);
}

Failure explainUnbuilt(const std::string& path, const std::string& reason)
{
    int version = 0;
    if (auto failure = explainAnyReader(path, std::nullopt, version))
        return *failure;
    // The reader's reason begins with the path, which the sentence has already named.
    const std::string why = reason.compare(0, path.size() + 2, path + ": ") == 0 ? reason.substr(path.size() + 2) : reason;
    if (version > kNewestOldVersion && !isOptInVersion(version))
        return Failure{kUnreadable, "newer-version",
                       path + " is in UBROF format version " + std::to_string(version) + " (" + why +
                           "); the program commands read versions up to 8, 10 and 11",
                       std::nullopt};
    return Failure{kUnreadable, "damaged", path + kDamaged + " (" + why + "); link the program again", std::nullopt};
}

} // namespace ubrofdump
