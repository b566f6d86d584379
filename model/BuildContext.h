// What the parts of the program builder share while one Program is built: the store, its facts,
// and the indices derived from them once. Internal to model/.
#pragma once

#include "model/Program.h"
#include "parser/TarnUbrofParser.h"

#include <string>
#include <vector>

namespace ubrof::model::detail {

/// How many enclosing names, typedef links or declarator levels any walk follows: real programs
/// nest a handful, and a file whose records refer to each other in a circle must not make a walk
/// without end.
inline constexpr unsigned kMaxDepth = 64;

class TypeShapes;

struct BuildContext {
    BuildContext(const TarnUbrofParser& store, Program& program, bool light);

    const TarnUbrofParser& store;
    const ProgramFacts& facts;
    Program& program;
    const bool light;
    /// Format version 10 or 11: source positions, sizes, stack use and statement rows come from
    /// the facts of those versions (ProgramFacts::newer).
    const bool newer;
    const TypeShapes* types = nullptr;

    /// Model module of each store block; kNone for blocks outside every module.
    std::vector<uint32_t> moduleOfBlock;
    /// Per symbol: made by the reader (a register's twin), so not part of the program.
    std::vector<bool> derived;

    std::string nameText(uint32_t nameIndex) const;
    /// The name with its enclosing classes and namespaces ("Class::method"). Blocks add nothing,
    /// and neither do the compiler's internal namespaces of file-local names ("<internal ...>").
    std::string qualifiedName(uint32_t nameIndex) const;
    /// Where the definition of symbol stands in the source; nullptr when the file does not say.
    const ProgramFacts::SourcePosition* positionOf(uint32_t symbol) const;
    /// The memory a kind 1-4 location with this address space lies in; asked once the processor's
    /// family is known, on which it depends.
    MemorySpace spaceOf(uint16_t addressSpace) const;
    /// A location of the given kind, address space and value, for a value of size bytes.
    Location locationOf(uint8_t kind, uint16_t addressSpace, uint32_t value, uint32_t size) const;
    /// True when the symbol's own location is an address in code memory.
    bool isCodeSymbol(const SymbolRecord& symbol) const;
    /// The line record's source file, kNone when its statements belong to none.
    uint32_t fileOfStatement(uint32_t statement) const;
    /// Says in Program::notes what the file does not make sense of, up to a bound.
    void note(std::string text);
    /// Ends the notes with how many the bound left out, if any.
    void closeNotes();

private:
    std::vector<uint32_t> statementFile_;
    /// Newer files: each symbol's position from t_source_position or t_symbol_position, by symbol.
    std::vector<ProgramFacts::SourcePosition> newerPositions_;
    size_t notesLeftOut_ = 0;
};

} // namespace ubrof::model::detail
