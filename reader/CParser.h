// The UBROF reader: walks a file's tag stream once, forward, and fills the store's tables.
#pragma once

#include "reader/BlockTree.h"
#include "reader/DMemory.h"
#include "reader/LineTable.h"
#include "reader/NewerState.h"
#include "reader/ProgramFacts.h"
#include "reader/Records.h"
#include "reader/TypeTable.h"

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

class CParser {
public:
    using Handler = int (CParser::*)();

    struct TagEntry {
        uint32_t code;
        Handler handler;
        const char* name;
    };

    /// The 38 tags the reader knows, in table order.
    static const TagEntry tagTable[];

    struct NewerTagEntry {
        uint32_t code;
        int32_t skipCode; ///< the skip code a file must declare for the tag; -1 for none
        Handler handler;
        const char* name;
    };
    /// The tags only versions 10 and 11 define (reader/NewerTags.def).
    static const NewerTagEntry newerTagTable[];

    CParser(UbrofFileHeader& fileHeader, NameTable& nameTable, TypeTable& typeTable,
            std::vector<GroupRecord>& groupTable, std::deque<ModuleRecord>& moduleTable,
            BlockTree& blockTree, SymbolTable& symbolTable, DMemory& codeMemory,
            DMemory& eepromMemory, DMemory& dataMemory,
            std::vector<SourceFileRecord>& sourceFileTable, LineTable& lineTable,
            FileIndex& fileIndex, ChunkedVector<FileLineRange>& fileLineRanges);
    virtual ~CParser();
    CParser(const CParser&) = delete;
    CParser& operator=(const CParser&) = delete;

    /// Reads the file from its first byte to t_ubrof_eof: 1 for success, 0 for failure.
    int parse(const char* path);

    /// The reader's text for the last failed parse, nullptr after success; for diagnostics.
    const char* lastError() const { return lastError_; }

    /// Where to keep the facts only the program model reads; none are kept without it.
    void keepFacts(ProgramFacts* facts) { facts_ = facts; }

    /// Lets the parse read format versions 10 and 11; without it they fail at t_version, as
    /// every version from 9 on does.
    void acceptNewerVersions(bool accept) { newer_.accepted = accept; }

    /// Where the last failed parse stopped, for messages that say what and where: the offset
    /// and code of the tag being read, and what its handler found wrong when it said.
    struct Failure {
        uint64_t tagOffset = 0;
        int32_t tagCode = -1; ///< -1 when the parse never reached a tag
        std::string detail;
    };
    const Failure& failure() const { return failure_; }
    /// The error text with the failure's tag, offset and detail; empty after success.
    std::string describeFailure() const;

    /// Called with the offset and code of every tag the parse reaches; for tests and tools
    /// that need to know where the tags of a file start.
    void observeTags(std::function<void(uint64_t offset, uint8_t code)> observer)
    {
        tagObserver_ = std::move(observer);
    }

private:
    // Byte-stream primitives: the only code that touches the file. Each raises
    // ReaderError(kUnexpectedEndOfFile) when the item is not complete. The file is read in
    // blocks of kBlockSize and decoded from the block, so a tag costs no call into the system.
    uint32_t readByte()
    {
        if (next_ == end_)
            refill();
        return *next_++;
    }
    uint32_t readWord16()
    {
        if (end_ - next_ < 2) {
            const uint32_t high = readByte();
            return high << 8 | readByte();
        }
        const uint32_t value = uint32_t(next_[0]) << 8 | next_[1];
        next_ += 2;
        return value;
    }
    uint32_t readWord32()
    {
        if (end_ - next_ < 4) {
            const uint32_t high = readWord16();
            return high << 16 | readWord16();
        }
        const uint32_t value = uint32_t(next_[0]) << 24 | uint32_t(next_[1]) << 16 | uint32_t(next_[2]) << 8 | next_[3];
        next_ += 4;
        return value;
    }
    void readBytes(uint8_t* destination, uint32_t count);
    /// A counted text, cut at its first NUL; the count is checked against what is left first.
    std::string readString(uint32_t count);
    /// readString without a string of its own: the view holds until the next readText.
    std::string_view readText(uint32_t count);
    /// A variable-length number of versions 10 and 11: seven bits a byte, the lowest first, a
    /// set top bit announcing another byte. Raises ReaderError(kTagProcessingError) when the
    /// value does not fit 32 bits.
    uint32_t readVarNumber();
    void skipBytes(int32_t count);
    uint64_t tell() const { return blockOffset_ + uint64_t(next_ - block_.get()); }
    void seek(uint64_t position);
    uint64_t remaining() const
    {
        const uint64_t position = tell();
        return position < fileSize_ ? fileSize_ - position : 0;
    }
    /// Reads the block that starts at tell(); raises the end-of-file error when there is none.
    void refill();
    static constexpr uint32_t kBlockSize = 64 * 1024;

    int skipUnknownTag(uint8_t code);
    /// Reads a tag that only versions 10 and 11 define; false when the file is older or the
    /// tag is not one of them, so that the skip rule decides.
    bool readNewerTag(uint8_t code);
    /// Where a tag with a handler ends by the length its skip code puts before its fields
    /// (versions 10 and 11 check it: a read out of step rarely gets it right); 0 for none.
    uint64_t declaredEnd(uint8_t code);
    /// A t_type operand that names a type: 16 bits, or from version 10 on a variable-length
    /// number, which must still fit the 16 bits every type index of the store has.
    uint32_t readTypeIndex();
    /// Fails the current tag with a detail that says what was wrong.
    [[noreturn]] void failTag(std::string detail);

    // Versions 10 and 11 (reader/NewerTags.cpp): hooks of the older handlers.
    bool isNewerFormat() const { return newer_.formatVersion >= 10; }
    void noteCodeOrigin(uint32_t address);
    void noteCodeBytes(uint32_t count);
    void noteSymbolDefined(uint32_t symbol);
    void noteBlockBegun(uint32_t block);
    void noteModuleBegun();
    void noteModuleEnded();
    void readNewerSegmentInfo();
    /// A body counted by a variable-length number, as skip code 0xFC declares it.
    std::vector<uint8_t> readCountedBody();
    /// Keeps a note of something not understood, at a file offset, when facts are kept.
    void note(uint64_t offset, std::string text);
    void placeLineProgram(const LineProgramRecord& record, uint64_t offset);
    /// Why t_version refuses a format version.
    static std::string refusedVersionReason(uint8_t version, bool newerAccepted);
    void appendLineRecords(uint32_t block, const std::vector<PlacedStatement>& rows, uint32_t end);

    /// Moves count bytes of the stream into image at address, within the images' budget.
    void writeImage(DMemory& image, uint32_t address, uint32_t count)
    {
        // The common case: the bytes are in the block and land on a page the image has.
        const uint64_t pages = image.allocatedBytes();
        if (uint32_t(end_ - next_) >= count) {
            image.write(address, next_, count);
            next_ += count;
        } else {
            writeImageAcrossBlocks(image, address, count);
        }
        if (image.allocatedBytes() != pages)
            checkImageBudget(tell() - count);
    }
    void writeImageAcrossBlocks(DMemory& image, uint32_t address, uint32_t count);
    /// Fails the parse when the images take more than imageBudget(); offset is where the bytes began.
    void checkImageBudget(uint64_t offset) const;
    /// Memory the three images may take in all: a file of n bytes can fill at most n bytes of
    /// them, but every byte it places on a new page costs the whole page, so the bound is a
    /// multiple of the file's size with room for real programs' scattered segments, and below
    /// what a hostile file may cost the whole process (64 MiB and four times the file).
    uint64_t imageBudget() const { return 4 * fileSize_ + (uint64_t(48) << 20); }

    // Line records (shared by the source and symbol tags).
    /// A parse for a light model keeps only what that build reads: no image bytes, no location
    /// entries, and statements only counted by their ranges.
    bool lightParse() const { return light_; }
    void dropPendingLineRecord()
    {
        if (pendingLineRecord)
            dropLastLineRecord();
    }
    void completePendingLineRecord(uint32_t count)
    {
        if (!pendingLineRecord)
            return;
        pendingLineRecord = false;
        if (!lightParse() && !lineTable_.empty())
            lineTable_.setCodeSize(lineTable_.size() - 1, count);
        if (blockTree_.current >= 0)
            blockTree_.widenBlock(static_cast<uint32_t>(blockTree_.current), codeAddress, codeAddress + count);
    }
    void dropLastLineRecord();

    // Definitions (shared by the symbol tags).
    struct SymbolFields {
        uint8_t kind = 0;
        uint16_t addressSpace = 0;
        uint32_t value = 0;
        std::string name;
        uint16_t typeIndex = 0;
    };
    /// Kind, address space, value, name and type: the fields every named definition begins with.
    SymbolFields readSymbolFields();
    /// Appends the symbol with a new name record of its own.
    void appendNamedSymbol(SymbolFields fields);
    void registerDefinition();
    void appendSymbol(uint8_t kind, uint16_t addressSpace, uint32_t value, uint16_t typeIndex,
                      uint32_t nameIndex);
    void readLocationEntries(uint32_t count);
    void readLocalSymbols(uint32_t blockIndex);

    // Tag handlers: 0 for success, non-zero fails the parse.
#define UBROF_TAG(code, name, handler) int handler();
#include "reader/Tags.def"
#undef UBROF_TAG
#define UBROF_NEWER_TAG(code, name, skipCode, handler) int handler();
#include "reader/NewerTags.def"
#undef UBROF_NEWER_TAG

    // The stream: the block holds the file's bytes from blockOffset_ on, up to end_.
    const char* fileName_ = nullptr;
    int file_ = -1;
    uint64_t fileSize_ = 0;
    std::unique_ptr<uint8_t[]> block_;
    const uint8_t* next_ = nullptr;
    const uint8_t* end_ = nullptr;
    uint64_t blockOffset_ = 0;
    const char* lastError_ = nullptr;
    std::string textScratch_; ///< what readText's view shows
    Failure failure_;
    std::function<void(uint64_t, uint8_t)> tagObserver_;

    const TagEntry* tagIndex_[256] = {};
    std::vector<std::pair<uint8_t, uint8_t>> skipInfo_; ///< (tag code, skip code) in file order

    // The store's tables.
    UbrofFileHeader& fileHeader_;
    NameTable& nameTable_;
    TypeTable& typeTable_;
    std::vector<GroupRecord>& groupTable_;
    std::deque<ModuleRecord>& moduleTable_;
    BlockTree& blockTree_;
    SymbolTable& symbolTable_;
    DMemory& codeMemory_;
    DMemory& eepromMemory_;
    DMemory& dataMemory_;
    std::vector<SourceFileRecord>& sourceFileTable_;
    LineTable& lineTable_;
    FileIndex& fileIndex_;
    ChunkedVector<FileLineRange>& fileLineRanges_;
    ProgramFacts* facts_ = nullptr;
    bool light_ = false; ///< facts_->light as the parse began: every statement asks

    // Reader state shared by the tag handlers.
    uint32_t segmentType = 1;
    uint32_t codeAddress = 0;
    uint32_t eepromAddress = 0;
    uint32_t dataAddress = 0;
    double ubrofVersion = 0.0;
    uint32_t recordContext = 0; ///< 0 nowhere, 1 last group, 2 current block
    bool pendingLineRecord = false;
    LocationRecord lastLocation_; ///< the last location entry read
    bool startNewLineRange = true;
    int32_t currentFile = -1;
    std::map<std::string, uint32_t> embeddedNameCounts;
    uint32_t embeddedCopies = 0; ///< embedded sources written to disk by this parse
    NewerState newer_;             ///< what the tags of versions 10 and 11 carry from tag to tag

public:
    /// Embedded sources written by one parse at the most.
    static constexpr uint32_t kMaxEmbeddedCopies = 1024;
};

} // namespace ubrof
