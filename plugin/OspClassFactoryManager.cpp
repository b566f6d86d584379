// OspClassFactoryManager: the lookups walk the bundles' declarations, the registry holds the factories.
#include "plugin/OspClassFactoryManager.h"

#include <algorithm>

#include "host/osp/BundleLoader.h"
#include "host/osp/OSPSubsystem.h"
#include "host/osp/PreferencesService.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <iostream>

namespace tarn {
namespace {

using Poco::OSP::Bundle;

std::vector<std::string> serviceIdentifiers(const Poco::Util::AbstractConfiguration& properties)
{
    std::vector<std::string> identifiers;
    const std::string services = properties.getString("services");
    boost::split(identifiers, services, boost::is_any_of(",:"), boost::token_compress_on);
    return identifiers;
}

bool isRunning(const Bundle& bundle)
{
    const Bundle::State state = bundle.state();
    return state == Bundle::BUNDLE_STARTING || state == Bundle::BUNDLE_ACTIVE || state == Bundle::BUNDLE_STOPPING;
}

// A bundle that does not start is reported and skipped: the lookup serves the others.
void startBundle(Bundle& bundle)
{
    try {
        bundle.start();
    } catch (const Poco::Exception& e) {
        std::cout << "Failed to start bundle " << bundle.symbolicName() << ": " << e.displayText() << std::endl;
    }
}

const Poco::Util::AbstractConfiguration& propertiesOf(const Bundle::Ptr& bundle)
{
    if (!bundle)
        throw Poco::NullPointerException("bundle");
    return bundle->properties();
}

bool hasValue(const Poco::Util::AbstractConfiguration& properties, const std::string& key, const std::string& value)
{
    return properties.hasProperty(key) && properties.getString(key) == value;
}

template <typename Wanted>
Wanted& castService(Poco::OSP::Service::Ptr service)
{
    if (!service)
        throw Poco::NullPointerException("service");
    if (!service->isA(typeid(Wanted)))
        throw Poco::BadCastException(std::string("Cannot cast from ") + service->type().name() + " to " +
                                     typeid(Wanted).name());
    return static_cast<Wanted&>(*service);
}

boost::shared_ptr<IQnClassFactory> toFactory(const Poco::OSP::ServiceRef::Ptr& reference)
{
    if (!reference)
        throw Poco::NullPointerException("service reference");
    return castService<OspService<IQnClassFactory>>(reference->instance()).getObject();
}

} // namespace

OspClassFactoryManager::OspClassFactoryManager(Poco::OSP::OSPSubsystem& subsystem)
    : registry_(&subsystem.serviceRegistry()), loader_(&subsystem.bundleLoader())
{
}

OspClassFactoryManager::OspClassFactoryManager(Poco::OSP::BundleContext::Ptr context) : loader_(nullptr)
{
    if (!context)
        throw Poco::NullPointerException("bundle context");
    registry_ = &context->registry();
    context_ = std::move(context);
}

OspClassFactoryManager::~OspClassFactoryManager() = default;

void OspClassFactoryManager::listBundles(std::vector<Bundle::Ptr>& bundles) const
{
    if (loader_)
        loader_->listBundles(bundles);
    else if (context_)
        context_->listBundles(bundles);
}

std::vector<Bundle::Ptr> OspClassFactoryManager::bundlesDeclaringServices() const
{
    std::vector<Bundle::Ptr> bundles;
    listBundles(bundles);
    bundles.erase(std::remove_if(bundles.begin(), bundles.end(),
                                 [](const Bundle::Ptr& bundle) { return !propertiesOf(bundle).hasProperty("services"); }),
                  bundles.end());
    return bundles;
}

boost::shared_ptr<IQnClassFactory> OspClassFactoryManager::getClassFactory(const std::string& className)
{
    for (Bundle::Ptr& bundle : bundlesDeclaringServices()) {
        const auto& properties = propertiesOf(bundle);
        bool found = false;
        for (const std::string& identifier : serviceIdentifiers(properties)) {
            if (!hasValue(properties, identifier + ".classname", className))
                continue;
            found = true;
            if (isRunning(*bundle))
                continue;
            startBundle(*bundle);
            break;
        }
        if (found)
            return toFactory(registry_->findByName(className));
    }
    return {};
}

std::vector<boost::shared_ptr<IQnClassFactory>> OspClassFactoryManager::getClassFactories(const std::string& category)
{
    for (Bundle::Ptr& bundle : bundlesDeclaringServices()) {
        const auto& properties = propertiesOf(bundle);
        for (const std::string& identifier : serviceIdentifiers(properties)) {
            if (hasValue(properties, identifier + ".category", category) &&
                properties.hasProperty(identifier + ".classname") && !isRunning(*bundle))
                startBundle(*bundle);
        }
    }

    std::vector<Poco::OSP::ServiceRef::Ptr> references;
    registry_->find("CategoryName==\"" + category + "\"", references);
    std::vector<boost::shared_ptr<IQnClassFactory>> factories;
    for (const auto& reference : references)
        if (boost::shared_ptr<IQnClassFactory> factory = toFactory(reference))
            factories.push_back(factory);
    return factories;
}

std::vector<std::string> OspClassFactoryManager::getClassNames(const std::string& category)
{
    std::vector<std::string> names;
    for (Bundle::Ptr& bundle : bundlesDeclaringServices()) {
        const auto& properties = propertiesOf(bundle);
        for (const std::string& identifier : serviceIdentifiers(properties)) {
            const std::string classKey = identifier + ".classname";
            if (hasValue(properties, identifier + ".category", category) && properties.hasProperty(classKey))
                names.push_back(properties.getString(classKey));
        }
    }
    return names;
}

std::string OspClassFactoryManager::getPreference(const std::string& key)
{
    const auto reference = registry_->findByName(Poco::OSP::PreferencesService::SERVICE_NAME);
    if (!reference)
        throw Poco::NullPointerException("preferences service");
    const auto& preferences = castService<Poco::OSP::PreferencesService>(reference->instance());
    const auto configuration = preferences.configuration();
    if (!configuration)
        throw Poco::NullPointerException("preferences configuration");
    return configuration->hasProperty(key) ? configuration->getString(key) : std::string();
}

} // namespace tarn
