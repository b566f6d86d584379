// Facts the reader keeps on the side for the program model: what the file says about the program
// that the store's own tables have no place for. Nothing the module answers is read from here.
#pragma once

#include "reader/NewerFacts.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

struct ProgramFacts {
    /// Compiler and linker attributes (t_key_value), in file order.
    std::vector<std::pair<std::string, std::string>> attributes;

    // ---- Where the program's bytes and definitions really are: the model places functions,
    // ---- lines and variables by these (t_abs_var, t_source_range and t_symbol_def2).

    static constexpr uint32_t kNone = 0xFFFFFFFF;

    /// Set before the parse when only a light model will be built: written runs then keep their
    /// module and not their block or statement, so that a module's code is a handful of runs
    /// instead of one per statement, and no source positions are kept; nor, in files of format
    /// versions 10 and 11, positions, stack use, function sizes or statement rows. The memory
    /// images stay empty, location entries are skipped, statements only counted by their
    /// ranges, and the store builds no code areas or name index: such a store answers no query
    /// of the module, only a light build.
    bool light = false;

    /// Bytes that t_abs_var tags wrote at consecutive addresses of one memory, while one block
    /// was the innermost open one and after one statement. Consecutive tags that agree on all
    /// of that are one run, so a function costs a run per statement, not one per tag.
    struct WrittenRun {
        uint32_t address = 0;
        uint32_t size = 0;
        uint32_t block = kNone;     ///< innermost open block, kNone outside every block
        uint32_t statement = kNone; ///< code only: the line record appended last before the bytes
        uint8_t memory = 0;         ///< memory class: 1 code, 2 data, 4 EEPROM
        bool completesStatement = false; ///< its first tag gave that statement its size
        uint64_t end() const { return uint64_t(address) + size; }
    };
    std::vector<WrittenRun> writtenRuns;

    void noteWrite(uint8_t memory, uint32_t address, uint32_t size, uint32_t block, uint32_t statement,
                   bool completesStatement)
    {
        const bool afterOrigin = (originsSet_ & memory) != 0;
        originsSet_ &= static_cast<uint8_t>(~memory);
        if (!writtenRuns.empty() && !completesStatement && !afterOrigin) {
            WrittenRun& last = writtenRuns.back();
            if (last.memory == memory && last.block == block && last.statement == statement &&
                last.end() == address && uint64_t(last.size) + size <= 0xFFFFFFFF) {
                last.size += size;
                return;
            }
        }
        writtenRuns.push_back({address, size, block, statement, memory, completesStatement});
    }

    /// A t_org for the memory: the linker places a new segment part there, so the bytes that
    /// follow start a run of their own even where they continue the last one.
    void noteOrigin(uint8_t memory) { originsSet_ |= memory; }

    /// Where a definition stands in the source: a t_source_range after a symbol.
    struct SourcePosition {
        uint32_t symbol = 0;      ///< the last symbol appended before the range
        uint32_t file = kNone;    ///< index of the source file, kNone when the module names none
        uint32_t line = 0;
        uint32_t column = 0;
    };
    std::vector<SourcePosition> sourcePositions; ///< in symbol order

    /// Symbols the reader made rather than read: the plain-named twin of an "_A_" register.
    std::vector<uint32_t> derivedSymbols; ///< ascending

    // ---- Files of format versions 10 and 11.

    /// What only files of format versions 10 and 11 carry (reader/NewerFacts.h).
    NewerFormatFacts newer;

private:
    uint8_t originsSet_ = 0; ///< memory classes whose next write follows a t_org
};

} // namespace ubrof
