// CodeAreaTable: appending in file order, then one stable sort by start address when needed.
#include "parser/CodeAreaTable.h"

namespace ubrof {

void CodeAreaTable::clear()
{
    starts_.clear();
    entries_.clear();
    publicPaths.clear();
}

void CodeAreaTable::reserve(size_t areas)
{
    starts_.reserve(areas);
    entries_.reserve(areas);
}

void CodeAreaTable::append(uint32_t startAddress, uint32_t lineRecord, uint32_t file)
{
    starts_.push_back(startAddress);
    entries_.push_back({lineRecord, file});
}

void CodeAreaTable::sortByStart()
{
    if (std::is_sorted(starts_.begin(), starts_.end()))
        return;
    // The position breaks ties, so a plain sort of the keys keeps equal starts in order.
    std::vector<uint64_t> keys(starts_.size());
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i] = uint64_t(starts_[i]) << 32 | i;
    std::sort(keys.begin(), keys.end());
    std::vector<Entry> sorted(entries_.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        const auto from = static_cast<uint32_t>(keys[i]);
        starts_[i] = static_cast<uint32_t>(keys[i] >> 32);
        sorted[i] = entries_[from];
    }
    entries_.swap(sorted);
}

} // namespace ubrof
