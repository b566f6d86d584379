// The reader core: the tag table, the dispatch loop, the skip rule and the byte-stream primitives.
#include "reader/CParser.h"

#include "reader/ReaderError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ubrof {

const CParser::TagEntry CParser::tagTable[] = {
#define UBROF_TAG(code, name, handler) {code, &CParser::handler, #name},
#include "reader/Tags.def"
#undef UBROF_TAG
};

CParser::CParser(UbrofFileHeader& fileHeader, NameTable& nameTable, TypeTable& typeTable,
                 std::vector<GroupRecord>& groupTable, std::vector<ModuleRecord>& moduleTable,
                 BlockTree& blockTree, SymbolTable& symbolTable, DMemory& codeMemory,
                 DMemory& eepromMemory, DMemory& dataMemory,
                 std::vector<SourceFileRecord>& sourceFileTable, LineTable& lineTable,
                 FileIndex& fileIndex, ChunkedVector<FileLineRange>& fileLineRanges)
    : fileHeader_(fileHeader),
      nameTable_(nameTable),
      typeTable_(typeTable),
      groupTable_(groupTable),
      moduleTable_(moduleTable),
      blockTree_(blockTree),
      symbolTable_(symbolTable),
      codeMemory_(codeMemory),
      eepromMemory_(eepromMemory),
      dataMemory_(dataMemory),
      sourceFileTable_(sourceFileTable),
      lineTable_(lineTable),
      fileIndex_(fileIndex),
      fileLineRanges_(fileLineRanges)
{
    for (const TagEntry& entry : tagTable)
        tagIndex_[entry.code & 0xFF] = &entry;
}

CParser::~CParser()
{
    if (file_ >= 0)
        ::close(file_);
}

int CParser::parse(const char* path)
{
    if (!path || !*path)
        return 0;
    fileName_ = path;
    file_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file_ < 0)
        return 0;
    struct stat info;
    fileSize_ = (fstat(file_, &info) == 0 && info.st_size > 0) ? uint64_t(info.st_size) : 0;
    // The file is read once, front to back; the kernel may read ahead and drop what was read.
    posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
    if (!block_)
        block_.reset(new uint8_t[kBlockSize]);
    next_ = end_ = block_.get();
    blockOffset_ = 0;
    lastError_ = nullptr;
    lastErrorDetail_.clear();

    auto closeFile = [this] {
        ::close(file_);
        file_ = -1;
    };
    try {
        for (;;) {
            const uint8_t code = static_cast<uint8_t>(readByte());
            if (const TagEntry* entry = tagIndex_[code]) {
                if ((this->*entry->handler)() != 0)
                    throw ReaderError{kTagProcessingError};
                if (code == 0xFF)
                    break;
            } else if (!skipUnknownTag(code)) {
                throw ReaderError{kUnknownTag};
            }
        }
    } catch (const ReaderError& error) {
        lastError_ = error.text;
        lastErrorDetail_ = error.detail;
        closeFile();
        return 0;
    } catch (...) {
        closeFile();
        throw;
    }
    closeFile();
    return 1;
}

int CParser::skipUnknownTag(uint8_t code)
{
    for (const auto& [tag, skip] : skipInfo_) {
        if (tag != code)
            continue;
        if (skip <= 0x7F)
            skipBytes(skip);
        else if (skip == 0xFD)
            skipBytes(static_cast<int32_t>(readByte()));
        else if (skip == 0xFE)
            skipBytes(static_cast<int32_t>(readWord16()));
        else if (skip == 0xFF) {
            const uint32_t count = readWord32();
            // A count beyond what is left can only end in a failed read.
            if (count > remaining())
                throw ReaderError{kUnexpectedEndOfFile};
            skipBytes(static_cast<int32_t>(count));
        } else
            return 0;
        return 1;
    }
    return 0;
}

void CParser::refill()
{
    blockOffset_ = tell();
    next_ = end_ = block_.get();
    // A position past the end of the file is where a skip left the stream; nothing follows it.
    if (blockOffset_ >= fileSize_)
        throw ReaderError{kUnexpectedEndOfFile};
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(kBlockSize, fileSize_ - blockOffset_));
    size_t got = 0;
    while (got < wanted) {
        const ssize_t n = ::pread(file_, block_.get() + got, wanted - got, static_cast<off_t>(blockOffset_ + got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += size_t(n);
    }
    if (got == 0)
        throw ReaderError{kUnexpectedEndOfFile};
    end_ = block_.get() + got;
}

void CParser::readBytes(uint8_t* destination, uint32_t count)
{
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    while (count != 0) {
        if (next_ == end_)
            refill();
        const uint32_t part = std::min<uint32_t>(count, static_cast<uint32_t>(end_ - next_));
        std::memcpy(destination, next_, part);
        next_ += part;
        destination += part;
        count -= part;
    }
}

std::string CParser::readString(uint32_t count)
{
    // Checked before anything is allocated, so a hostile count costs nothing.
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    std::string text;
    if (uint32_t(end_ - next_) >= count) {
        // Users of the text see it up to its first NUL, as a C string.
        const auto* nul = static_cast<const uint8_t*>(std::memchr(next_, 0, count));
        text.assign(reinterpret_cast<const char*>(next_), nul ? size_t(nul - next_) : count);
        next_ += count;
        return text;
    }
    text.resize(count);
    readBytes(reinterpret_cast<uint8_t*>(&text[0]), count);
    const size_t end = text.find('\0');
    if (end != std::string::npos)
        text.resize(end);
    return text;
}

std::string_view CParser::readText(uint32_t count)
{
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    textScratch_.resize(count);
    if (count != 0)
        readBytes(reinterpret_cast<uint8_t*>(&textScratch_[0]), count);
    const size_t end = textScratch_.find('\0');
    return std::string_view(textScratch_).substr(0, end);
}

void CParser::skipBytes(int32_t count)
{
    if (count >= 0 && count <= end_ - next_) {
        next_ += count;
        return;
    }
    const uint64_t position = tell();
    if (count < 0 && uint64_t(-int64_t(count)) > position)
        throw ReaderError{kUnexpectedEndOfFile};
    // A skip past the end succeeds; the failure comes from the next read.
    seek(uint64_t(int64_t(position) + count));
}

void CParser::seek(uint64_t position)
{
    const uint64_t held = uint64_t(end_ - block_.get());
    if (position >= blockOffset_ && position - blockOffset_ <= held) {
        next_ = block_.get() + (position - blockOffset_);
        return;
    }
    blockOffset_ = position;
    next_ = end_ = block_.get();
}

void CParser::writeImageAcrossBlocks(DMemory& image, uint32_t address, uint32_t count)
{
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    uint8_t part[4096];
    for (uint64_t at = address; count != 0;) {
        const uint32_t n = std::min<uint32_t>(count, sizeof part);
        readBytes(part, n);
        // Past the top of the address space the bytes are read and dropped.
        if (at <= 0xFFFFFFFF)
            image.write(static_cast<uint32_t>(at), part, n);
        at += n;
        count -= n;
    }
}

void CParser::checkImageBudget(uint64_t offset) const
{
    const uint64_t used = codeMemory_.allocatedBytes() + dataMemory_.allocatedBytes() + eepromMemory_.allocatedBytes();
    if (used > imageBudget())
        throw ReaderError{kOutOfMemory, "the memory images would take more than " + std::to_string(imageBudget()) +
                                            " bytes (four times the file and 64 MiB) at file offset " +
                                            std::to_string(offset)};
}

void CParser::dropLastLineRecord()
{
    pendingLineRecord = false;
    // The flag is only set after a record was appended; the guards keep a bug from underflowing.
    if (!lineTable_.empty())
        lineTable_.pop_back();
    if (!fileLineRanges_.empty() && fileLineRanges_.back().lineRecordCount > 0)
        --fileLineRanges_.back().lineRecordCount;
}

} // namespace ubrof
