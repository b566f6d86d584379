// A registered service as the registry hands it out: its name, its properties and the service itself.
#pragma once

#include "host/osp/Properties.h"
#include "host/osp/Service.h"

#include <string>

namespace Poco {
namespace OSP {

class ServiceRef : public Poco::RefCountedObject {
public:
    using Ptr = Poco::AutoPtr<ServiceRef>;

    ServiceRef(const std::string& name, const Properties& properties, Service::Ptr service);

    const std::string& name() const { return name_; }
    const Properties& properties() const { return properties_; }
    Service::Ptr instance() const { return service_; }

private:
    std::string name_;
    Properties properties_;
    Service::Ptr service_;
};

} // namespace OSP
} // namespace Poco
