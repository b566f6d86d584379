// After the parse: the sorted code-area table and the symbols of structure members.
#include "parser/TarnUbrofParser.h"

#include <algorithm>

namespace ubrof {

void TarnUbrofParser::buildCodeAreas()
{
    // The scope of every area is looked up when the area is returned, through this index.
    indexScopes();

    codeAreas.clear();
    size_t count = 0;
    auto rangeEnd = [this](const FileLineRange& range) {
        return std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount, lineTable.size());
    };
    for (const SourceFileRecord& file : sourceFileTable) {
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex < fileLineRanges.size()) {
                const FileLineRange& range = fileLineRanges[rangeIndex];
                count += size_t(rangeEnd(range) - std::min<uint64_t>(range.firstLineRecord, rangeEnd(range)));
            }
        }
    }
    codeAreas.reserve(count);
    codeAreas.publicPaths.reserve(sourceFileTable.size());
    for (const SourceFileRecord& file : sourceFileTable) {
        const auto fileIndex = static_cast<uint32_t>(codeAreas.publicPaths.size());
        codeAreas.publicPaths.push_back(fileMapper.GetPublicPath(file.name));
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex >= fileLineRanges.size())
                continue;
            const FileLineRange& range = fileLineRanges[rangeIndex];
            for (uint64_t i = range.firstLineRecord, end = rangeEnd(range); i < end; ++i)
                codeAreas.append(lineTable.address(i), static_cast<uint32_t>(i), fileIndex);
        }
    }
    codeAreas.sortByStart();
}

tarn::CodeArea TarnUbrofParser::codeArea(size_t area) const
{
    tarn::CodeArea built;
    fillCodeArea(area, built);
    built.functionName = getScopeNameAtPc(static_cast<uint32_t>(built.startAddress));
    return built;
}

void TarnUbrofParser::fillCodeArea(size_t area, tarn::CodeArea& built) const
{
    const LineRecord record = lineTable[codeAreas.lineRecord(area)];
    built.fileName = codeAreas.publicPaths[codeAreas.file(area)];
    built.startLine = record.line;
    built.endLine = record.line;
    built.startAddress = record.address;
    built.endAddress = uint64_t(record.address) + record.size;
    built.isStatement = 1;
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
