// Registers class factories as platform services and finds them again, starting their bundles on demand.
#pragma once

#include "host/IQnClassFactoryManager.h"
#include "host/osp/Bundle.h"
#include "host/osp/BundleContext.h"
#include "host/osp/Properties.h"
#include "host/osp/ServiceRegistry.h"
#include "plugin/OspService.h"

#include <Poco/Exception.h>
#include <boost/shared_ptr.hpp>

#include <string>
#include <type_traits>
#include <vector>

namespace Poco {
namespace OSP {
class BundleLoader;
class OSPSubsystem;
} // namespace OSP
} // namespace Poco

namespace tarn {

/// Bundles declare the factories they provide in their properties: "services" lists
/// identifiers (separated by "," or ":"), and each identifier has ".classname" (the
/// service name) and ".category".
class OspClassFactoryManager : public IQnClassFactoryManager {
public:
    /// A host's manager: looks bundles up through the subsystem's loader.
    explicit OspClassFactoryManager(Poco::OSP::OSPSubsystem& subsystem);
    /// A bundle's manager; throws Poco::NullPointerException for a null context.
    explicit OspClassFactoryManager(Poco::OSP::BundleContext::Ptr context);
    ~OspClassFactoryManager() override;

    /// Registers the factory under its class name with its category as "CategoryName".
    template <typename Factory>
    void registerClassFactory(const boost::shared_ptr<IQnClassFactory>& factory)
    {
        static_assert(std::is_base_of<IQnClassFactory, Factory>::value, "a class factory");
        if (!factory)
            throw Poco::NullPointerException("registerClassFactory");
        Poco::OSP::Properties properties;
        properties.set("CategoryName", factory->getCategoryName());
        Poco::OSP::Service::Ptr service(new OspService<IQnClassFactory>(factory));
        registry_->registerService(factory->getClassName(), service, properties);
    }

    /// Starts the first bundle that declares the class unless it runs; empty when none declares it.
    boost::shared_ptr<IQnClassFactory> getClassFactory(const std::string& className) override;
    /// Starts every bundle that declares a class of the category, then asks the registry.
    std::vector<boost::shared_ptr<IQnClassFactory>> getClassFactories(const std::string& category) override;
    /// The declared class names of the category; starts nothing.
    std::vector<std::string> getClassNames(const std::string& category) override;
    /// The platform preference of that key, or the empty string.
    std::string getPreference(const std::string& key) override;

    void listBundles(std::vector<Poco::OSP::Bundle::Ptr>& bundles) const;

private:
    /// The bundles whose properties list "services", in bundle order.
    std::vector<Poco::OSP::Bundle::Ptr> bundlesDeclaringServices() const;

    Poco::OSP::ServiceRegistry* registry_;
    Poco::OSP::BundleLoader* loader_;
    Poco::OSP::BundleContext::Ptr context_;
};

} // namespace tarn
