// Store queries on source files, statement lines and the code areas of an address range.
#include "host/CoreException.h"
#include "parser/TarnUbrofParser.h"

#include <algorithm>
#include <locale>

namespace ubrof {

int16_t TarnUbrofParser::getFileInfo(uint32_t index, std::string* name, double* timestamp, uint8_t* flags) const
{
    if (!name || !timestamp || !flags)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    if (index >= sourceFileTable.size())
        return StoreIndexOutOfRange;
    const SourceFileRecord& file = sourceFileTable[index];
    *name = fileMapper.GetPublicPath(file.name);
    *timestamp = file.timestamp;
    flags[0] = 0;
    flags[1] = file.isEmbedded;
    return StoreOk;
}

int32_t TarnUbrofParser::findSourceFile(const std::string& name) const
{
    // The reader keys fileIndex the same way, so names that differ only in case meet.
    std::string key = fileMapper.GetPrivatePath(name);
    const std::locale locale;
    for (char& c : key)
        c = std::tolower(c, locale);
    const auto found = fileIndex.find(key);
    return found == fileIndex.end() ? -1 : static_cast<int32_t>(found->second);
}

int16_t TarnUbrofParser::findStatementAddress(std::string name, uint32_t line, uint32_t /*column*/,
                                              uint64_t* address) const
{
    if (name.empty() || !address)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    const int32_t file = findSourceFile(name);
    if (file < 0 || static_cast<size_t>(file) >= sourceFileTable.size())
        return StoreNotFound;
    const std::vector<uint32_t>& ranges = sourceFileTable[static_cast<size_t>(file)].lineRanges;
    size_t first = 0;
    if (size_t(file) + 1 < rangeMaxStart_.size() && rangeMaxStart_[size_t(file) + 1] - rangeMaxStart_[size_t(file)] == ranges.size()) {
        const auto prefix = rangeMaxPrefix_.begin() + rangeMaxStart_[size_t(file)];
        first = size_t(std::lower_bound(prefix, prefix + ptrdiff_t(ranges.size()), static_cast<int32_t>(line)) - prefix);
    }
    for (size_t r = first; r < ranges.size(); ++r) {
        const uint32_t rangeIndex = ranges[r];
        if (rangeIndex >= fileLineRanges.size())
            continue;
        const FileLineRange& range = fileLineRanges[rangeIndex];
        if (range.lineRecordCount == 0 || range.maxLine < static_cast<int32_t>(line))
            continue;
        const uint64_t end = std::min<uint64_t>(uint64_t(range.firstLineRecord) + range.lineRecordCount,
                                                lineTable.size());
        for (uint64_t i = range.firstLineRecord; i < end; ++i) {
            const LineRecord& record = lineTable[i];
            if (record.line <= line && static_cast<uint32_t>(record.line + record.lineSpan) >= line) {
                *address = record.address;
                return StoreOk;
            }
        }
    }
    return StoreNotFound;
}

bool TarnUbrofParser::getCodeAreasInRange(tarn::Status& status, uint64_t start, uint64_t end,
                                          std::vector<tarn::CodeArea>& out) const
{
    if (start > end) {
        out.clear();
        throw tarn::CoreException(boost::shared_ptr<tarn::IStatus>(new tarn::Status(
            tarn::ErrorCode::InvalidAddressRange,
            "StartAddress,  (0x%llx), was larger than end address, (0x%llx), when looking upcode area.",
            static_cast<unsigned long long>(start), static_cast<unsigned long long>(end))));
    }
    size_t p = codeAreas.lowerBound(start);
    // A range that begins before the first area but reaches it is answered from that area on.
    if (!codeAreas.empty() && start < codeAreas.startAddress(0) && end >= codeAreas.startAddress(0))
        start = codeAreas.startAddress(0);
    if (p < codeAreas.size() && codeAreas.startAddress(p) == start) {
        collectCodeAreas(p, end, out);
        return true;
    }
    // Otherwise the area that starts below the range answers for it, as long as the range does
    // not run past the last area's end.
    const size_t last = codeAreas.size() - 1;
    if (p != 0 && end <= uint64_t(codeAreas.startAddress(last)) + lineTable.codeSize(codeAreas.lineRecord(last))) {
        collectCodeAreas(p - 1, end, out);
        return true;
    }
    out.clear();
    status.setWarning(tarn::ErrorCode::NoSourceLocations,
                      "No Source locations found for the address range [0x%llx, 0x%llx].",
                      static_cast<unsigned long long>(start), static_cast<unsigned long long>(end));
    return false;
}

void TarnUbrofParser::collectCodeAreas(size_t position, uint64_t end, std::vector<tarn::CodeArea>& out) const
{
    // Neighbouring areas mostly share their scope: its name is looked up again only when an
    // area starts outside the addresses over which the last answer holds. The list's own
    // entries are written over, so that a caller asking window after window reuses their texts.
    uint64_t sameLow = 1, sameHigh = 0;
    ScopeTrail trail;
    std::string name;
    size_t filled = 0;
    codeAreas.visitFrom(position, [&](size_t, uint32_t lineRecord, uint32_t file, uint32_t pc) {
        if (pc > end)
            return false;
        tarn::CodeArea& area = filled < out.size() ? out[filled] : out.emplace_back();
        ++filled;
        fillCodeArea(lineRecord, file, pc, area);
        if (pc < sameLow || pc >= sameHigh) {
            int32_t nameIndex = -1;
            const int32_t scope = scopeAlong(pc, trail, &sameLow, &sameHigh, &nameIndex);
            name = scope < 0 ? std::string() : nameTable.nameText(static_cast<uint32_t>(nameIndex));
        }
        area.functionName = name;
        return true;
    });
    out.resize(filled);
}

} // namespace ubrof
