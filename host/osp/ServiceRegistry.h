// The platform's registry of services: registration under a unique name, lookup by name or by a property query.
#pragma once

#include "host/osp/ServiceRef.h"

#include <mutex>
#include <string>
#include <vector>

namespace Poco {
namespace OSP {

class ServiceRegistry {
public:
    ServiceRegistry() = default;
    ServiceRegistry(const ServiceRegistry&) = delete;
    ServiceRegistry& operator=(const ServiceRegistry&) = delete;

    /// Throws Poco::NullPointerException for a missing service and Poco::ExistsException
    /// when the name is taken.
    ServiceRef::Ptr registerService(const std::string& name, Service::Ptr service,
                                    const Properties& properties);
    /// Answers false when no service of that name is registered.
    bool unregisterService(const std::string& name);
    /// The service registered under name, or a null reference.
    ServiceRef::Ptr findByName(const std::string& name) const;
    /// Appends the services whose properties match query, in registration order, and answers
    /// how many were appended. A query is one or more terms key=="value" joined by &&; the key
    /// "name" also matches the service name. Throws Poco::SyntaxException for anything else.
    std::size_t find(const std::string& query, std::vector<ServiceRef::Ptr>& results) const;
    /// Drops every registration.
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<ServiceRef::Ptr> services_;
};

} // namespace OSP
} // namespace Poco
