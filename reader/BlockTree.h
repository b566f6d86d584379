// The tree of modules, functions and blocks with their code address ranges.
#pragma once

#include <cstdint>
#include <vector>

namespace ubrof {

enum BlockKind : uint32_t {
    FunctionBlock = 1,
    ModuleBlock = 2,
    LexicalBlock = 3,
};

struct BlockRecord {
    uint32_t kind = 0;
    int32_t moduleIndex = -1;
    uint8_t isHidden = 0;
    int32_t nameIndex = -1;
    uint32_t lowAddress = 0xFFFFFFFF; ///< lowest address covered
    uint32_t highAddress = 0;         ///< one past the highest address covered
    std::vector<uint32_t> symbols;
    std::vector<uint32_t> groups;
    std::vector<uint32_t> files; ///< module blocks: file reference number to source file index
    std::vector<uint32_t> lineRanges;
    int32_t parent = -1;
    std::vector<uint32_t> children;

    bool holds(uint32_t address) const { return lowAddress <= address && address < highAddress; }
};

class BlockTree {
public:
    std::vector<BlockRecord> blocks;
    std::vector<uint32_t> roots;
    int32_t current = -1;         ///< innermost open block
    int32_t currentTopLevel = -1; ///< open module block
    uint32_t openBlocks = 0;      ///< how deep the current block is nested

    /// C compilers guarantee 127 levels of nested blocks and real files nest a handful; a
    /// deeper tree would make every address lookup walk it and every recursive host overflow.
    static constexpr uint32_t kMaxOpenBlocks = 512;
    bool isFull() const { return openBlocks >= kMaxOpenBlocks; }

    /// Appends a block under the current one (or as a new root) and makes it current.
    uint32_t addBlock(uint32_t kind, int32_t moduleIndex, uint8_t isHidden, int32_t nameIndex);
    /// Returns to the enclosing block and widens it by the closed block's range.
    void closeBlock();
    void widenBlock(uint32_t index, uint32_t low, uint32_t high);
};

} // namespace ubrof
