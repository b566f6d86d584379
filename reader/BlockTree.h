// The tree of modules, functions and blocks with their code address ranges.
#pragma once

#include "reader/ChunkedVector.h"
#include "reader/IndexPool.h"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace ubrof {

enum BlockKind : uint32_t {
    FunctionBlock = 1,
    ModuleBlock = 2,
    LexicalBlock = 3,
};

/// One module, function or block. Its lists live in the tree's pool (BlockTree::symbols and
/// the others read them), so that a record of the tree is small and allocates nothing.
struct BlockRecord {
    uint32_t kind = 0;
    int32_t moduleIndex = -1;
    int32_t nameIndex = -1;
    uint32_t lowAddress = 0xFFFFFFFF; ///< lowest address covered
    uint32_t highAddress = 0;         ///< one past the highest address covered
    int32_t parent = -1;
    uint8_t isHidden = 0;
    IndexPool::List symbols;
    IndexPool::List groups;
    IndexPool::List lineRanges;
    IndexPool::List children;

    bool holds(uint32_t address) const { return lowAddress <= address && address < highAddress; }
};

/// The tree is flat: records refer to each other by index, and nothing walks it recursively,
/// so a file may nest its blocks as deep as it likes.
class BlockTree {
public:
    ChunkedVector<BlockRecord> blocks;
    std::vector<uint32_t> roots;
    int32_t current = -1;         ///< innermost open block
    int32_t currentTopLevel = -1; ///< open module block
    /// The innermost open block that is a module, or -1: what a walk out from the current block
    /// would find, without the walk.
    int32_t openModule() const { return openModules_.empty() ? -1 : openModules_.back(); }
    uint32_t openBlocks = 0;      ///< how deep the current block is nested

    /// Appends a block under the current one (or as a new root) and makes it current.
    uint32_t addBlock(uint32_t kind, int32_t moduleIndex, uint8_t isHidden, int32_t nameIndex);
    /// Returns to the enclosing block and widens it by the closed block's range.
    void closeBlock();
    void widenBlock(uint32_t index, uint32_t low, uint32_t high)
    {
        BlockRecord& block = blocks[index];
        if (low < block.lowAddress)
            block.lowAddress = low;
        if (high > block.highAddress)
            block.highAddress = high;
    }

    // A block's lists, in the order their entries were added; a view is valid until the next add.
    IndexRange symbols(uint32_t block) const { return pool_.range(blocks[block].symbols); }
    IndexRange groups(uint32_t block) const { return pool_.range(blocks[block].groups); }
    IndexRange lineRanges(uint32_t block) const { return pool_.range(blocks[block].lineRanges); }
    IndexRange children(uint32_t block) const { return pool_.range(blocks[block].children); }
    void addSymbol(uint32_t block, uint32_t symbol) { pool_.append(blocks[block].symbols, symbol); }
    void addGroup(uint32_t block, uint32_t group) { pool_.append(blocks[block].groups, group); }
    void addLineRange(uint32_t block, uint32_t range) { pool_.append(blocks[block].lineRanges, range); }
    /// Lists child under block; addBlock does this for the blocks of a file.
    void addChild(uint32_t block, uint32_t child) { pool_.append(blocks[block].children, child); }

    // The file table of a module block: its file reference numbers and the source files they
    // stand for. Only the numbers a module declares take room, however large they are.
    void setModuleFile(uint32_t module, uint32_t reference, uint32_t file);
    /// The source file of a reference, or kNoIndex when the module never declared it.
    uint32_t moduleFile(uint32_t module, uint32_t reference) const;
    /// (reference, file) pairs of a module, by reference.
    std::vector<std::pair<uint32_t, uint32_t>> moduleFiles(uint32_t module) const;
    bool moduleHasFile(uint32_t module, uint32_t file) const;

private:
    IndexPool pool_;
    std::vector<int32_t> openModules_; ///< for each open block, outermost first, its openModule()
    std::map<uint64_t, uint32_t> moduleFiles_; ///< (module << 32 | reference) to file
};

} // namespace ubrof
