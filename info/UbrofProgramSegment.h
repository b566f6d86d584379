// One downloadable memory image of a parsed file: code, EEPROM or data, from its lowest to its highest written byte.
#pragma once

#include "host/IBinaryInformation.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>

namespace ubrof {

class TarnUbrofParser;

class UbrofProgramSegment : public tarn::IProgramSegment {
public:
    /// The segment of the image of memoryClass (1 code, 2 data, 4 EEPROM); its range is fixed here.
    UbrofProgramSegment(uint8_t memoryClass, boost::shared_ptr<TarnUbrofParser> store);

    /// Segments have no name of their own: they are whole images, not the file's segments.
    std::string getName() const override;
    uint64_t getStartAddress() const override;
    uint32_t getSize() const override;
    std::string getMemoryType() const override;
    /// The same as the start address: images are loaded where they run.
    uint64_t getLoadAddress() const override;
    /// Bytes from max(address, start) on, at most count, clipped at the segment end; a request
    /// wholly before or beyond the segment leaves out untouched.
    void readData(std::vector<uint8_t>& out, uint64_t address, uint32_t count) const override;

private:
    boost::shared_ptr<TarnUbrofParser> store;
    uint64_t startAddress = 0;
    uint32_t size = 0;
    uint8_t memoryClass = 0;
};

} // namespace ubrof
