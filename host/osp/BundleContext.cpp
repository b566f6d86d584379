// BundleContext: everything it answers comes from the loader that installed its bundle.
#include "host/osp/BundleContext.h"

#include "host/osp/Bundle.h"
#include "host/osp/BundleLoader.h"

namespace Poco {
namespace OSP {

BundleContext::BundleContext(Bundle& bundle, BundleLoader& loader) : bundle_(bundle), loader_(loader)
{
}

Bundle::Ptr BundleContext::thisBundle() const
{
    return Bundle::Ptr(&bundle_, true);
}

ServiceRegistry& BundleContext::registry() const
{
    return loader_.registry();
}

void BundleContext::listBundles(std::vector<Bundle::Ptr>& bundles) const
{
    loader_.listBundles(bundles);
}

Bundle::Ptr BundleContext::findBundle(const std::string& symbolicName) const
{
    return loader_.findBundle(symbolicName);
}

} // namespace OSP
} // namespace Poco
