// Lookup of class factories by class name and category, and of platform preferences.
#pragma once

#include "host/IQnClassFactory.h"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace tarn {

class IQnClassFactoryManager {
public:
    virtual ~IQnClassFactoryManager() = default;
    virtual boost::shared_ptr<IQnClassFactory> getClassFactory(const std::string& className) = 0;
    virtual std::vector<boost::shared_ptr<IQnClassFactory>> getClassFactories(const std::string& category) = 0;
    virtual std::vector<std::string> getClassNames(const std::string& category) = 0;
    virtual std::string getPreference(const std::string& key) = 0;
};

} // namespace tarn
