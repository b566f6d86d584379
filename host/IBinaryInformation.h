// The program image of an object file, as the host downloads it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn {

class IProgramSegment {
public:
    virtual ~IProgramSegment() = default;
    virtual std::string getName() const = 0;
    virtual uint64_t getStartAddress() const = 0;
    virtual uint32_t getSize() const = 0;
    /// Memory-space name: "prog", "data", "eeprom", ...
    virtual std::string getMemoryType() const = 0;
    virtual uint64_t getLoadAddress() const = 0;
    /// Bytes of the segment from address on, clipped to the segment.
    virtual void readData(std::vector<uint8_t>& out, uint64_t address, uint32_t count) const = 0;
};

class IBinaryInformation {
public:
    virtual ~IBinaryInformation() = default;
    virtual std::vector<boost::shared_ptr<IProgramSegment>> getProgramSegments() const = 0;
};

} // namespace tarn
