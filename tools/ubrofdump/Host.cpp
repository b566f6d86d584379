// Host: the platform lives as long as the Host, so the module stays loaded while its objects are used.
#include "tools/ubrofdump/Host.h"

#include "plugin/OspService.h"

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Path.h>
#include <Poco/Util/MapConfiguration.h>
#include <boost/pointer_cast.hpp>

#include <unistd.h>

namespace ubrofdump {

namespace {
const char* const kCategory = "ObjectfileParserFactory";

Poco::AutoPtr<Poco::Util::AbstractConfiguration> preferences(bool readNewerVersions)
{
    auto* configuration = new Poco::Util::MapConfiguration;
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> owned(configuration);
    if (readNewerVersions)
        configuration->setString(kReadNewerVersionsPreference, "true");
    return owned;
}

} // namespace

Host::Host(const std::string& path, bool readNewerVersions) : platform_(preferences(readNewerVersions))
{
    try {
        platform_.bundleLoader().installBundle(path)->start();
    } catch (const Poco::Exception& e) {
        throw PluginError("cannot load the parser module " + path + ": " + e.displayText());
    }
}

Host::~Host() = default;

boost::shared_ptr<tarn::IObjectfileParserFactory> Host::parserFactory()
{
    std::vector<Poco::OSP::ServiceRef::Ptr> references;
    platform_.serviceRegistry().find(std::string("CategoryName==\"") + kCategory + "\"", references);
    for (const auto& reference : references) {
        Poco::OSP::Service::Ptr service = reference->instance();
        if (!service || !service->isA(typeid(tarn::OspService<tarn::IQnClassFactory>)))
            continue;
        auto wrapped = static_cast<tarn::OspService<tarn::IQnClassFactory>*>(service.get())->getObject();
        if (auto factory = boost::dynamic_pointer_cast<tarn::IObjectfileParserFactory>(wrapped))
            return factory;
    }
    throw PluginError(std::string("no service of category ") + kCategory + " is registered");
}

std::string Host::defaultModulePath()
{
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        self[length] = '\0';
        Poco::Path installed(Poco::Path(self).parent());
        installed.resolve(Poco::Path(std::string(UBROF_MODULE_DIR_FROM_BIN) + "/"));
        if (Poco::File(Poco::Path(installed, "bundle.properties")).exists())
            return installed.toString();
    }
    return UBROF_BUILD_MODULE_DIR;
}

} // namespace ubrofdump
