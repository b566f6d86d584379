// LineTable: statement records packed in rows, and the few that do not fit kept whole.
#include "reader/LineTable.h"

namespace ubrof {

LineRecord LineTable::operator[](size_t index) const
{
    const Row& row = rows_[index];
    if (row.wide)
        return wide_[row.wideIndex()];
    LineRecord record;
    record.address = row.address;
    record.size = row.size;
    record.line = row.line;
    record.lineSpan = uint32_t(row.lastLine) - row.line;
    record.column = row.column;
    record.endColumn = row.endColumn;
    record.flags = row.flags;
    return record;
}

void LineTable::pushWide(const LineRecord& record)
{
    Row row{};
    row.address = record.address;
    row.flags = record.flags;
    const auto at = static_cast<uint32_t>(wide_.size());
    wide_.push_back(record);
    row.wide = 1;
    row.column = static_cast<uint16_t>(at);
    row.endColumn = static_cast<uint16_t>(at >> 16);
    rows_.push_back(row);
}

void LineTable::pop_back()
{
    // Only the last statement is ever completed, so its wide record is the last one too.
    if (rows_.back().wide && rows_.back().wideIndex() + size_t(1) == wide_.size())
        wide_.pop_back();
    rows_.pop_back();
}

void LineTable::setWideCodeSize(size_t index, uint32_t size)
{
    Row& row = rows_[index];
    if (!row.wide) {
        LineRecord record = (*this)[index];
        record.size = size;
        const auto at = static_cast<uint32_t>(wide_.size());
        wide_.push_back(record);
        row.wide = 1;
        row.column = static_cast<uint16_t>(at);
        row.endColumn = static_cast<uint16_t>(at >> 16);
        return;
    }
    wide_[row.wideIndex()].size = size;
}

} // namespace ubrof
