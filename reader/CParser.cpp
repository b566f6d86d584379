// The reader core: the tag table, the dispatch loop, the skip rule and the byte-stream primitives.
#include "reader/CParser.h"

#include "reader/ReaderError.h"
#include "reader/TagCodes.h"
#include "reader/VarNumber.h"

#include <sys/stat.h>

#include <cinttypes>

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
                 std::vector<SourceFileRecord>& sourceFileTable, std::vector<LineRecord>& lineTable,
                 FileIndex& fileIndex, std::vector<FileLineRange>& fileLineRanges)
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
    if (file_)
        std::fclose(file_);
}

int CParser::parse(const char* path)
{
    if (!path || !*path)
        return 0;
    fileName_ = path;
    file_ = std::fopen(path, "rb");
    if (!file_)
        return 0;
    struct stat info;
    fileSize_ = (fstat(fileno(file_), &info) == 0 && info.st_size > 0) ? uint64_t(info.st_size) : 0;
    position_ = 0;
    lastError_ = nullptr;
    failure_ = Failure{};

    auto closeFile = [this] {
        std::fclose(file_);
        file_ = nullptr;
    };
    try {
        for (;;) {
            failure_.tagOffset = position_;
            failure_.tagCode = -1;
            const uint8_t code = static_cast<uint8_t>(readByte());
            failure_.tagCode = code;
            if (tagObserver_)
                tagObserver_(failure_.tagOffset, code);
            if (const TagEntry* entry = tagIndex_[code]) {
                const uint64_t end = isNewerFormat() ? declaredEnd(code) : 0;
                if ((this->*entry->handler)() != 0)
                    throw ReaderError{kTagProcessingError};
                if (end != 0 && position_ != end)
                    failTag("its length says it ends at offset " + std::to_string(end) + ", its fields at " +
                            std::to_string(position_));
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
            facts_->newer.endOffset = position_;
        failure_ = Failure{};
    } catch (const ReaderError& error) {
        lastError_ = error.text;
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

uint32_t CParser::readByte()
{
    const int c = getc_unlocked(file_);
    if (c == EOF)
        throw ReaderError{kUnexpectedEndOfFile};
    ++position_;
    return static_cast<uint32_t>(c);
}

uint32_t CParser::readWord16()
{
    const uint32_t high = readByte();
    return (high << 8) | readByte();
}

uint32_t CParser::readWord32()
{
    uint32_t value = readByte();
    value = (value << 8) | readByte();
    value = (value << 8) | readByte();
    return (value << 8) | readByte();
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
    if (std::fread(destination, 1, count, file_) != count)
        throw ReaderError{kUnexpectedEndOfFile};
    position_ += count;
}

std::string CParser::readString(uint32_t count)
{
    // Checked before anything is allocated, so a hostile count costs nothing.
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    std::string text(count, '\0');
    if (count != 0 && std::fread(&text[0], 1, count, file_) != count)
        throw ReaderError{kUnexpectedEndOfFile};
    position_ += count;
    // Users of the text see it up to its first NUL, as a C string.
    const size_t end = text.find('\0');
    if (end != std::string::npos)
        text.resize(end);
    return text;
}

void CParser::skipBytes(int32_t count)
{
    // Most skips are a few ignored bytes: reading them through the stream's buffer avoids
    // a system call and a buffer refill per skip. A skip past the end still seeks, so that
    // the failure comes from the next read.
    if (count >= 0 && uint64_t(count) <= remaining() && count <= kSkipThroughBuffer) {
        uint8_t scratch[kSkipThroughBuffer];
        readBytes(scratch, static_cast<uint32_t>(count));
        return;
    }
    if (count < 0 && uint64_t(-int64_t(count)) > position_)
        throw ReaderError{kUnexpectedEndOfFile};
    if (std::fseek(file_, count, SEEK_CUR) != 0)
        throw ReaderError{kUnexpectedEndOfFile};
    position_ = uint64_t(int64_t(position_) + count);
}

void CParser::seek(uint64_t position)
{
    if (std::fseek(file_, static_cast<long>(position), SEEK_SET) != 0)
        throw ReaderError{kUnexpectedEndOfFile};
    position_ = position;
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

void CParser::dropPendingLineRecord()
{
    if (!pendingLineRecord)
        return;
    pendingLineRecord = false;
    // The flag is only set after a record was appended; the guards keep a bug from underflowing.
    if (!lineTable_.empty())
        lineTable_.pop_back();
    if (!fileLineRanges_.empty() && fileLineRanges_.back().lineRecordCount > 0)
        --fileLineRanges_.back().lineRecordCount;
}

void CParser::completePendingLineRecord(uint32_t count)
{
    if (!pendingLineRecord)
        return;
    pendingLineRecord = false;
    if (!lineTable_.empty())
        lineTable_.back().size = count;
    if (blockTree_.current >= 0)
        blockTree_.widenBlock(static_cast<uint32_t>(blockTree_.current), codeAddress,
                              codeAddress + count);
}

} // namespace ubrof
