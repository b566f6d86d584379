// BlockTree: blocks open and close strictly nested; a closed block widens its parent.
#include "reader/BlockTree.h"

#include <cstddef>

namespace ubrof {

uint32_t BlockTree::addBlock(uint32_t kind, int32_t moduleIndex, uint8_t isHidden, int32_t nameIndex)
{
    const uint32_t index = static_cast<uint32_t>(blocks.size());
    BlockRecord block;
    block.kind = kind;
    block.moduleIndex = moduleIndex;
    block.isHidden = isHidden;
    block.nameIndex = nameIndex;
    block.parent = current;
    blocks.push_back(std::move(block));
    if (current < 0) {
        roots.push_back(index);
        currentTopLevel = static_cast<int32_t>(index);
    } else {
        blocks[static_cast<size_t>(current)].children.push_back(index);
    }
    current = static_cast<int32_t>(index);
    ++openBlocks;
    return index;
}

void BlockTree::closeBlock()
{
    if (current < 0)
        return;
    const BlockRecord& closed = blocks[static_cast<size_t>(current)];
    current = closed.parent;
    --openBlocks;
    if (current < 0)
        currentTopLevel = -1;
    else
        widenBlock(static_cast<uint32_t>(current), closed.lowAddress, closed.highAddress);
}

void BlockTree::widenBlock(uint32_t index, uint32_t low, uint32_t high)
{
    BlockRecord& block = blocks[index];
    if (low < block.lowAddress)
        block.lowAddress = low;
    if (high > block.highAddress)
        block.highAddress = high;
}

} // namespace ubrof
