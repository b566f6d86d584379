// Places the program's code: functions from their true entry to their last byte, their blocks and
// variables, and a source line for every code byte of a function. Internal to model/.
#pragma once

#include "model/BuildContext.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace ubrof::model::detail {

class CodeBuilder {
public:
    explicit CodeBuilder(BuildContext& context);

    /// Fills the program's functions, blocks, variables and lines, and each module's lists of
    /// functions and variables. Needs the program's types and memories built first.
    void build();

private:
    struct Draft {
        uint32_t block = kNone;  ///< the function's block in the store; kNone: known by its symbol only
        uint32_t symbol = kNone; ///< the symbol that bears its name
        uint32_t module = kNone;
        uint32_t entry = 0;
        uint32_t end = 0;
        std::vector<uint32_t> runs; ///< code runs written while its block was open, in file order
    };

    void findTopFunctions();
    uint32_t functionSymbol(uint32_t block);
    uint32_t nameIndexOf(const Draft& draft) const;
    void collectDrafts();
    void indexCode();
    bool isLocalLabel(uint32_t symbol) const;
    void placeEnds();
    /// Gives each function the code its module writes right after it, or makes a function of a
    /// piece that begins there at a label. Needs the ends placed; they must be placed again after.
    void claimTrailingCode();
    void emitFunctions();
    void emitBlocksAndVariables(uint32_t function, const Draft& draft);
    void emitModuleVariables();
    /// The symbol as a variable of function (kNone: of module scope), or kNone when it is none.
    uint32_t emitVariable(uint32_t symbol, uint32_t function, uint32_t block, bool isParameter, uint32_t module);
    std::vector<LocationRange> rangesOf(const SymbolRecord& symbol, const Location& own, uint32_t size,
                                        uint32_t low, uint32_t high) const;
    void emitLines();

    // Files of format versions 10 and 11 say each function's size, stack use and statement rows
    // in tags of their own (NewerCode.cpp).

    /// The code bytes the file gives the function at entry named name; 0 when it gives none.
    uint32_t newerCodeSize(uint32_t entry, const std::string& name);
    std::vector<std::pair<std::string, uint32_t>> newerStackUse(uint32_t symbol);
    void emitNewerLines();
    void noteNewerRecords(const std::vector<bool>& hasRows);

    BuildContext& context_;
    const TarnUbrofParser& store_;
    Program& program_;
    std::vector<uint32_t> topFunctionOfBlock_; ///< the function block each block lies in, kNone outside
    std::vector<uint32_t> symbolOfName_;       ///< the first symbol bearing each name record
    std::vector<bool> symbolUsed_;             ///< symbols that already name a function
    /// Per module block, built only when a function names itself: its code symbols by text.
    std::unordered_map<uint32_t, std::unordered_map<std::string, uint32_t>> symbolsByText_;
    std::vector<Draft> drafts_;
    std::vector<uint32_t> codeRuns_;    ///< the code runs of the facts, by address
    std::vector<uint32_t> codeSymbols_; ///< the code symbols the file wrote, by address
    /// Static locals already made variables of their functions: memory, address and name.
    std::vector<std::tuple<MemorySpace, uint32_t, std::string>> statics_;

    /// A function size a newer file gives: rank 0 from t_function_info, 1 from a line program.
    struct NewerSize {
        uint32_t address;
        uint32_t rank;
        uint32_t nameIndex;
        uint32_t size;
    };
    std::vector<NewerSize> newerSizes_; ///< by address and rank, indexed on first use
    bool newerSizesIndexed_ = false;
    std::vector<NewerFormatFacts::StackUse> stackUseBySymbol_; ///< sorted on first use
    bool stackUseIndexed_ = false;
};

} // namespace ubrof::model::detail
