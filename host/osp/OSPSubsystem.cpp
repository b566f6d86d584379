// OSPSubsystem: every platform starts with its preferences registered.
#include "host/osp/OSPSubsystem.h"

#include "host/osp/PreferencesService.h"

#include <Poco/Util/MapConfiguration.h>

namespace Poco {
namespace OSP {

OSPSubsystem::OSPSubsystem() : OSPSubsystem(new Poco::Util::MapConfiguration) {}

OSPSubsystem::OSPSubsystem(Poco::AutoPtr<Poco::Util::AbstractConfiguration> preferences) : loader_(registry_)
{
    registry_.registerService(PreferencesService::SERVICE_NAME, new PreferencesService(std::move(preferences)),
                              Properties());
}

} // namespace OSP
} // namespace Poco
