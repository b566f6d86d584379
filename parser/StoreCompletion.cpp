// After the parse: the sorted code-area table and the symbols of structure members.
#include "parser/TarnUbrofParser.h"

#include <algorithm>

namespace ubrof {

void TarnUbrofParser::buildCodeAreas()
{
    // Every line record asks for its scope, so the tree is indexed before the first one does.
    indexScopes();

    // Many statements share a function; its name text is built once.
    std::vector<std::string> scopeNames(blockTree.blocks.size());
    std::vector<bool> scopeNamed(blockTree.blocks.size(), false);
    auto functionNameAt = [&](uint32_t address) -> const std::string& {
        static const std::string none;
        const int32_t scope = findScopeAtAddress(address);
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
                keys.push_back({lineTable[i].address, fileIndex, static_cast<uint32_t>(i)});
        }
    }
    auto byAddress = [](const Key& a, const Key& b) { return a.address < b.address; };
    if (!std::is_sorted(keys.begin(), keys.end(), byAddress))
        std::stable_sort(keys.begin(), keys.end(), byAddress);

    codeAreas.reserve(codeAreas.size() + keys.size());
    for (const Key& key : keys) {
        const LineRecord& record = lineTable[key.lineRecord];
        tarn::CodeArea& area = codeAreas.emplace_back();
        area.functionName = functionNameAt(record.address);
        area.fileName = publicPaths[key.file];
        area.startLine = record.line;
        area.endLine = record.line;
        area.startAddress = record.address;
        area.endAddress = uint64_t(record.address) + record.size;
        area.isStatement = 1;
    }
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
