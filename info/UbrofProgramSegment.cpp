// UbrofProgramSegment: the range of one memory image and clipped reads from it.
#include "info/UbrofProgramSegment.h"

#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

namespace ubrof {

UbrofProgramSegment::UbrofProgramSegment(uint8_t memoryClass, boost::shared_ptr<TarnUbrofParser> store)
    : store(std::move(store)), memoryClass(memoryClass)
{
    uint32_t low = 0xFFFFFFFF;
    uint32_t high = 0;
    uint32_t reserved = 0;
    this->store->getMemoryRange(memoryClass, &low, &high, &reserved);
    startAddress = low;
    // An image touched only by an empty write has a lowest address but no highest one; it holds
    // no byte, and a wrapped size would invite the host to read gigabytes.
    size = high >= low ? high - low + 1 : 0;
}

std::string UbrofProgramSegment::getName() const { return std::string(); }

uint64_t UbrofProgramSegment::getStartAddress() const { return startAddress; }

uint32_t UbrofProgramSegment::getSize() const { return size; }

std::string UbrofProgramSegment::getMemoryType() const { return segmentMemorySpace(memoryClass); }

uint64_t UbrofProgramSegment::getLoadAddress() const { return startAddress; }

void UbrofProgramSegment::readData(std::vector<uint8_t>& out, uint64_t address, uint32_t count) const
{
    const uint64_t end = startAddress + size;
    if (address > end)
        return;
    // address <= end < 2^33 here, so the sum cannot wrap.
    if (address + count < startAddress)
        return;
    const uint64_t from = address < startAddress ? startAddress : address;
    uint64_t n = count;
    if (from + count > end)
        n = end - from;
    out.assign(n, 0);
    if (n != 0)
        store->readMemory(memoryClass, static_cast<uint32_t>(from), static_cast<uint32_t>(n), out.data());
}

} // namespace ubrof
