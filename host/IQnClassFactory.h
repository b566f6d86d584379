// Class factories that plug-ins register with the service platform, and the parser factory among them.
#pragma once

#include "host/IObjectfileParser.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace tarn {

class IQnClassFactory {
public:
    virtual ~IQnClassFactory() = default;
    virtual std::string getCategoryName() const = 0;
    /// The factory's class name, which is also its service name.
    virtual std::string getClassName() const = 0;
};

class IObjectfileParserFactory : public IQnClassFactory {
public:
    virtual std::string getObjectFileFormat() const = 0;
    /// Throws CoreException when the file cannot be parsed.
    virtual boost::shared_ptr<IObjectfileParser> createObjectfileParser(const std::string& path) = 0;
};

} // namespace tarn
