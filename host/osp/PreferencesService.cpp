// PreferencesService: a service that answers for its own type as well as for Service.
#include "host/osp/PreferencesService.h"

#include <cstring>

namespace Poco {
namespace OSP {

const std::string PreferencesService::SERVICE_NAME = "osp.core.preferences";

PreferencesService::PreferencesService(Poco::AutoPtr<Poco::Util::AbstractConfiguration> configuration)
    : configuration_(std::move(configuration))
{
}

const std::type_info& PreferencesService::type() const
{
    return typeid(PreferencesService);
}

bool PreferencesService::isA(const std::type_info& otherType) const
{
    return std::strcmp(otherType.name(), typeid(PreferencesService).name()) == 0 || Service::isA(otherType);
}

} // namespace OSP
} // namespace Poco
