// The store's code areas: one per statement of a source file, in address order, kept as indexes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ubrof {

/// Which statement and file each code area stands for, ordered by start address. The host's
/// CodeArea values (two texts each) are built by the store only for the areas a query returns;
/// the texts themselves are stored once, the file names here and the scope names in the tree.
class CodeAreaTable {
public:
    size_t size() const { return starts_.size(); }
    bool empty() const { return starts_.empty(); }
    uint32_t startAddress(size_t area) const { return starts_[area]; }
    uint32_t lineRecord(size_t area) const { return entries_[area].lineRecord; }
    uint32_t file(size_t area) const { return entries_[area].file; }
    /// The first area whose start address is not below address; size() when there is none.
    size_t lowerBound(uint64_t address) const
    {
        return size_t(std::lower_bound(starts_.begin(), starts_.end(), address,
                                       [](uint32_t start, uint64_t a) { return start < a; }) -
                      starts_.begin());
    }

    /// Public path of each source file, as the file mapper gave it when the table was built.
    std::vector<std::string> publicPaths;

    void clear();
    void reserve(size_t areas);
    void append(uint32_t startAddress, uint32_t lineRecord, uint32_t file);
    /// Orders the areas by start address; areas that start together keep their order.
    void sortByStart();

private:
    struct Entry {
        uint32_t lineRecord;
        uint32_t file;
    };
    std::vector<uint32_t> starts_;
    std::vector<Entry> entries_;
};

} // namespace ubrof
