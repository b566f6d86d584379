// The source side of a parsed file for the host: source files, code areas of an address range, statement addresses.
#pragma once

#include "host/ISourceInformation.h"

#include <boost/shared_ptr.hpp>

namespace ubrof {

class TarnUbrofParser;

class UbrofSourceInformation : public tarn::ISourceInformation {
public:
    explicit UbrofSourceInformation(boost::shared_ptr<TarnUbrofParser> store);

    /// Appends the public paths in the order the file declared them; false with error 0x2000d
    /// when the list is still empty.
    bool getSourcefiles(tarn::Status& status, std::vector<std::string>& files) const override;
    bool getCodeAreasFromAddressRange(tarn::Status& status, uint64_t start, uint64_t end,
                                      std::vector<tarn::CodeArea>& areas) const override;
    /// At most one address: the first statement that covers the line, named after its innermost scope.
    bool getAddressesFromSingleStatement(tarn::Status& status, const std::string& file,
                                         const tarn::CodeLocation& location,
                                         std::vector<tarn::AddressNamePair>& addresses) const override;
    /// Leaves frames as they are: the file holds no call-frame information to unwind with.
    void getParentFrames(std::vector<tarn::CallFrameInfo>& frames, int depth,
                         boost::shared_ptr<tarn::IProcessContext> process) override;

private:
    boost::shared_ptr<TarnUbrofParser> store;
};

} // namespace ubrof
