// The store's statement records, packed to the widths the file gives their fields.
#pragma once

#include "reader/ChunkedVector.h"
#include "reader/Records.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

namespace ubrof {

/// The LineRecords of a file in 16 bytes each instead of 28: lines and columns are 16-bit
/// fields of t_src_stat and a statement's code arrives in one t_abs_var of at most 255 bytes.
/// A record whose values do not fit (set by hand, or by a format with wider fields) is kept
/// whole on the side, so every record reads back exactly as it was appended.
class LineTable {
public:
    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = LineRecord;
        using difference_type = std::ptrdiff_t;
        using pointer = const LineRecord*;
        using reference = LineRecord;

        const_iterator(const LineTable* table, size_t index) : table_(table), index_(index) {}
        LineRecord operator*() const { return (*table_)[index_]; }
        const_iterator& operator++() { ++index_; return *this; }
        bool operator==(const const_iterator& other) const { return index_ == other.index_; }
        bool operator!=(const const_iterator& other) const { return index_ != other.index_; }

    private:
        const LineTable* table_;
        size_t index_;
    };

    size_t size() const { return rows_.size(); }
    bool empty() const { return rows_.empty(); }
    /// The record as it was appended (and completed by setCodeSize).
    LineRecord operator[](size_t index) const;
    LineRecord back() const { return (*this)[size() - 1]; }
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, size()); }

    void push_back(const LineRecord& record)
    {
        if (!fitsRow(record)) {
            pushWide(record);
            return;
        }
        rows_.push_back(Row{record.address, static_cast<uint16_t>(record.line),
                            static_cast<uint16_t>(record.line + record.lineSpan), static_cast<uint16_t>(record.column),
                            static_cast<uint16_t>(record.endColumn), static_cast<uint16_t>(record.size), record.flags, 0});
    }
    /// A statement as t_src_stat gives it: its 16-bit fields always fit a row.
    void pushStatement(uint32_t address, uint16_t line, uint16_t lastLine, uint16_t column, uint16_t endColumn,
                       uint8_t flags)
    {
        rows_.push_back(Row{address, line, lastLine, column, endColumn, 0, flags, 0});
    }
    /// The line and the size of code of record index, in one look at its row.
    void lineAndSize(size_t index, uint32_t& line, uint32_t& size) const
    {
        const Row& row = rows_[index];
        if (row.wide) {
            line = wide_[row.wideIndex()].line;
            size = wide_[row.wideIndex()].size;
        } else {
            line = row.line;
            size = row.size;
        }
    }
    uint32_t line(size_t index) const
    {
        const Row& row = rows_[index];
        return row.wide ? wide_[row.wideIndex()].line : row.line;
    }
    /// Removes the last record.
    void pop_back();
    /// The size of record index's code, as t_abs_var completes a statement.
    void setCodeSize(size_t index, uint32_t size)
    {
        Row& row = rows_[index];
        if (!row.wide && size <= 0xFFFF)
            row.size = static_cast<uint16_t>(size);
        else
            setWideCodeSize(index, size);
    }

    // The fields the queries search by, without unpacking the record.
    uint32_t address(size_t index) const { return rows_[index].address; }
    uint32_t codeSize(size_t index) const
    {
        const Row& row = rows_[index];
        return row.wide ? wide_[row.wideIndex()].size : row.size;
    }
    uint8_t flags(size_t index) const { return rows_[index].flags; }

private:
    struct Row {
        uint32_t address;
        uint16_t line;
        uint16_t lastLine; ///< line + lineSpan, modulo 2^16
        uint16_t column;
        uint16_t endColumn;
        uint16_t size;
        uint8_t flags;
        uint8_t wide; ///< 1: the record is wide_[column | endColumn << 16]
        uint32_t wideIndex() const { return uint32_t(column) | uint32_t(endColumn) << 16; }
    };
    static_assert(sizeof(Row) == 16, "a statement record is 16 bytes");

    static bool fitsRow(const LineRecord& record)
    {
        return record.line <= 0xFFFF && uint32_t(record.line + record.lineSpan) <= 0xFFFF &&
               record.column <= 0xFFFF && record.endColumn <= 0xFFFF && record.size <= 0xFFFF;
    }
    void pushWide(const LineRecord& record);
    void setWideCodeSize(size_t index, uint32_t size);

    ChunkedVector<Row> rows_;
    std::vector<LineRecord> wide_;
};

} // namespace ubrof
