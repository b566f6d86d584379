// The UBROF reader: walks a file's tag stream once, forward, and fills the store's tables.
#pragma once

#include "reader/BlockTree.h"
#include "reader/DMemory.h"
#include "reader/NewerState.h"
#include "reader/ProgramFacts.h"
#include "reader/Records.h"
#include "reader/TypeTable.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
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
            std::vector<GroupRecord>& groupTable, std::vector<ModuleRecord>& moduleTable,
            BlockTree& blockTree, SymbolTable& symbolTable, DMemory& codeMemory,
            DMemory& eepromMemory, DMemory& dataMemory,
            std::vector<SourceFileRecord>& sourceFileTable, std::vector<LineRecord>& lineTable,
            FileIndex& fileIndex, std::vector<FileLineRange>& fileLineRanges);
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
    // ReaderError(kUnexpectedEndOfFile) when the item is not complete.
    uint32_t readByte();
    uint32_t readWord16();
    uint32_t readWord32();
    void readBytes(uint8_t* destination, uint32_t count);
    /// A counted text, cut at its first NUL; the count is checked against what is left first.
    std::string readString(uint32_t count);
    /// A variable-length number of versions 10 and 11: seven bits a byte, the lowest first, a
    /// set top bit announcing another byte. Raises ReaderError(kTagProcessingError) when the
    /// value does not fit 32 bits.
    uint32_t readVarNumber();
    void skipBytes(int32_t count);
    static constexpr int32_t kSkipThroughBuffer = 4096;
    uint64_t tell() const { return position_; }
    void seek(uint64_t position);
    uint64_t remaining() const { return position_ < fileSize_ ? fileSize_ - position_ : 0; }

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

    // Line records (shared by the source and symbol tags).
    void dropPendingLineRecord();
    void completePendingLineRecord(uint32_t count);

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

    // The stream.
    const char* fileName_ = nullptr;
    std::FILE* file_ = nullptr;
    uint64_t fileSize_ = 0;
    uint64_t position_ = 0;
    const char* lastError_ = nullptr;
    Failure failure_;
    std::function<void(uint64_t, uint8_t)> tagObserver_;

    const TagEntry* tagIndex_[256] = {};
    std::vector<std::pair<uint8_t, uint8_t>> skipInfo_; ///< (tag code, skip code) in file order

    // The store's tables.
    UbrofFileHeader& fileHeader_;
    NameTable& nameTable_;
    TypeTable& typeTable_;
    std::vector<GroupRecord>& groupTable_;
    std::vector<ModuleRecord>& moduleTable_;
    BlockTree& blockTree_;
    SymbolTable& symbolTable_;
    DMemory& codeMemory_;
    DMemory& eepromMemory_;
    DMemory& dataMemory_;
    std::vector<SourceFileRecord>& sourceFileTable_;
    std::vector<LineRecord>& lineTable_;
    FileIndex& fileIndex_;
    std::vector<FileLineRange>& fileLineRanges_;
    ProgramFacts* facts_ = nullptr;

    // Reader state shared by the tag handlers.
    uint32_t segmentType = 1;
    uint32_t codeAddress = 0;
    uint32_t eepromAddress = 0;
    uint32_t dataAddress = 0;
    double ubrofVersion = 0.0;
    uint32_t recordContext = 0; ///< 0 nowhere, 1 last group, 2 current block
    bool pendingLineRecord = false;
    bool startNewLineRange = true;
    int32_t currentFile = -1;
    std::map<std::string, uint32_t> embeddedNameCounts;
    uint32_t embeddedCopies = 0; ///< embedded sources written to disk by this parse
    uint32_t fileTableEntries = 0; ///< entries of module file tables grown by this parse
    NewerState newer_;             ///< what the tags of versions 10 and 11 carry from tag to tag

public:
    /// Embedded sources written by one parse at the most.
    static constexpr uint32_t kMaxEmbeddedCopies = 1024;
    /// Module file-table entries one parse may grow at the most. A table is as long as the
    /// highest reference its module declares, so eleven bytes of t_file_ref can ask for 65536
    /// entries, in every module; real modules declare a few dozen.
    static constexpr uint32_t kMaxFileTableEntries = 1u << 20;
};

} // namespace ubrof
