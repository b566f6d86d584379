// The image of one memory space: any 32-bit address, pages allocated on first write, fill byte elsewhere.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace ubrof {

/// Reads back exactly as one flat block that grows sixteenfold whenever a write lands beyond it,
/// starting at the initial capacity: every byte never written reads as the fill byte. Only the
/// pages that were written take memory, so a byte at 0xFFFFFFFF costs one page.
class DMemory {
public:
    DMemory(uint32_t initialCapacity, uint8_t fillByte);
    virtual ~DMemory();
    DMemory(const DMemory&) = delete;
    DMemory& operator=(const DMemory&) = delete;

    /// Writes count bytes from address on and widens the written range. The address space ends
    /// at 0xFFFFFFFF: bytes that would lie beyond it have no address and are dropped.
    void write(uint32_t address, const uint8_t* bytes, uint32_t count)
    {
        // Code arrives in runs of a few bytes, one after the other on the same page.
        const uint64_t end = uint64_t(address) + count;
        if (count != 0 && address >> kPageBits == lastPage_ && (end - 1) >> kPageBits == lastPage_ && end <= capacity_) {
            if (address < lowAddress_)
                lowAddress_ = address;
            if (end - 1 > highAddress_)
                highAddress_ = static_cast<uint32_t>(end - 1);
            std::memcpy(lastPageData_ + (address & (kPageSize - 1)), bytes, count);
            return;
        }
        writeAcrossPages(address, bytes, count);
    }
    /// Copies count bytes from address on; bytes never written read as the fill byte.
    void read(uint32_t address, uint32_t count, uint8_t* out) const;

    /// The size the flat block would have grown to.
    uint64_t capacity() const { return capacity_; }
    uint32_t lowAddress() const { return lowAddress_; }
    uint32_t highAddress() const { return highAddress_; }
    uint8_t fillByte() const { return fillByte_; }
    /// Memory the image holds for its pages and their tables.
    uint64_t allocatedBytes() const { return allocated_; }

private:
    static constexpr unsigned kPageBits = 12;
    static constexpr unsigned kLeafBits = 10;
    static constexpr unsigned kTopBits = 32 - kPageBits - kLeafBits;
    static constexpr uint32_t kPageSize = 1u << kPageBits;
    static constexpr uint32_t kPagesPerSlab = 64;
    /// After this many slabs an image is large, and its pages come from large blocks.
    static constexpr size_t kSmallSlabs = 8;

    struct Leaf {
        uint8_t* pages[1u << kLeafBits] = {};
    };

    void writeAcrossPages(uint32_t address, const uint8_t* bytes, uint32_t count);
    /// The page of page number, or nullptr when nothing was written into it.
    const uint8_t* pageAt(uint32_t page) const;
    uint8_t* pageFor(uint32_t page);

    std::unique_ptr<Leaf> top_[1u << kTopBits];
    std::vector<uint8_t*> slabs_; ///< pages are carved from these in order
    uint32_t slabPagesUsed_ = 0;
    uint32_t slabPages_ = 0; ///< pages in the last slab
    uint32_t lastPage_ = 0xFFFFFFFF; ///< the page the last write ended in, for runs of writes
    uint8_t* lastPageData_ = nullptr;
    uint64_t capacity_;
    uint64_t allocated_ = 0;
    uint32_t lowAddress_ = 0xFFFFFFFF;
    uint32_t highAddress_ = 0;
    uint8_t fillByte_;
};

} // namespace ubrof
