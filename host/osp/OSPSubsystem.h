// The service platform of one process: a registry with the preferences service, and a bundle loader.
#pragma once

#include "host/osp/BundleLoader.h"
#include "host/osp/ServiceRegistry.h"

#include <Poco/AutoPtr.h>
#include <Poco/Util/AbstractConfiguration.h>

namespace Poco {
namespace OSP {

class OSPSubsystem {
public:
    /// Preferences start empty.
    OSPSubsystem();
    explicit OSPSubsystem(Poco::AutoPtr<Poco::Util::AbstractConfiguration> preferences);
    OSPSubsystem(const OSPSubsystem&) = delete;
    OSPSubsystem& operator=(const OSPSubsystem&) = delete;

    ServiceRegistry& serviceRegistry() { return registry_; }
    BundleLoader& bundleLoader() { return loader_; }

private:
    // Declared in this order so that the loader, which clears the registry, goes first.
    ServiceRegistry registry_;
    BundleLoader loader_;
};

} // namespace OSP
} // namespace Poco
