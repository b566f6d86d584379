// What the host learns of the compiler behind a parsed file: names, byte order, base types, type widths.
#pragma once

#include "host/ICompilerInformation.h"

#include <boost/shared_ptr.hpp>
#include <map>

namespace ubrof {

class TarnUbrofParser;

class UbrofCompilerInformation : public tarn::ICompilerInformation {
public:
    /// Builds the base-type map from the defaults and the store's base-type records.
    explicit UbrofCompilerInformation(boost::shared_ptr<TarnUbrofParser> store);

    std::string getMachine() const override;
    bool isBigEndian() const override;
    /// "Nordic  " (two blanks) followed by the compiler version.
    std::string getProducer() const override;
    std::map<int32_t, tarn::BaseTypeInfo> getBaseTypes() const override;
    /// Built on the first call; every call answers the same record.
    boost::shared_ptr<tarn::CompilerInfo> createCompilerInfo() override;

private:
    void setDefaults();

    boost::shared_ptr<TarnUbrofParser> store;
    std::map<int32_t, tarn::BaseTypeInfo> baseTypes;
    boost::shared_ptr<tarn::CompilerInfo> compilerInfo;
};

} // namespace ubrof
