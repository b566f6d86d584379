// The reader core: the tag table, the dispatch loop, the skip rule and the byte-stream primitives.
#include "reader/CParser.h"

#include "reader/ReaderError.h"
#include "reader/TagCodes.h"
#include "reader/VarNumber.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <cinttypes>

namespace ubrof {

const CParser::TagEntry CParser::tagTable[] = {
#define UBROF_TAG(code, name, handler) {code, &CParser::handler, #name},
#include "reader/Tags.def"
#undef UBROF_TAG
};

CParser::CParser(UbrofFileHeader& fileHeader, NameTable& nameTable, TypeTable& typeTable,
                 std::vector<GroupRecord>& groupTable, std::deque<ModuleRecord>& moduleTable,
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
    failure_ = Failure{};
    light_ = facts_ && facts_->light;

    auto closeFile = [this] {
        ::close(file_);
        file_ = -1;
    };
    try {
        for (;;) {
            failure_.tagOffset = tell();
            failure_.tagCode = -1;
            const uint8_t code = static_cast<uint8_t>(readByte());
            failure_.tagCode = code;
            if (tagObserver_)
                tagObserver_(failure_.tagOffset, code);
            if (const TagEntry* entry = tagIndex_[code]) {
                const uint64_t end = isNewerFormat() ? declaredEnd(code) : 0;
                // The tags of statements, names and blocks make up most of a file. Called by
                // name, their calls can be predicted, which one call through the table for every
                // tag hardly can: a light parse of a 16 MB program took 6% longer through it.
                const auto handler = entry->handler;
                const int result = handler == &CParser::handleSrcStat      ? handleSrcStat()
                                   : handler == &CParser::handleAbsVar     ? handleAbsVar()
                                   : handler == &CParser::handleScopedName ? handleScopedName()
                                   : handler == &CParser::handleSymbolDef2 ? handleSymbolDef2()
                                   : handler == &CParser::handleBlockBegin3 ? handleBlockBegin3()
                                   : handler == &CParser::handleBlockEnd   ? handleBlockEnd()
                                                                           : (this->*handler)();
                if (result != 0)
                    throw ReaderError{kTagProcessingError};
                if (end != 0 && tell() != end)
                    failTag("its length says it ends at offset " + std::to_string(end) + ", its fields at " +
                            std::to_string(tell()));
                if (code == 0xFF)
                    break;
            } else if (!readNewerTag(code) && !skipUnknownTag(code)) {
                throw ReaderError{kUnknownTag};
            }
        }
        // Versions 10 and 11 end at their last byte in every known file. A t_ubrof_eof with more
        // after it is a read out of step that met a 0xFF, which would otherwise lose the rest.
        if (isNewerFormat() && remaining() != 0)
            failTag(std::to_string(remaining()) + " bytes follow the end of the file's tags");
        if (isNewerFormat() && facts_)
            facts_->newer.endOffset = tell();
        failure_ = Failure{};
    } catch (const ReaderError& error) {
        lastError_ = error.text;
        if (!error.detail.empty())
            failure_.detail = error.detail;
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
        } else if (skip == 0xFC && isNewerFormat()) {
            // Versions 10 and 11 count the bytes with a variable-length number.
            const uint32_t count = readVarNumber();
            if (count > remaining() || count > uint32_t(INT32_MAX))
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

uint32_t CParser::readVarNumber()
{
    VarNumber number;
    do {
        if (!number.add(static_cast<uint8_t>(readByte())))
            failTag("a variable-length number longer than five bytes");
    } while (!number.complete());
    if (!number.fitsUnsigned())
        failTag("a variable-length number beyond 32 bits");
    return number.value();
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
                                            " bytes (four times the file and 48 MiB) at file offset " +
                                            std::to_string(offset)};
}

uint32_t CParser::readTypeIndex()
{
    if (!isNewerFormat())
        return readWord16();
    const uint32_t index = readVarNumber();
    if (index > 0xFFFF)
        failTag("type index " + std::to_string(index) + " beyond the 65536 a file can have");
    return index;
}

void CParser::failTag(std::string detail)
{
    failure_.detail = std::move(detail);
    throw ReaderError{kTagProcessingError};
}

std::string CParser::describeFailure() const
{
    if (!lastError_)
        return std::string();
    std::string text = lastError_;
    char where[96];
    if (failure_.tagCode < 0) {
        std::snprintf(where, sizeof where, " at offset %" PRIu64 ", where a tag should begin", failure_.tagOffset);
        return text + where;
    }
    const uint8_t code = static_cast<uint8_t>(failure_.tagCode);
    const char* name = tagName(code);
    if (!name)
        name = newerTagName(code);
    std::snprintf(where, sizeof where, " in tag 0x%02X%s%s%s at offset %" PRIu64, code, name ? " (" : "",
                  name ? name : "", name ? ")" : "", failure_.tagOffset);
    text += where;
    if (!failure_.detail.empty())
        text += ": " + failure_.detail;
    return text;
}

void CParser::dropLastLineRecord()
{
    pendingLineRecord = false;
    // The flag is only set after a record was appended; the guards keep a bug from underflowing.
    if (!lightParse() && !lineTable_.empty())
        lineTable_.pop_back();
    if (!fileLineRanges_.empty() && fileLineRanges_.back().lineRecordCount > 0)
        --fileLineRanges_.back().lineRecordCount;
}

} // namespace ubrof
