// Source files, code areas and statement addresses of an object file.
#pragma once

#include "host/CodeArea.h"
#include "host/IProcessContext.h"
#include "host/Status.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn {

class ISourceInformation {
public:
    virtual ~ISourceInformation() = default;
    /// Appends the public paths of the source files.
    virtual bool getSourcefiles(Status& status, std::vector<std::string>& files) const = 0;
    /// Code areas of [start, end]; throws CoreException when start > end.
    virtual bool getCodeAreasFromAddressRange(Status& status, uint64_t start, uint64_t end,
                                              std::vector<CodeArea>& areas) const = 0;
    virtual bool getAddressesFromSingleStatement(Status& status, const std::string& file,
                                                 const CodeLocation& location,
                                                 std::vector<AddressNamePair>& addresses) const = 0;
    virtual void getParentFrames(std::vector<CallFrameInfo>& frames, int depth,
                                 boost::shared_ptr<IProcessContext> process) = 0;
    /// Statements of the function that holds an address; not every format offers it.
    virtual bool getFunctionStatements(Status&, uint64_t /*address*/, std::vector<CodeArea>&) const
    {
        return false;
    }
    /// Functions inlined at an address; not every format offers it.
    virtual bool getInlinedFunctions(Status&, uint64_t /*address*/,
                                     std::vector<AddressNamePair>&) const
    {
        return false;
    }
};

} // namespace tarn
