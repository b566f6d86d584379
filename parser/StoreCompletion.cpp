// After the parse: the sorted code-area table and the symbols of structure members.
#include "parser/TarnUbrofParser.h"

#include <algorithm>
#include <climits>

namespace ubrof {

void TarnUbrofParser::buildCodeAreas()
{
    // The scope of every area is looked up when the area is returned, through this index.
    indexScopes();

    codeAreas.clear(lineTable);
    codeAreas.publicPaths.reserve(sourceFileTable.size());
    rangeMaxPrefix_.clear();
    rangeMaxStart_.clear();
    for (const SourceFileRecord& file : sourceFileTable) {
        rangeMaxStart_.push_back(static_cast<uint32_t>(rangeMaxPrefix_.size()));
        int32_t highest = INT32_MIN;
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex < fileLineRanges.size() && fileLineRanges[rangeIndex].lineRecordCount != 0)
                highest = std::max(highest, fileLineRanges[rangeIndex].maxLine);
            rangeMaxPrefix_.push_back(highest);
        }
    }
    rangeMaxStart_.push_back(static_cast<uint32_t>(rangeMaxPrefix_.size()));
    for (const SourceFileRecord& file : sourceFileTable) {
        const auto fileIndex = static_cast<uint32_t>(codeAreas.publicPaths.size());
        codeAreas.publicPaths.push_back(fileMapper.GetPublicPath(file.name));
        for (uint32_t rangeIndex : file.lineRanges) {
            if (rangeIndex >= fileLineRanges.size())
                continue;
            const FileLineRange& range = fileLineRanges[rangeIndex];
            const uint64_t end = std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount,
                                                    lineTable.size());
            if (end > range.firstLineRecord)
                codeAreas.appendRange(range.firstLineRecord, static_cast<uint32_t>(end - range.firstLineRecord), fileIndex);
        }
    }
    codeAreas.sortByStart();
}

tarn::CodeArea TarnUbrofParser::codeArea(size_t area) const
{
    tarn::CodeArea built;
    fillCodeArea(codeAreas.lineRecord(area), codeAreas.file(area), built);
    built.functionName = getScopeNameAtPc(static_cast<uint32_t>(built.startAddress));
    return built;
}

void TarnUbrofParser::fillCodeArea(uint32_t lineRecord, uint32_t file, tarn::CodeArea& built) const
{
    fillCodeArea(lineRecord, file, lineTable.address(lineRecord), built);
}

void TarnUbrofParser::fillCodeArea(uint32_t lineRecord, uint32_t file, uint32_t address, tarn::CodeArea& built) const
{
    uint32_t line = 0, size = 0;
    lineTable.lineAndSize(lineRecord, line, size);
    built.fileName = codeAreas.publicPaths[file];
    built.startLine = built.endLine = line;
    built.startColumn = 0;
    built.endColumn = 0;
    built.startAddress = address;
    built.endAddress = uint64_t(address) + size;
    built.discriminator = 0;
    built.isStatement = 1;
    built.isBasicBlock = 0;
    built.isPrologueEnd = 0;
    built.isEpilogueBegin = 0;
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
