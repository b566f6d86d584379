// The platform's preferences: one configuration that hosts and bundles read settings from.
#pragma once

#include "host/osp/Service.h"

#include <Poco/AutoPtr.h>
#include <Poco/Util/AbstractConfiguration.h>

#include <string>

namespace Poco {
namespace OSP {

class PreferencesService : public Service {
public:
    using Ptr = Poco::AutoPtr<PreferencesService>;
    /// The name under which the subsystem registers its preferences.
    static const std::string SERVICE_NAME;

    explicit PreferencesService(Poco::AutoPtr<Poco::Util::AbstractConfiguration> configuration);

    /// May be null when the service was made without one.
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> configuration() const { return configuration_; }

    const std::type_info& type() const override;
    bool isA(const std::type_info& otherType) const override;

private:
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> configuration_;
};

} // namespace OSP
} // namespace Poco
