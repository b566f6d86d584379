// DMemory: a two-level table of 4 KiB pages over the 32-bit address space.
#include "reader/DMemory.h"

#include "reader/LargeBlocks.h"

#include <algorithm>
#include <cstring>

namespace ubrof {

DMemory::DMemory(uint32_t initialCapacity, uint8_t fillByte)
    : capacity_(std::max<uint32_t>(initialCapacity, 1024)), fillByte_(fillByte)
{
}

DMemory::~DMemory()
{
    for (size_t i = 0; i < slabs_.size(); ++i) {
        if (i < kSmallSlabs)
            delete[] slabs_[i];
        else
            releaseLargeBlock(slabs_[i]);
    }
}

const uint8_t* DMemory::pageAt(uint32_t page) const
{
    const Leaf* leaf = top_[page >> kLeafBits].get();
    return leaf ? leaf->pages[page & ((1u << kLeafBits) - 1)] : nullptr;
}

uint8_t* DMemory::pageFor(uint32_t page)
{
    if (page == lastPage_)
        return lastPageData_;
    std::unique_ptr<Leaf>& leaf = top_[page >> kLeafBits];
    if (!leaf) {
        leaf = std::make_unique<Leaf>();
        allocated_ += sizeof(Leaf);
    }
    uint8_t*& data = leaf->pages[page & ((1u << kLeafBits) - 1)];
    if (!data) {
        // Pages come from slabs so that a large image is not millions of small allocations.
        if (slabPagesUsed_ == slabPages_) {
            const bool small = slabs_.size() < kSmallSlabs;
            slabs_.reserve(slabs_.size() + 1);
            slabs_.push_back(small ? new uint8_t[size_t(kPagesPerSlab) * kPageSize]
                                   : static_cast<uint8_t*>(allocateLargeBlock()));
            slabPages_ = small ? kPagesPerSlab : static_cast<uint32_t>(kLargeBlockSize / kPageSize);
            slabPagesUsed_ = 0;
        }
        data = slabs_.back() + size_t(slabPagesUsed_++) * kPageSize;
        std::memset(data, fillByte_, kPageSize);
        allocated_ += kPageSize;
    }
    lastPage_ = page;
    lastPageData_ = data;
    return data;
}

void DMemory::writeAcrossPages(uint32_t address, const uint8_t* bytes, uint32_t count)
{
    const uint64_t end = uint64_t(address) + count;
    while (end > capacity_)
        capacity_ *= 16;
    if (address < lowAddress_)
        lowAddress_ = address;
    if (count == 0)
        return;
    const uint64_t kept = std::min<uint64_t>(end, uint64_t(1) << 32);
    highAddress_ = std::max<uint32_t>(highAddress_, static_cast<uint32_t>(kept - 1));
    for (uint64_t at = address; at < kept;) {
        const uint32_t offset = static_cast<uint32_t>(at) & (kPageSize - 1);
        const uint32_t part = static_cast<uint32_t>(std::min<uint64_t>(kPageSize - offset, kept - at));
        std::memcpy(pageFor(static_cast<uint32_t>(at >> kPageBits)) + offset, bytes, part);
        bytes += part;
        at += part;
    }
}

void DMemory::read(uint32_t address, uint32_t count, uint8_t* out) const
{
    uint64_t at = address;
    const uint64_t end = at + count;
    // Beyond 0xFFFFFFFF nothing was ever written.
    const uint64_t mapped = std::min<uint64_t>(end, uint64_t(1) << 32);
    while (at < mapped) {
        const uint32_t offset = static_cast<uint32_t>(at) & (kPageSize - 1);
        const uint32_t part = static_cast<uint32_t>(std::min<uint64_t>(kPageSize - offset, mapped - at));
        if (const uint8_t* page = pageAt(static_cast<uint32_t>(at >> kPageBits)))
            std::memcpy(out, page + offset, part);
        else
            std::memset(out, fillByte_, part);
        out += part;
        at += part;
    }
    std::memset(out, fillByte_, size_t(end - at));
}

} // namespace ubrof
