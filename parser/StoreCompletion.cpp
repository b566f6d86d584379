// After the parse: the sorted code-area table and the symbols of structure members.
#include "parser/TarnUbrofParser.h"

#include <algorithm>

namespace ubrof {

bool TarnUbrofParser::buildCodeAreas()
{
    // Every line record asks for its scope, so the tree is indexed before the first one does.
    indexScopes();

    // Many statements share a function; its name text is built once.
    std::vector<std::string> scopeNames(blockTree.blocks.size());
    std::vector<bool> scopeNamed(blockTree.blocks.size(), false);
    auto nameOf = [&](int32_t scope) -> const std::string& {
        static const std::string none;
        if (scope < 0)
            return none;
        const size_t at = static_cast<size_t>(scope);
        if (!scopeNamed[at]) {
            scopeNames[at] = nameTable.nameText(static_cast<uint32_t>(blockTree.blocks[at].nameIndex));
            scopeNamed[at] = true;
        }
        return scopeNames[at];
    };

    // The areas are ordered by address before any is built: sorting small keys is cheap, moving
    // the areas themselves is not.
    struct Key {
        uint32_t address;
        uint32_t file;
        uint32_t lineRecord;
        int32_t scope;
    };
    std::vector<Key> keys;
    keys.reserve(lineTable.size());
    std::vector<std::string> publicPaths;
    publicPaths.reserve(sourceFileTable.size());
    for (const SourceFileRecord& file : sourceFileTable) {
        const auto fileIndex = static_cast<uint32_t>(publicPaths.size());
        publicPaths.push_back(fileMapper.GetPublicPath(file.name));
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex >= fileLineRanges.size())
                continue;
            const FileLineRange& range = fileLineRanges[rangeIndex];
            const uint64_t end = std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount,
                                                    lineTable.size());
            for (uint64_t i = range.firstLineRecord; i < end; ++i)
                keys.push_back({lineTable[i].address, fileIndex, static_cast<uint32_t>(i), -1});
        }
    }
    auto byAddress = [](const Key& a, const Key& b) { return a.address < b.address; };
    if (!std::is_sorted(keys.begin(), keys.end(), byAddress))
        std::stable_sort(keys.begin(), keys.end(), byAddress);

    // Each area carries its own copy of its function and file names, and a statement costs
    // ten bytes of file while a file name may be 64 KiB: the text is summed before anything
    // is copied, so that a hostile file cannot turn kilobytes into gigabytes.
    uint64_t text = 0;
    for (Key& key : keys) {
        key.scope = findScopeAtAddress(key.address);
        text += nameOf(key.scope).size() + publicPaths[key.file].size();
    }
    if (text > kMaxCodeAreaText)
        return false;

    codeAreas.reserve(codeAreas.size() + keys.size());
    for (const Key& key : keys) {
        const LineRecord& record = lineTable[key.lineRecord];
        tarn::CodeArea& area = codeAreas.emplace_back();
        area.functionName = nameOf(key.scope);
        area.fileName = publicPaths[key.file];
        area.startLine = record.line;
        area.endLine = record.line;
        area.startAddress = record.address;
        area.endAddress = uint64_t(record.address) + record.size;
        area.isStatement = 1;
    }
    return true;
}

void TarnUbrofParser::createMemberSymbols()
{
    for (MemberRecord& member : typeTable.members) {
        member.symbolIndex = static_cast<uint32_t>(symbolTable.symbols.size());
        SymbolRecord symbol;
        symbol.kind = 10;
        symbol.nameIndex = member.nameIndex;
        symbol.typeIndex = static_cast<uint16_t>(member.typeIndex);
        symbol.memberOffset = static_cast<uint16_t>(member.offset);
        symbol.firstLocation = static_cast<uint32_t>(symbolTable.locations.size());
        symbolTable.symbols.push_back(symbol);
    }
}

} // namespace ubrof
