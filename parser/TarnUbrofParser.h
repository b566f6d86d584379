// The parsed-file store: everything read from one UBROF file, and the queries every view answers from.
#pragma once

#include "host/CodeArea.h"
#include "host/FileMapper.h"
#include "host/Status.h"
#include "parser/CodeAreaTable.h"
#include "reader/BlockTree.h"
#include "reader/DMemory.h"
#include "reader/LargeBlocks.h"
#include "reader/LineTable.h"
#include "reader/ProgramFacts.h"
#include "reader/Records.h"
#include "reader/TypeTable.h"

#include <array>
#include <cstdint>
#include <deque>
#include <string_view>
#include <string>
#include <vector>

namespace ubrof {

/// Kind codes of context numbers: the tag codes of t_block_begin, t_symbol_def and t_type.
enum ContextKind : uint32_t {
    ScopeContext = 72,
    SymbolContext = 76,
    TypeContext = 74,
};

/// DWARF tag codes under which the store classifies contexts.
enum DwarfTag : int32_t {
    DwTagArrayType = 0x01,
    DwTagEnumerationType = 0x04,
    DwTagLexicalBlock = 0x0B,
    DwTagMember = 0x0D,
    DwTagPointerType = 0x0F,
    DwTagReferenceType = 0x10,
    DwTagCompileUnit = 0x11,
    DwTagStructureType = 0x13,
    DwTagSubroutineType = 0x15,
    DwTagTypedef = 0x16,
    DwTagUnionType = 0x17,
    DwTagPtrToMemberType = 0x1F,
    DwTagBaseType = 0x24,
    DwTagSubprogram = 0x2E,
    DwTagVariable = 0x34,
    DwTagUnspecifiedType = 0x3B,
};

/// Store result codes.
enum StoreResult : int32_t {
    StoreOk = 0,
    StoreNotFound = -1,
    StoreBadArgument = -2,
    StoreUnknownMemoryClass = 1,
    StoreCannotOpen = 2,
    StoreNotUbrof = 3,
    StoreIndexOutOfRange = 5,
    StoreNotInitialised = 0x100,
    StoreAlreadyParsed = 0x101,
    StoreNotParsed = 0x102,
};

/// Where a symbol lives: location kind 1 memory, 2 frame offset, 3 constant, 4 computed, 0 unknown.
struct SymbolLocation {
    uint32_t kind = 0;
    uint32_t value = 0;
    uint32_t memoryClass = 0; ///< MemoryClass, for kind 1
};

class TarnUbrofParser {
public:
    TarnUbrofParser();
    TarnUbrofParser(const TarnUbrofParser&) = delete;
    TarnUbrofParser& operator=(const TarnUbrofParser&) = delete;

    // Lifecycle.
    bool initialize();
    int16_t checkFile(const std::string& path) const;
    int16_t parseFile(const std::string& path);
    bool isParsed() const { return (stateFlags & 2) != 0; }

    // Memory images (classes 1, 2, 4; 0x40 is code memory in 16-bit words).
    int32_t getMemoryRange(uint8_t memoryClass, uint32_t* low, uint32_t* high, uint32_t* reserved) const;
    int32_t readMemory(uint8_t memoryClass, uint32_t start, uint32_t count, uint8_t* out) const;

    // Context numbers.
    uint32_t encodeContextId(uint32_t kind, int32_t index) const;
    int32_t decodeContextId(uint32_t context, uint32_t* kind) const;

    // The scope tree.
    int32_t findScopeAtAddress(uint32_t pc) const;
    int32_t findSymbolInScope(int32_t scope, const std::string& name) const;
    int32_t lookupName(int32_t scope, const std::string& name, int32_t* foundScope) const;
    int32_t findChildScopeByName(int32_t scope, const std::string& name) const;
    int32_t findFunctionByName(const std::string& name) const;
    int32_t findModuleOfFile(uint32_t fileIndex) const;
    void getChildScopes(int32_t scope, std::vector<uint32_t>& out) const;
    void getScopeSymbols(int32_t scope, std::vector<uint32_t>& out, bool includeAll) const;
    void getAllModuleSymbols(std::vector<uint32_t>& out) const;
    void getScopeName(int32_t scope, std::string& text) const;
    /// Indexes every scope's children by address for findScopeAtAddress. The parse calls it; a
    /// tree filled by hand needs it called again, and one whose block count changed since is walked.
    void indexScopes();
    /// Indexes the modules' symbols and functions by name for lookupName and findFunctionByName,
    /// as indexScopes does for addresses; a store whose tables changed since is searched in full.
    void indexNames();

    // Scopes, symbols and types by context number.
    int16_t getScopeAtPc(uint32_t pc, int32_t* scope) const;
    int16_t lookupSymbolByName(const std::string& name, int32_t scope, uint32_t searchMode,
                               int32_t* symbol, int32_t* foundScope) const;
    int16_t lookupGlobal(uint32_t context, const std::string& name, int32_t tag, uint32_t* result) const;
    int16_t getSymbolClass(uint32_t context, int32_t* tag) const;
    bool getChildren(uint32_t context, int32_t tag, std::vector<uint32_t>& out) const;
    void getContextName(uint32_t context, std::string& text) const;
    int32_t getSymbolTypeIndex(int32_t symbol) const;
    int32_t getTypeIndexOfContext(uint32_t context) const;
    int32_t getSymbolOffset(uint32_t context) const;
    int16_t getSymbolLocation(uint32_t context, uint32_t pc, SymbolLocation* location) const;
    /// The first register of a kind-8 location value (0 for a value that names none).
    static uint32_t registerOfCode(uint32_t code);
    int16_t getScopeInfo(int32_t scope, std::string* name, std::string* fileName, uint32_t* kind,
                         uint32_t* lowAddress, uint32_t* size, int32_t* firstLineRecord) const;
    uint32_t getContextAddress(uint32_t context) const;
    int32_t getContextSize(uint32_t context) const;
    int32_t getContextLength(uint32_t context) const;
    std::string getContextTypeName(uint32_t context) const;
    std::string getScopeNameAtPc(uint32_t pc) const;
    int32_t getTypeOfSymbolNamed(const std::string& name) const;
    bool isBitFieldContext(uint32_t context) const;
    bool isArrayTypeIndex(int32_t type) const;
    bool isFunctionTypeContext(uint32_t context) const;
    void getArrayDimensions(uint32_t context, std::vector<int32_t>& out) const;
    void getBitFieldInfo(uint32_t context, uint32_t* width, uint32_t* position, uint32_t* storageSize) const;
    bool getReferencedTypeOf(int32_t type, uint32_t* target) const;
    int16_t getTypeTarget(int32_t type, int32_t* target, uint32_t* mode) const;
    int16_t getStructMember(int32_t type, std::string& text, int32_t position, int32_t* memberType,
                            uint32_t* offset, int32_t* symbol, uint32_t* memberCount) const;

    // Files, lines and code areas.
    int16_t getFileInfo(uint32_t index, std::string* name, double* timestamp, uint8_t* flags) const;
    int32_t findSourceFile(const std::string& name) const;
    int16_t findStatementAddress(std::string name, uint32_t line, uint32_t column, uint64_t* address) const;
    /// Throws CoreException for start > end; warns in status when nothing is found.
    bool getCodeAreasInRange(tarn::Status& status, uint64_t start, uint64_t end,
                             std::vector<tarn::CodeArea>& out) const;
    void collectCodeAreas(size_t position, uint64_t end, std::vector<tarn::CodeArea>& out) const;
    /// The host's value of code area number area (of codeAreas), built on demand.
    tarn::CodeArea codeArea(size_t area) const;

    // The tables, in declaration order. The reader fills them during parseFile; afterwards
    // they are only read.
    uint32_t stateFlags = 0; ///< bit 0 initialised, bit 1 parsed
    std::string filePath;
    UbrofFileHeader fileHeader;
    NameTable nameTable;
    TypeTable typeTable;
    SymbolTable symbolTable;
    std::vector<GroupRecord> groupTable;
    /// A deque: a file may hold hundreds of thousands of modules, and a growing vector of them
    /// would hold its old and new copies at once.
    std::deque<ModuleRecord> moduleTable;
    DMemory codeMemory;
    DMemory eepromMemory;
    DMemory dataMemory;
    std::vector<SourceFileRecord> sourceFileTable;
    LineTable lineTable;
    BlockTree blockTree;
    FileIndex fileIndex;
    ChunkedVector<FileLineRange> fileLineRanges;
    CodeAreaTable codeAreas;
    tarn::FileMapper fileMapper;
    /// What only the program model reads; kept only when keepFacts is set before the parse, so
    /// that a debugger host does not pay for tables it never asks about.
    ProgramFacts facts;
    bool keepFacts = false;
    /// Format versions 10 and 11 are read only when this is set before the parse; the module
    /// reads them when its host opts in, the program model always.
    bool readNewerVersions = false;
    /// What made the last parse fail and where, for messages; empty after success.
    std::string parseError;

private:
    /// An address range [low, high) of the scope at position in its list.
    struct Span {
        uint64_t low;
        uint64_t high;
        int32_t position;
    };

    /// The address space cut at every boundary of a set of spans, with the span that wins in
    /// each piece (the lowest or the highest position among those covering it), so that "the
    /// first scope in tree order that holds pc" is one binary search, overlaps or not.
    struct SegmentIndex {
        SearchedVector<uint64_t> bounds; ///< piece i is [bounds[i], bounds[i + 1])
        SearchedVector<int32_t> winner;  ///< per piece: a position, or -1
        /// Per stretch of 2^shift addresses from bounds[0] on, the first bound at or above its
        /// start: a lookup searches the few bounds of its stretch, which sit in a line or two.
        SearchedVector<uint32_t> stretches;
        unsigned shift = 0;
        /// The winning position at pc, or -1; narrows [*low, *high) to the piece of pc when given.
        int32_t at(uint32_t pc, uint64_t* low = nullptr, uint64_t* high = nullptr) const;
        /// The piece that holds pc, or -1 outside them all; narrows as at does.
        int64_t pieceAt(uint32_t pc, uint64_t* low, uint64_t* high) const;
        /// A piece at or just after the one that holds pc, from the stretches alone: what a
        /// caller may fetch ahead while pieceAt searches.
        size_t nearPiece(uint32_t pc) const;
        /// Cuts the bounds into stretches of about one bound each.
        void divide();
    };

    void buildCodeAreas();
    /// An area's fields, all but its function name.
    void fillCodeArea(uint32_t lineRecord, uint32_t file, tarn::CodeArea& built) const;
    void fillCodeArea(uint32_t lineRecord, uint32_t file, uint32_t address, tarn::CodeArea& built) const;
    /// findScopeAtAddress, and the addresses [*low, *high) around pc over which its answer holds.
    int32_t scopeAtAddress(uint32_t pc, uint64_t* low, uint64_t* high) const;
    /// The levels of an indexed scope lookup: what each index answered and over which addresses.
    /// A walk over ascending addresses keeps the levels that still hold and redoes only the rest.
    struct ScopeTrail {
        struct Level {
            int32_t scope; ///< the module or child found at this level; -1 where none was
            uint64_t low;
            uint64_t high;
            // What the levels down to this one answer together, so that a nesting as deep as
            // the file allows costs a lookup no walk over its levels.
            uint64_t jointLow = 0;
            uint64_t jointHigh = 0;
            int32_t jointScope = -1;
            int32_t jointName = -1; ///< jointScope's name index
        };
        std::vector<Level> levels;
        bool claimed = false; ///< whether a module claimed the address, so that the walk went down
    };
    /// findScopeAtAddress by way of trail; [*low, *high) as for scopeAtAddress. *name becomes
    /// the scope's name index, from the index itself rather than from the scope's record.
    int32_t scopeAlong(uint32_t pc, ScopeTrail& trail, uint64_t* low, uint64_t* high, int32_t* name) const;
    void createMemberSymbols();
    /// The image of a memory class, after the checks every memory query makes.
    int32_t imageFor(uint8_t memoryClass, const DMemory** image) const;
    static SegmentIndex makeSegmentIndex(std::vector<Span> spans, bool lowestWins);
    bool scopesIndexed() const { return childSlices_.size() == blockTree.blocks.size() && !childSlices_.empty(); }
    struct ChildSlice;
    struct ChildWinner;
    /// The child that holds pc of the scope whose slice is given, or -1; narrows [*low, *high)
    /// to the piece of pc when given, and points *found at the child's entry when there is one.
    int32_t childIn(ChildSlice slice, uint32_t pc, uint64_t* low, uint64_t* high, const ChildWinner** found) const;
    /// The first of scopes, in order, that holds pc; -1 when none does.
    int32_t scopeHolding(IndexRange scopes, uint32_t pc) const;
    /// The innermost scope below scope that holds pc; -1 when no child does.
    int32_t innermostBelow(uint32_t scope, uint32_t pc, uint64_t* low, uint64_t* high) const;
    bool lineRangesEndAt(uint32_t module, uint32_t pc) const;
    /// The category getTypeInfo gives a type; undefined for -1.
    uint32_t categoryOfType(int32_t type) const;
    /// The type record at type, after the checks every step of a type walk makes.
    int16_t typeRecordAt(int32_t type, const TypeRecord** record) const;

    /// Per scope, its slice of childPieces_: the pieces of its children's
    /// ranges, each with the first child that holds it (or -1).
    struct ChildSlice {
        uint32_t first;
        uint32_t count;
    };
    SearchedVector<ChildSlice> childSlices_;
    /// A symbol a module lists itself (module: its position in roots), by a hash of its name;
    /// symbols of kinds 6 and 9, which no lookup answers, are left out.
    struct ModuleName {
        uint32_t hash;
        uint32_t module;
        uint32_t symbol;
        bool operator<(const ModuleName& other) const
        {
            return hash != other.hash ? hash < other.hash : module < other.module;
        }
    };
    /// A function of a module by a hash of its name; place is its place in the walk over
    /// the modules' children, which decides between functions of one name.
    struct FunctionName {
        uint32_t hash;
        uint32_t place;
        uint32_t block;
        bool operator<(const FunctionName& other) const
        {
            return hash != other.hash ? hash < other.hash : place < other.place;
        }
    };
    /// Per source file (rangeMaxStart_ slices rangeMaxPrefix_), the highest last line of its
    /// line ranges so far, range by range: a line query starts at the first range that reaches
    /// its line, where the plain walk would have skipped every range before.
    std::vector<int32_t> rangeMaxPrefix_;
    std::vector<uint32_t> rangeMaxStart_;
    SearchedVector<ModuleName> moduleNames_; ///< by hash, then module, then place in the module's list
    /// Where the hashes with each top kNameBucketBits bits begin in moduleNames_, so that a
    /// lookup reads a line or two of it, not a binary search over the whole.
    static constexpr unsigned kNameBucketBits = 16;
    SearchedVector<uint32_t> moduleNameBuckets_;
    std::vector<uint32_t> modulesWithGroups_; ///< positions in roots, ascending
    SearchedVector<FunctionName> functionNames_;
    std::array<size_t, 4> namesIndexedFor_{}; ///< table sizes when indexNames ran
    bool namesIndexed() const;
    /// Whether symbol is one the debugger shows by name, of that name.
    bool isVariableNamed(uint32_t symbol, const std::string& name) const;
    /// findSymbolInScope's answer for the groups of scope alone.
    int32_t findSymbolInGroups(uint32_t scope, const std::string& name) const;
    /// findSymbolInScope's answer for the module at position of the roots, through the index.
    int32_t moduleSymbol(uint32_t position, const std::string& name, uint32_t hash) const;
    static uint32_t hashName(std::string_view name);
    /// A piece's winner, with the winner's name and its own slice: a walk down the tree reads
    /// each level's pieces and nothing else.
    struct ChildWinner {
        int32_t scope;
        int32_t name; ///< the scope's name index
        ChildSlice slice;
    };
    /// A piece starts at low and ends where the next in its slice starts; the last of a slice
    /// only ends the one before it. Its winner stands beside its start, so that the search
    /// that finds a small slice's piece has read its winner too.
    struct ChildPiece {
        uint32_t low;
        ChildWinner winner;
    };
    SearchedVector<ChildPiece> childPieces_;
    /// Per module (position in roots), its slice and name index: small enough to stay cached,
    /// where a module's record would cost a miss.
    std::vector<ChildWinner> rootWinners_;
    SegmentIndex moduleHolding_;           ///< the last top-level scope that holds an address
    SegmentIndex moduleClaiming_; ///< the first that holds it in a child or a range's last record
    /// Per piece of moduleClaiming_, its module and the module's child that holds it: a walk
    /// down from an address finds both in one search instead of two.
    struct ClaimedPiece {
        int32_t module; ///< position in roots, or -1 where no module claims the piece
        int32_t child;  ///< entry in childPieces_, or -1 where none of the module's children holds it
    };
    SearchedVector<ClaimedPiece> claimedPieces_;
    void indexClaimedChildren();
};

} // namespace ubrof
