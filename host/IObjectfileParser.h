// A parsed object file and the four views the host reads of it.
#pragma once

#include "host/IBinaryInformation.h"
#include "host/ICompilerInformation.h"
#include "host/ISourceInformation.h"
#include "host/ISymbolInformation.h"

#include <boost/shared_ptr.hpp>

namespace tarn {

class IObjectfileParser {
public:
    virtual ~IObjectfileParser() = default;
    virtual void loadSymbolicInfo(bool load) = 0;
    virtual boost::shared_ptr<ISourceInformation> createSourceInformation() const = 0;
    virtual boost::shared_ptr<IBinaryInformation> createBinaryInformation() const = 0;
    virtual boost::shared_ptr<ISymbolInformation> createSymbolInformation() const = 0;
    virtual boost::shared_ptr<ICompilerInformation> createCompilerInformation() const = 0;
    virtual void initialize() = 0;
};

} // namespace tarn
