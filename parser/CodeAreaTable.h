// The store's code areas: one per statement of a source file, in address order, kept as runs of statements.
#pragma once

#include "reader/LineTable.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ubrof {

/// Which statement and file each code area stands for, ordered by start address. Areas come
/// from a file's line ranges in statement order, and statements mostly follow each other in
/// address order, so consecutive areas are kept as runs: a run of consecutive statements of
/// one file costs sixteen bytes however long it is. The host's CodeArea values (two texts
/// each) are built by the store only for the areas a query returns, from texts stored once.
class CodeAreaTable {
public:
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    uint32_t startAddress(size_t area) const;
    uint32_t lineRecord(size_t area) const;
    uint32_t file(size_t area) const;
    /// The first area whose start address is not below address; size() when there is none.
    size_t lowerBound(uint64_t address) const;

    /// Calls visit(area, lineRecord, file, startAddress) for the areas from first on, in order,
    /// until it answers false.
    template <typename Visit>
    void visitFrom(size_t first, Visit visit) const
    {
        for (size_t run = runOf(first); run < runs_.size(); ++run) {
            const Run& r = runs_[run];
            const size_t end = run + 1 < runs_.size() ? runs_[run + 1].firstArea : size_;
            for (size_t area = std::max<size_t>(first, r.firstArea); area < end; ++area) {
                const uint32_t record = r.firstLineRecord + static_cast<uint32_t>(area - r.firstArea);
                if (!visit(area, record, r.file, lines_->address(record)))
                    return;
            }
        }
    }

    /// Public path of each source file, as the file mapper gave it when the table was built.
    std::vector<std::string> publicPaths;

    /// Starts a table over the statements of lines.
    void clear(const LineTable& lines);
    /// Appends the area of a statement of a file, in the order of the file's line ranges.
    void append(uint32_t lineRecord, uint32_t file);
    /// Appends the areas of count consecutive statements of a file from firstLineRecord on.
    void appendRange(uint32_t firstLineRecord, uint32_t count, uint32_t file);
    /// Orders the areas by start address; areas that start together keep their order.
    void sortByStart();

private:
    struct Run {
        uint32_t firstArea;
        uint32_t firstLineRecord;
        uint32_t file;
        uint32_t firstAddress;
    };
    size_t runOf(size_t area) const;
    void dropAreas();

    const LineTable* lines_ = nullptr;
    std::vector<Run> runs_;
    // The keys of the two searches, apart from the runs: a search in a large program's runs
    // then reads a quarter of the lines of memory.
    std::vector<uint32_t> runFirstAreas_;
    std::vector<uint32_t> runFirstAddresses_;
    std::vector<uint32_t> runLastAddresses_; ///< where each run's last area starts
    size_t size_ = 0;
    uint32_t lastStart_ = 0;
    bool sorted_ = true;
};

} // namespace ubrof
