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

    for (const SourceFileRecord& file : sourceFileTable) {
        const std::string publicPath = fileMapper.GetPublicPath(file.name);
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex >= fileLineRanges.size())
                continue;
            const FileLineRange& range = fileLineRanges[rangeIndex];
            const uint64_t end = std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount,
                                                    lineTable.size());
            for (uint64_t i = range.firstLineRecord; i < end; ++i) {
                const LineRecord& record = lineTable[i];
                tarn::CodeArea area;
                area.functionName = functionNameAt(record.address);
                area.fileName = publicPath;
                area.startLine = record.line;
                area.endLine = record.line;
                area.startAddress = record.address;
                area.endAddress = uint64_t(record.address) + record.size;
                area.isStatement = 1;
                codeAreas.push_back(std::move(area));
            }
        }
    }
    std::stable_sort(codeAreas.begin(), codeAreas.end(), [](const tarn::CodeArea& a, const tarn::CodeArea& b) {
        return a.startAddress < b.startAddress;
    });
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
