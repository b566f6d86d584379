// What files of format versions 10 and 11 say that the store's tables have no place for: source
// positions, stack use, function sizes, each function's statement rows, and what was not understood.
// Kept for the program model (ProgramFacts::newer); nothing the module answers is read from here.
#pragma once

#include "reader/LineProgram.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

/// A source extent with where its first line falls: the file and line its global line maps to.
struct PlacedExtent {
    SourceExtent extent;
    uint32_t file = 0xFFFFFFFF; ///< index in the store's sourceFileTable; 0xFFFFFFFF when not known
    uint32_t line = 0;          ///< line of that file (the global line when the file is not known)
};

/// One statement row of a function, placed: absolute address and lines of files.
struct StatementRow {
    uint32_t function = 0;      ///< index in NewerFormatFacts::functionLines
    uint32_t address = 0;
    uint32_t globalLine = 0;
    uint32_t globalEndLine = 0;
    uint32_t column = 0;
    uint32_t endColumn = 0;
    uint32_t file = 0xFFFFFFFF; ///< index in the store's sourceFileTable
    uint32_t line = 0;
    uint32_t endLine = 0;
    RowKind kind = RowKind::Statement;
    uint32_t kindCode = 0;
    bool fallsThrough = true;
    uint32_t callee = 0xFFFFFFFF;
    /// The record was not understood: this one row stands for all of it, at its code address
    /// and on the record's own line (for a function, the line of its name).
    bool fallback = false;
};

struct NewerFormatFacts {
    /// A segment of t_seg_info: t_stack_use names stack segments by their place in this list.
    struct Segment {
        std::string name;
        std::array<uint8_t, 5> leading{}; ///< the five bytes before the name, not understood; the first looks like a memory type
        std::vector<std::pair<uint32_t, uint32_t>> ranges; ///< (address, size) as read
    };
    std::vector<Segment> segments;

    /// A module's source files (t_source_files) and its include tree.
    struct ModuleSources {
        uint32_t module = 0;          ///< index in the store's moduleTable
        std::vector<uint32_t> files;  ///< the module's list, as indices in sourceFileTable
        std::vector<uint32_t> lineCounts;
        std::vector<IncludeSpan> spans; ///< file fields index `files`
    };
    std::vector<ModuleSources> moduleSources;

    /// The file and line of the symbol defined just before a t_symbol_position.
    struct SymbolSource {
        uint32_t symbol = 0;
        uint32_t file = 0xFFFFFFFF; ///< sourceFileTable index; 0xFFFFFFFF for none
        uint32_t line = 0;
        std::array<uint8_t, 6> flags{}; ///< as read; flags[3] 0x30 marks interrupt functions
    };
    std::vector<SymbolSource> symbolSources;

    /// A t_source_position: of the symbol or the block defined just before it.
    struct Position {
        bool ofBlock = false;
        uint32_t index = 0; ///< symbol or block index
        PlacedExtent position;
    };
    std::vector<Position> positions;

    /// Stack bytes a function uses in one stack segment (t_stack_use after its symbol).
    struct StackUse {
        uint32_t symbol = 0;
        uint32_t segment = 0; ///< index in `segments`
        uint32_t bytes = 0;
    };
    std::vector<StackUse> stackUses;

    /// A function's code (t_function_info kind 3): from the code address of the t_org before it.
    struct FunctionCode {
        uint32_t module = 0;
        uint32_t nameIndex = 0;
        uint32_t address = 0;
        uint32_t size = 0; ///< bytes
    };
    std::vector<FunctionCode> functionSizes;

    /// One record of t_line_program kind 2, with its rows in `rows`.
    struct FunctionLines {
        uint32_t module = 0;
        uint32_t nameIndex = 0xFFFFFFFF;
        uint64_t offset = 0;  ///< of its tag in the file, as its note gives it
        uint32_t address = 0; ///< the code address of the t_org before it
        uint32_t size = 0;    ///< bytes
        uint32_t form = 0;
        uint32_t order = 0;
        PlacedExtent extent;
        uint32_t firstRow = 0;
        uint32_t rowCount = 0;
        bool understood = false;
        std::string problem; ///< why its rows are not understood ("it is inlined code (form 3)")
    };
    std::vector<FunctionLines> functionLines;
    std::vector<StatementRow> rows;

    /// What the reader met and did not understand, at which file offset; the file still reads.
    struct Note {
        uint64_t offset = 0;
        std::string text;
    };
    std::vector<Note> notes;

    /// One past the t_ubrof_eof tag: the file's size when nothing follows it.
    uint64_t endOffset = 0;
};

} // namespace ubrof
