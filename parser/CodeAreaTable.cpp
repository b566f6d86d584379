// CodeAreaTable: runs appended in file order, then one stable sort by start address when needed.
#include "parser/CodeAreaTable.h"

#include <algorithm>

namespace ubrof {

void CodeAreaTable::clear(const LineTable& lines)
{
    lines_ = &lines;
    publicPaths.clear();
    dropAreas();
}

void CodeAreaTable::dropAreas()
{
    runs_.clear();
    runFirstAreas_.clear();
    runFirstAddresses_.clear();
    runLastAddresses_.clear();
    size_ = 0;
    lastStart_ = 0;
    sorted_ = true;
}

size_t CodeAreaTable::runOf(size_t area) const
{
    const auto after = std::upper_bound(runFirstAreas_.begin(), runFirstAreas_.end(), area);
    return after == runFirstAreas_.begin() ? 0 : size_t(after - runFirstAreas_.begin()) - 1;
}

uint32_t CodeAreaTable::lineRecord(size_t area) const
{
    const Run& run = runs_[runOf(area)];
    return run.firstLineRecord + static_cast<uint32_t>(area - run.firstArea);
}

uint32_t CodeAreaTable::file(size_t area) const
{
    return runs_[runOf(area)].file;
}

uint32_t CodeAreaTable::startAddress(size_t area) const
{
    return lines_->address(lineRecord(area));
}

size_t CodeAreaTable::lowerBound(uint64_t address) const
{
    // Runs are in address order too: only the run before the first that starts at or above
    // the address can hold an earlier area that does.
    const auto nextStart = std::lower_bound(runFirstAddresses_.begin(), runFirstAddresses_.end(), address);
    const size_t next = size_t(nextStart - runFirstAddresses_.begin());
    const size_t end = next == runs_.size() ? size_ : runs_[next].firstArea;
    if (next == 0)
        return end;
    const Run& run = runs_[next - 1];
    auto startOf = [&](size_t area) { return lines_->address(run.firstLineRecord + uint32_t(area - run.firstArea)); };
    // The run's first area starts below the address; past its last one the next run answers.
    const uint32_t first = runFirstAddresses_[next - 1];
    const uint32_t last = runLastAddresses_[next - 1];
    if (address > last)
        return end;
    // Statements are a few bytes each, so the address's share of the run's span guesses its
    // place closely; steps that double out from the guess bracket the answer within a few
    // cache lines, where bisecting a run of thousands of statements would miss a line a step.
    // Uneven runs cost no more steps than bisection would.
    size_t low = run.firstArea;  // starts below address
    size_t high = end - 1;       // starts at or above address
    const size_t guess =
        address > first ? low + size_t((address - first) * uint64_t(high - low) / (uint64_t(last) - first)) : low;
    if (startOf(guess) < address) {
        low = guess;
        for (size_t step = 1; step < high - low; step *= 2) {
            if (startOf(low + step) >= address) {
                high = low + step;
                break;
            }
            low += step;
        }
    } else {
        high = guess;
        for (size_t step = 1; step < high - low; step *= 2) {
            if (startOf(high - step) < address) {
                low = high - step;
                break;
            }
            high -= step;
        }
    }
    // Now low starts below the address and high at or above it: bisect between them.
    while (high - low > 1) {
        const size_t middle = low + (high - low) / 2;
        if (startOf(middle) < address)
            low = middle;
        else
            high = middle;
    }
    return high;
}

void CodeAreaTable::append(uint32_t lineRecord, uint32_t file)
{
    const uint32_t address = lines_->address(lineRecord);
    if (address < lastStart_ && size_ != 0)
        sorted_ = false;
    lastStart_ = address;
    if (!runs_.empty()) {
        const Run& last = runs_.back();
        if (last.file == file && size_t(last.firstLineRecord) + (size_ - last.firstArea) == lineRecord) {
            runLastAddresses_.back() = address;
            ++size_;
            return;
        }
    }
    runs_.push_back({static_cast<uint32_t>(size_), lineRecord, file, address});
    runFirstAreas_.push_back(static_cast<uint32_t>(size_));
    runFirstAddresses_.push_back(address);
    runLastAddresses_.push_back(address);
    ++size_;
}

void CodeAreaTable::appendRange(uint32_t firstLineRecord, uint32_t count, uint32_t file)
{
    if (count == 0)
        return;
    append(firstLineRecord, file);
    // The rest continue the run just appended to; only their order by address is checked.
    for (uint32_t i = 1; i < count; ++i) {
        const uint32_t address = lines_->address(firstLineRecord + i);
        if (address < lastStart_)
            sorted_ = false;
        lastStart_ = address;
    }
    runLastAddresses_.back() = lastStart_;
    size_ += count - 1;
}

void CodeAreaTable::sortByStart()
{
    if (sorted_)
        return;
    struct Area {
        uint32_t lineRecord;
        uint32_t file;
    };
    std::vector<Area> areas;
    areas.reserve(size_);
    std::vector<uint64_t> keys;
    keys.reserve(size_);
    visitFrom(0, [&](size_t area, uint32_t record, uint32_t file, uint32_t start) {
        areas.push_back({record, file});
        // The position breaks ties, so a plain sort of the keys keeps equal starts in order.
        keys.push_back(uint64_t(start) << 32 | area);
        return true;
    });
    std::sort(keys.begin(), keys.end());
    dropAreas();
    for (uint64_t key : keys) {
        const Area& area = areas[static_cast<uint32_t>(key)];
        append(area.lineRecord, area.file);
    }
}

} // namespace ubrof
