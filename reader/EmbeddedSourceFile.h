// A copy of an embedded source written into the folder embedded_source whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ubrof {

/// One copy being written: the text goes to a temporary file in the folder, which commit()
/// renames to its name. Neither the folder nor the file is ever reached through a symbolic
/// link, and no name can place the copy outside the folder. Every failure is silent (the
/// copy is then simply missing), since a debugger shows the statements without the text.
/// Not copyable: it owns two descriptors and the temporary file.
class EmbeddedSourceFile {
public:
    /// The folder that gets the copies, inside the folder of the file being read.
    static constexpr const char* kFolder = "embedded_source";

    /// Opens (creating it when missing) kFolder inside parent ("" for the working directory)
    /// and a temporary file in it. name must be one plain file name; any other is refused.
    EmbeddedSourceFile(const std::string& parent, const std::string& name);
    ~EmbeddedSourceFile();
    EmbeddedSourceFile(const EmbeddedSourceFile&) = delete;
    EmbeddedSourceFile& operator=(const EmbeddedSourceFile&) = delete;

    void append(const uint8_t* data, size_t size);

    /// Puts the complete copy in place under its name: true when it is there. When it cannot,
    /// an earlier copy of that name is removed, so that the name never shows a stale text.
    bool commit();

    /// Whether name could be the name of a copy: one component that stays in the folder.
    static bool isPlainName(const std::string& name);

private:
    bool flush();
    void discardTemporary();

    std::string name_;
    std::string temporary_;
    std::string pending_;
    int folder_ = -1;
    int file_ = -1;
    bool failed_ = false;
};

} // namespace ubrof
