// The few questions a Program answers itself: lookups by address and sums.
#include "model/Program.h"

#include <algorithm>

namespace ubrof::model {

uint32_t MemoryImage::lowAddress() const
{
    if (!runs.empty())
        return runs.front().address;
    return extent ? extent->low : 0;
}

uint64_t MemoryImage::endAddress() const
{
    if (!runs.empty())
        return runs.back().end();
    return extent ? extent->end : 0;
}

uint64_t MemoryImage::byteCount() const
{
    if (runs.empty())
        return extent ? extent->bytes : 0;
    uint64_t count = 0;
    for (const ByteRun& run : runs)
        count += run.bytes.size();
    return count;
}

uint64_t Module::size(MemorySpace space) const
{
    uint64_t total = 0;
    for (const AddressRange& range : ranges)
        if (range.space == space)
            total += range.high - range.low;
    return total;
}

const MemoryImage* Program::memory(MemorySpace space) const
{
    for (const MemoryImage& image : memories)
        if (image.space == space)
            return &image;
    return nullptr;
}

uint32_t Program::functionAt(uint32_t address) const
{
    // Functions are sorted by entry and do not overlap, so only the last one starting at or
    // below the address can hold it.
    const auto after = std::upper_bound(functions.begin(), functions.end(), address,
                                        [](uint32_t a, const Function& f) { return a < f.entry; });
    if (after == functions.begin())
        return kNone;
    const Function& candidate = *(after - 1);
    return address < candidate.end ? static_cast<uint32_t>(after - 1 - functions.begin()) : kNone;
}

const LineRow* Program::lineAt(uint32_t address) const
{
    const auto after = std::upper_bound(lines.begin(), lines.end(), address,
                                        [](uint32_t a, const LineRow& row) { return a < row.address; });
    if (after == lines.begin())
        return nullptr;
    const LineRow& candidate = *(after - 1);
    return address < candidate.end ? &candidate : nullptr;
}

} // namespace ubrof::model
