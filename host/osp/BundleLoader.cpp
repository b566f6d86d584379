// BundleLoader: bundle properties from the file beside the module, activators from its manifest.
#include "host/osp/BundleLoader.h"

#include "host/osp/ServiceRegistry.h"

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Path.h>
#include <Poco/Util/PropertyFileConfiguration.h>

namespace Poco {
namespace OSP {

const std::string BundleLoader::PROPERTIES_FILE = "bundle.properties";

BundleLoader::BundleLoader(ServiceRegistry& registry) : registry_(registry) {}

BundleLoader::~BundleLoader()
{
    for (auto it = bundles_.rbegin(); it != bundles_.rend(); ++it) {
        try {
            (*it)->stop();
        } catch (...) {
            // A bundle that fails to stop must not keep the others running.
        }
    }
    registry_.clear();
    bundles_.clear();
}

Bundle::Ptr BundleLoader::installBundle(const std::string& path)
{
    Poco::Path modulePath(path);
    std::string directory = path;
    const bool isDirectory = Poco::File(path).exists() && Poco::File(path).isDirectory();
    if (!isDirectory)
        directory = modulePath.parent().toString();
    Poco::Path propertiesPath(directory);
    propertiesPath.makeDirectory().setFileName(PROPERTIES_FILE);
    if (!Poco::File(propertiesPath).exists())
        throw Poco::FileNotFoundException("bundle properties", propertiesPath.toString());
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties(
        new Poco::Util::PropertyFileConfiguration(propertiesPath.toString()));
    const std::string symbolicName = properties->getString("bundle.symbolicName");
    properties->getString("bundle.activator"); // checked now, used at start
    std::string library = path;
    if (isDirectory) {
        Poco::Path inside(directory);
        inside.makeDirectory().setFileName(properties->getString("bundle.library"));
        library = inside.toString();
    }
    return addBundle(symbolicName, library, properties, {});
}

Bundle::Ptr BundleLoader::installBundle(const std::string& symbolicName,
                                        Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties,
                                        Bundle::ActivatorFactory factory)
{
    if (!factory)
        throw Poco::NullPointerException("activator factory", symbolicName);
    return addBundle(symbolicName, std::string(), std::move(properties), std::move(factory));
}

Bundle::Ptr BundleLoader::addBundle(const std::string& symbolicName, const std::string& path,
                                    Poco::AutoPtr<Poco::Util::AbstractConfiguration> properties,
                                    Bundle::ActivatorFactory factory)
{
    if (findBundle(symbolicName))
        throw Poco::ExistsException("bundle", symbolicName);
    Bundle::Ptr bundle(new Bundle(static_cast<int>(bundles_.size()) + 1, symbolicName, path,
                                  std::move(properties), std::move(factory), *this));
    bundles_.push_back(bundle);
    return bundle;
}

void BundleLoader::listBundles(std::vector<Bundle::Ptr>& bundles) const
{
    bundles.insert(bundles.end(), bundles_.begin(), bundles_.end());
}

Bundle::Ptr BundleLoader::findBundle(const std::string& symbolicName) const
{
    for (const Bundle::Ptr& bundle : bundles_)
        if (bundle->symbolicName() == symbolicName)
            return bundle;
    return {};
}

BundleActivator* BundleLoader::createActivator(const std::string& path, const std::string& className)
{
    classLoader_.loadLibrary(path);
    // A module that does not export the class would otherwise answer with a lookup error
    // that does not name the module.
    const auto& manifest = classLoader_.manifestFor(path);
    auto meta = manifest.find(className);
    if (meta == manifest.end())
        throw Poco::NotFoundException("activator class " + className + " in", path);
    return (*meta)->create();
}

} // namespace OSP
} // namespace Poco
