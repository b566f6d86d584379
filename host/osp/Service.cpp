// Service and ServiceRef: type queries by name and the registry's handle on a service.
#include "host/osp/ServiceRef.h"

#include <cstring>

namespace Poco {
namespace OSP {

Service::~Service() = default;

bool Service::isA(const std::type_info& otherType) const
{
    return std::strcmp(otherType.name(), typeid(Service).name()) == 0;
}

ServiceRef::ServiceRef(const std::string& name, const Properties& properties, Service::Ptr service)
    : name_(name), properties_(properties), service_(std::move(service))
{
}

} // namespace OSP
} // namespace Poco
