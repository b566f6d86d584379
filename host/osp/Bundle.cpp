// Bundle: the state machine of start and stop around the activator.
#include "host/osp/Bundle.h"

#include "host/osp/BundleActivator.h"
#include "host/osp/BundleLoader.h"

#include <Poco/Exception.h>

namespace Poco {
namespace OSP {

void Bundle::ActivatorDeleter::operator()(BundleActivator* activator) const
{
    delete activator;
}

Bundle::Bundle(int id, const std::string& symbolicName, const std::string& path,
               Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties, ActivatorFactory factory,
               BundleLoader& loader)
    : id_(id),
      symbolicName_(symbolicName),
      path_(path),
      properties_(std::move(properties)),
      factory_(std::move(factory)),
      loader_(loader)
{
    if (!properties_)
        throw Poco::NullPointerException("bundle properties", symbolicName);
}

Bundle::~Bundle() = default;

void Bundle::start()
{
    if (state_ == BUNDLE_STARTING || state_ == BUNDLE_ACTIVE || state_ == BUNDLE_STOPPING)
        return;
    state_ = BUNDLE_STARTING;
    try {
        if (!activator_) {
            BundleActivator* made = factory_ ? factory_()
                                             : loader_.createActivator(path_, properties_->getString("bundle.activator"));
            if (!made)
                throw Poco::NullPointerException("no activator for bundle", symbolicName_);
            activator_.reset(made);
        }
        context_ = new BundleContext(*this, loader_);
        activator_->start(context_);
        state_ = BUNDLE_ACTIVE;
    } catch (const Poco::Exception&) {
        state_ = BUNDLE_RESOLVED;
        throw;
    } catch (const std::exception& e) {
        // Callers of start catch Poco::Exception only; anything else would pass them by.
        state_ = BUNDLE_RESOLVED;
        throw Poco::RuntimeException(e.what());
    }
}

void Bundle::stop()
{
    if (state_ != BUNDLE_ACTIVE)
        return;
    state_ = BUNDLE_STOPPING;
    try {
        activator_->stop(context_);
    } catch (...) {
        state_ = BUNDLE_RESOLVED;
        activator_.reset();
        throw;
    }
    state_ = BUNDLE_RESOLVED;
    activator_.reset();
}

} // namespace OSP
} // namespace Poco
