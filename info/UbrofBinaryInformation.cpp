// UbrofBinaryInformation: which memory images of the store become program segments, and in what order.
#include "info/UbrofBinaryInformation.h"

#include "info/UbrofProgramSegment.h"
#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

#include <boost/make_shared.hpp>

namespace ubrof {

UbrofBinaryInformation::UbrofBinaryInformation(boost::shared_ptr<TarnUbrofParser> store)
    : store(std::move(store))
{
}

std::vector<boost::shared_ptr<tarn::IProgramSegment>> UbrofBinaryInformation::getProgramSegments() const
{
    std::vector<boost::shared_ptr<tarn::IProgramSegment>> segments;
    // Hosts download in list order and expect code, then EEPROM, then data.
    for (uint8_t memoryClass : {CodeMemory, EepromMemory, DataMemory}) {
        uint32_t low = 0xFFFFFFFF;
        uint32_t high = 0;
        uint32_t reserved = 0;
        store->getMemoryRange(memoryClass, &low, &high, &reserved);
        if (low != 0xFFFFFFFF || high != 0)
            segments.push_back(boost::make_shared<UbrofProgramSegment>(memoryClass, store));
    }
    return segments;
}

} // namespace ubrof
