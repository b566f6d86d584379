// The program as it is: a read-only account of what a UBROF file's program holds, built once from a
// parsed store, for the tools that show it (nm, size, addr2line) and the exporters (HEX, ELF/DWARF).
//
// Unlike the store's queries, which answer what a debugger host is promised, the model answers
// what the linked program really holds: functions from their true entry to their last code byte,
// a source line for every code byte of a function, qualified names and resolved types.
//
// Everything here is plain data: records refer to each other by index into the Program's tables,
// with kNone for "no record". A Program never changes after it is built.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ubrof::model {

/// "No record" in every index field.
inline constexpr uint32_t kNone = 0xFFFFFFFF;

/// The memories a program lives in. Code, Data and Eeprom carry the store's memory classes.
/// External is the 8051's external data memory (XDATA), a space of its own beside its internal
/// data whose addresses start at 0 as well; the store has no class for it, and no other family's
/// variables lie there. Its number is none of the store's classes.
enum class MemorySpace : uint8_t {
    Code = 1,
    Data = 2,
    Eeprom = 4,
    External = 0x20,
};

/// Every memory, in the order listings give them.
inline constexpr MemorySpace kMemorySpaces[] = {MemorySpace::Code, MemorySpace::Data, MemorySpace::Eeprom,
                                                MemorySpace::External};

/// The processor families this format was written for; Unknown when the file does not say.
enum class Family : uint8_t {
    Unknown,
    Avr,
    Msp430,
    I8051,
    Rl78,
};

/// A run of bytes the file writes at consecutive addresses of one memory.
struct ByteRun {
    uint32_t address = 0;
    std::vector<uint8_t> bytes;
    uint64_t end() const { return uint64_t(address) + bytes.size(); }
};

/// One memory's image: only what the file writes, in address order, adjacent runs joined.
struct MemoryImage {
    MemorySpace space = MemorySpace::Code;
    std::string name;           ///< "code", "data", "eeprom"
    std::vector<ByteRun> runs;  ///< sorted, non-overlapping; a later write wins over an earlier one
    /// What the runs span, without their bytes: a light build (BuildOptions::light) fills this
    /// and leaves runs empty. The queries below read it only when runs is empty.
    struct Extent {
        uint32_t low = 0;
        uint64_t end = 0;    ///< one past the last byte written
        uint64_t bytes = 0;  ///< bytes written, gaps not counted
        uint32_t runCount = 0;
        /// The runs' [low, end) spans, merged: no more than the runs they stand for.
        std::vector<std::pair<uint32_t, uint64_t>> spans;
    };
    std::optional<Extent> extent;
    bool empty() const { return runs.empty() && (!extent || extent->bytes == 0); }
    uint32_t lowAddress() const;
    /// One past the last byte written.
    uint64_t endAddress() const;
    /// Bytes written, gaps not counted.
    uint64_t byteCount() const;
};

struct SourceFile {
    std::string path; ///< as the file names it (an embedded file: the copy's path)
};

/// Where a value lives over some stretch of code.
struct Location {
    enum class Kind : uint8_t {
        None,        ///< not known, or optimised away
        Address,     ///< in memory at `address` of `space`
        Register,    ///< in `registerCount` consecutive registers from `firstRegister`, one byte each
        FrameOffset, ///< at `offset` from the function's frame base
        Constant,    ///< the value itself is `address`
        Computed,    ///< the file says it is computed, and not how
    };
    Kind kind = Kind::None;
    MemorySpace space = MemorySpace::Data;
    uint32_t address = 0;
    uint32_t firstRegister = 0;
    uint32_t registerCount = 0;
    int32_t offset = 0;
};

/// A location that holds from `low` (inclusive) to `high` (exclusive) in code memory.
struct LocationRange {
    uint32_t low = 0;
    uint32_t high = 0;
    Location location;
};

/// A type, resolved: typedef chains are kept as typedef records, but every record also knows
/// what it is at bottom (`resolved`), so that classification and size never need a walk.
struct Type {
    enum class Kind : uint8_t {
        Unknown,    ///< the file's record is missing, undefined or not understood
        Void,
        Base,       ///< integer, character, boolean or floating point: see `encoding`
        Pointer,    ///< to `target`; `size` is the pointer's own size
        Reference,  ///< C++ reference to `target`
        Structure,
        Union,
        Class,
        Array,      ///< of `target`, with `dimensions`
        Enumeration,
        Typedef,    ///< `name` for `target`
        Const,      ///< `target` qualified
        Volatile,   ///< `target` qualified
        Function,   ///< returning `target` (kNone: void), taking `parameters`
        MemberPointer,
    };
    enum class Encoding : uint8_t {
        None,
        Signed,
        Unsigned,
        SignedChar,
        UnsignedChar,
        Boolean,
        Float,
    };
    struct Member {
        std::string name;
        uint32_t type = kNone;
        uint32_t offset = 0;    ///< bytes from the start of the aggregate
        uint32_t bitSize = 0;   ///< 0 unless a bit field
        uint32_t bitOffset = 0; ///< bit fields: bits from the start of the storage unit at `offset`, least significant first
    };
    struct Enumerator {
        std::string name;
        int64_t value = 0;
    };

    Kind kind = Kind::Unknown;
    std::string name;         ///< its own name: a base type's, a tag's, a typedef's; may be empty
    std::string cName;        ///< C syntax for the whole type ("uint8_t (*)(void)", "struct point")
    uint32_t size = 0;        ///< bytes, after typedefs; 0 when unknown or void
    Encoding encoding = Encoding::None; ///< Base only
    uint32_t target = kNone;
    uint32_t resolved = kNone; ///< this type with typedefs and qualifiers stripped (itself when none)
    MemorySpace pointerSpace = MemorySpace::Data; ///< Pointer only: the memory it points into
    std::vector<Member> members;           ///< Structure, Union, Class
    std::vector<uint32_t> dimensions;      ///< Array: element counts, outermost first
    std::vector<Enumerator> enumerators;   ///< Enumeration
    std::vector<uint32_t> parameters;      ///< Function
    bool variadic = false;                 ///< Function
};

/// A variable, parameter or static member.
struct Variable {
    std::string name;          ///< as written in the source
    std::string qualifiedName; ///< with enclosing classes or namespaces ("Class::member"); else name
    uint32_t type = kNone;
    uint32_t size = 0;
    uint32_t module = kNone;
    uint32_t function = kNone; ///< kNone for a variable of file or program scope
    uint32_t block = kNone;    ///< innermost block of the function that declares it, kNone: the function
    bool isExternal = false;   ///< visible to other modules
    bool isParameter = false;
    /// Where it lives when no range says otherwise.
    Location location;
    /// Where it lives per stretch of code, in address order; empty when `location` holds throughout.
    std::vector<LocationRange> ranges;
    uint32_t file = kNone;
    uint32_t line = 0;
};

/// A lexical block inside a function.
struct Block {
    uint32_t low = 0;
    uint32_t high = 0; ///< exclusive
    uint32_t parent = kNone; ///< enclosing block; kNone: the function itself
    std::vector<uint32_t> blocks;    ///< nested blocks
    std::vector<uint32_t> variables; ///< declared in this block
};

struct Function {
    std::string name;
    std::string qualifiedName;
    uint32_t module = kNone;
    uint32_t entry = 0; ///< the true entry: where calls and interrupt vectors land
    uint32_t end = 0;   ///< one past its last code byte; entry == end when its code is unknown
    uint32_t type = kNone; ///< its function type, when the file gives one
    bool isExternal = false;
    bool isInterrupt = false;
    uint32_t file = kNone; ///< where its name stands in the source
    uint32_t line = 0;
    std::vector<uint32_t> blocks;    ///< outermost lexical blocks
    std::vector<uint32_t> variables; ///< parameters and locals at function level, parameters first
    /// Stack bytes used, per stack segment name in the order the file lists its segments, when the
    /// file records it (format versions 10 and 11).
    std::vector<std::pair<std::string, uint32_t>> stackUse;
    /// False for a function the file names only by its symbol (library or assembler code built
    /// without debug records, or a piece of code the compiler wrote for several functions to jump
    /// to, "?Subroutine0"): it has no blocks, variables or lines, and it runs over the bytes its
    /// module writes there, up to the next symbol that is not a label of a branch inside it.
    bool isDescribed = true;
    uint32_t size() const { return end - entry; }
};

/// One row of the line table: the code from `address` up to `end` belongs to `line` of `file`.
struct LineRow {
    uint32_t address = 0;
    uint32_t end = 0;
    uint32_t file = kNone;
    /// Of a statement over several lines, files of format versions 10 and 11 give the last, where
    /// the compiler lists its code (a function's entry: the line of its opening brace); older
    /// files the first.
    uint32_t line = 0;
    uint32_t column = 0; ///< from 1; 0 when not known
    uint32_t function = kNone;
    bool isStatement = true; ///< false for code that continues the statement before it
};

struct AddressRange {
    MemorySpace space = MemorySpace::Code;
    uint32_t low = 0;
    uint32_t high = 0; ///< exclusive
};

struct Module {
    std::string name;
    uint32_t file = kNone;        ///< its main source file
    std::vector<uint32_t> files;  ///< every source file it names
    /// What its functions and variables occupy, merged: every byte the module writes (its
    /// functions' code, its tables, its interrupt vectors) and its variables' storage, device
    /// registers excepted, which every module that uses one declares anew.
    std::vector<AddressRange> ranges;
    std::vector<uint32_t> functions;
    std::vector<uint32_t> variables;  ///< of module scope
    uint64_t size(MemorySpace space) const;
};

struct Processor {
    Family family = Family::Unknown;
    /// As the file records it ("ATmega16"); for an AVR program that records none, the device
    /// whose register header its sources include; empty when neither says.
    std::string name;
};

struct Program {
    std::string path;
    uint8_t version = 0;              ///< the format version
    std::array<uint8_t, 3> versionBytes{};
    double creationTime = 0.0;        ///< OLE Automation date; 0 when unknown
    Processor processor;
    /// The compiler and linker attributes the file records (__cpu_name and the like), in file order.
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string producer;
    std::optional<uint32_t> entryPoint; ///< where the program starts, when the file names it

    std::vector<MemoryImage> memories; ///< code, data, eeprom: those that hold bytes
    std::vector<SourceFile> files;
    std::vector<Module> modules;
    std::vector<Function> functions;    ///< by entry address
    std::vector<Block> blocks;
    std::vector<Variable> variables;
    std::vector<Type> types;
    std::vector<LineRow> lines;         ///< by address, non-overlapping

    /// Things the builder could not make sense of, each with where it is ("function f: ...").
    std::vector<std::string> notes;

    const MemoryImage* memory(MemorySpace space) const;
    /// The function whose code holds address, or kNone.
    uint32_t functionAt(uint32_t address) const;
    /// The line row that holds address, or nullptr.
    const LineRow* lineAt(uint32_t address) const;
};

} // namespace ubrof::model
