// An installed bundle: its properties, its state, and the activator that its start creates.
#pragma once

#include "host/osp/BundleContext.h"

#include <Poco/AutoPtr.h>
#include <Poco/RefCountedObject.h>
#include <Poco/Util/AbstractConfiguration.h>

#include <functional>
#include <memory>
#include <string>

namespace Poco {
namespace OSP {

class BundleActivator;
class BundleLoader;

class Bundle : public Poco::RefCountedObject {
public:
    using Ptr = Poco::AutoPtr<Bundle>;
    using ConstPtr = Poco::AutoPtr<const Bundle>;
    /// Makes the activator of a bundle that is not loaded from a module file.
    using ActivatorFactory = std::function<BundleActivator*()>;

    /// The platform's state values; 3 to 5 mean the bundle is running or on its way.
    enum State {
        BUNDLE_INSTALLED = 0,
        BUNDLE_UNINSTALLED = 1,
        BUNDLE_RESOLVED = 2,
        BUNDLE_STARTING = 3,
        BUNDLE_ACTIVE = 4,
        BUNDLE_STOPPING = 5,
    };

    int id() const { return id_; }
    const std::string& symbolicName() const { return symbolicName_; }
    /// The module file the activator comes from; empty for a bundle made from code.
    const std::string& path() const { return path_; }
    State state() const { return state_; }
    const Poco::Util::AbstractConfiguration& properties() const { return *properties_; }
    /// Null until the bundle has started.
    BundleActivator* activator() const { return activator_.get(); }
    BundleContext::Ptr context() const { return context_; }

    /// Loads the activator and runs its start; nothing happens while starting or active.
    /// Any failure leaves the bundle resolved and is thrown as a Poco::Exception.
    void start();
    /// Runs the activator's stop and releases it; the services it registered stay.
    void stop();

private:
    friend class BundleLoader;
    struct ActivatorDeleter {
        void operator()(BundleActivator* activator) const;
    };

    Bundle(int id, const std::string& symbolicName, const std::string& path,
           Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties, ActivatorFactory factory,
           BundleLoader& loader);
    ~Bundle() override;

    int id_;
    std::string symbolicName_;
    std::string path_;
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties_;
    ActivatorFactory factory_;
    BundleLoader& loader_;
    State state_ = BUNDLE_RESOLVED;
    std::unique_ptr<BundleActivator, ActivatorDeleter> activator_;
    BundleContext::Ptr context_;
};

} // namespace OSP
} // namespace Poco
