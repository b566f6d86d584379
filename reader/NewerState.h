// What the tags of format versions 10 and 11 carry from one tag to the next while a file is read.
#pragma once

#include "reader/LineProgram.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace ubrof {

/// A statement row with its absolute address, as the store's line records take it.
struct PlacedStatement {
    uint32_t address = 0;
    uint32_t file = 0xFFFFFFFF; ///< sourceFileTable index
    uint32_t line = 0;
    uint32_t endLine = 0;
    uint32_t column = 0;
    uint32_t endColumn = 0;
};

struct NewerState {
    bool accepted = false;     ///< versions 10 and 11 may be read
    uint8_t formatVersion = 0; ///< the first byte of the last t_version
    uint32_t codeOrigin = 0;   ///< code address of the last t_org: line programs count from it

    /// What a t_symbol_position, t_source_position or t_stack_use describes: the symbol or the
    /// block defined last.
    enum class Subject : uint8_t { None, Symbol, Block };
    Subject subject = Subject::None;
    uint32_t subjectIndex = 0;

    /// Kind-1 line-program records, by their index (at most kMaxHeaders).
    static constexpr uint32_t kMaxHeaders = 256;
    std::vector<std::optional<LineProgramHeader>> headers;

    // The open module.
    IncludeTree includeTree;
    std::vector<uint32_t> moduleFiles; ///< the module's file list as sourceFileTable indices
    struct Extent {
        uint32_t address;
        uint32_t size;
    };
    /// Function code by name index, waiting for the function's t_block_begin3.
    std::map<uint32_t, Extent> extents;
    /// Statement rows by function name index, waiting for the function's t_block_begin3, with
    /// the end of the function's code.
    std::map<uint32_t, std::pair<std::vector<PlacedStatement>, uint32_t>> programs;

    void beginModule()
    {
        includeTree = IncludeTree();
        moduleFiles.clear();
        extents.clear();
        programs.clear();
        subject = Subject::None;
    }
};

} // namespace ubrof
