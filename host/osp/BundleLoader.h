// Installs bundles from module files (through POCO's class loader) or from code, and lists them.
#pragma once

#include "host/osp/Bundle.h"
#include "host/osp/BundleActivator.h"

#include <Poco/ClassLoader.h>

#include <string>
#include <vector>

namespace Poco {
namespace OSP {

class ServiceRegistry;

class BundleLoader {
public:
    /// The file beside a module that holds the bundle's properties.
    static const std::string PROPERTIES_FILE;

    explicit BundleLoader(ServiceRegistry& registry);
    /// Stops the active bundles, newest first, and clears the registry before the modules are
    /// unloaded: registered services run code of those modules.
    ~BundleLoader();
    BundleLoader(const BundleLoader&) = delete;
    BundleLoader& operator=(const BundleLoader&) = delete;

    /// Installs the bundle of a module file, or of a directory whose properties name the module
    /// ("bundle.library"). The properties come from PROPERTIES_FILE in that directory; the
    /// symbolic name from "bundle.symbolicName", the activator class from "bundle.activator".
    /// Nothing is loaded before the bundle starts. Throws a Poco::Exception when the
    /// properties cannot be read or lack a key.
    Bundle::Ptr installBundle(const std::string& path);
    /// Installs a bundle whose activator is made by code already in the process.
    Bundle::Ptr installBundle(const std::string& symbolicName,
                              Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties,
                              Bundle::ActivatorFactory factory);

    /// The installed bundles in installation order.
    void listBundles(std::vector<Bundle::Ptr>& bundles) const;
    Bundle::Ptr findBundle(const std::string& symbolicName) const;
    ServiceRegistry& registry() const { return registry_; }

private:
    friend class Bundle;
    /// Loads the module (once) and creates the named activator class from its manifest.
    BundleActivator* createActivator(const std::string& path, const std::string& className);
    Bundle::Ptr addBundle(const std::string& symbolicName, const std::string& path,
                          Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties,
                          Bundle::ActivatorFactory factory);

    ServiceRegistry& registry_;
    Poco::ClassLoader<BundleActivator> classLoader_;
    std::vector<Bundle::Ptr> bundles_;
};

} // namespace OSP
} // namespace Poco
