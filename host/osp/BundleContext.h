// A started bundle's view of the platform: its own bundle, the registry, and the other bundles.
#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/RefCountedObject.h>

#include <string>
#include <vector>

namespace Poco {
namespace OSP {

class Bundle;
class BundleLoader;
class ServiceRegistry;

class BundleContext : public Poco::RefCountedObject {
public:
    using Ptr = Poco::AutoPtr<BundleContext>;

    BundleContext(Bundle& bundle, BundleLoader& loader);

    Poco::AutoPtr<Bundle> thisBundle() const;
    ServiceRegistry& registry() const;
    void listBundles(std::vector<Poco::AutoPtr<Bundle>>& bundles) const;
    /// The installed bundle of that symbolic name, or a null pointer.
    Poco::AutoPtr<Bundle> findBundle(const std::string& symbolicName) const;

private:
    Bundle& bundle_;
    BundleLoader& loader_;
};

} // namespace OSP
} // namespace Poco
