// BlockTree: blocks open and close strictly nested; a closed block widens its parent.
#include "reader/BlockTree.h"

#include "reader/Records.h"

namespace ubrof {

uint32_t BlockTree::addBlock(uint32_t kind, int32_t moduleIndex, uint8_t isHidden, int32_t nameIndex)
{
    const uint32_t index = static_cast<uint32_t>(blocks.size());
    BlockRecord& block = blocks.emplace_back();
    block.kind = kind;
    block.moduleIndex = moduleIndex;
    block.isHidden = isHidden;
    block.nameIndex = nameIndex;
    block.parent = current;
    openModules_.push_back(kind == ModuleBlock ? int32_t(index) : openModule());
    if (current < 0) {
        roots.push_back(index);
        currentTopLevel = static_cast<int32_t>(index);
    } else {
        addChild(static_cast<uint32_t>(current), index);
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
    if (!openModules_.empty())
        openModules_.pop_back();
    if (current < 0)
        currentTopLevel = -1;
    else
        widenBlock(static_cast<uint32_t>(current), closed.lowAddress, closed.highAddress);
}

void BlockTree::setModuleFile(uint32_t module, uint32_t reference, uint32_t file)
{
    moduleFiles_[uint64_t(module) << 32 | reference] = file;
}

uint32_t BlockTree::moduleFile(uint32_t module, uint32_t reference) const
{
    const auto found = moduleFiles_.find(uint64_t(module) << 32 | reference);
    return found == moduleFiles_.end() ? kNoIndex : found->second;
}

std::vector<std::pair<uint32_t, uint32_t>> BlockTree::moduleFiles(uint32_t module) const
{
    std::vector<std::pair<uint32_t, uint32_t>> files;
    for (auto it = moduleFiles_.lower_bound(uint64_t(module) << 32);
         it != moduleFiles_.end() && it->first >> 32 == module; ++it)
        files.emplace_back(static_cast<uint32_t>(it->first), it->second);
    return files;
}

bool BlockTree::moduleHasFile(uint32_t module, uint32_t file) const
{
    for (auto it = moduleFiles_.lower_bound(uint64_t(module) << 32);
         it != moduleFiles_.end() && it->first >> 32 == module; ++it) {
        if (it->second == file)
            return true;
    }
    return false;
}

} // namespace ubrof
