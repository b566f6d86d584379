// The program image of a parsed file as the host downloads it: up to three segments, code, EEPROM, data.
#pragma once

#include "host/IBinaryInformation.h"

#include <boost/shared_ptr.hpp>

namespace ubrof {

class TarnUbrofParser;

class UbrofBinaryInformation : public tarn::IBinaryInformation {
public:
    explicit UbrofBinaryInformation(boost::shared_ptr<TarnUbrofParser> store);

    /// A new list on each call: one segment per image that received a byte, code first, then
    /// EEPROM, then data.
    std::vector<boost::shared_ptr<tarn::IProgramSegment>> getProgramSegments() const override;

private:
    boost::shared_ptr<TarnUbrofParser> store;
};

} // namespace ubrof
