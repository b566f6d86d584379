// ubrofdump's side of the platform: loads the parser bundle and finds its factory by category,
// as a debugger would, without linking any of the module's code.
#pragma once

#include "host/IQnClassFactory.h"
#include "host/osp/OSPSubsystem.h"

#include <boost/shared_ptr.hpp>
#include <stdexcept>
#include <string>

namespace ubrofdump {

/// The module could not be loaded, started, or offers no parser factory.
class PluginError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The platform preference through which a host lets the module read format versions 10 and 11.
/// A host learns it from the module's documentation, as ubrofdump does: nothing of the module is
/// linked into a host.
inline constexpr const char* kReadNewerVersionsPreference = "com.quarnel.tarndbg.ubrof.readNewerVersions";

class Host {
public:
    /// Installs and starts the bundle of the module file or module directory at path, on a
    /// platform whose preferences let the module read format versions 10 and 11 when
    /// readNewerVersions is set, and leave it at its default otherwise.
    Host(const std::string& path, bool readNewerVersions);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// The registered object-file parser factory (the first, when several are).
    boost::shared_ptr<tarn::IObjectfileParserFactory> parserFactory();

    /// The module directory of an installed ubrofdump, else the build's.
    static std::string defaultModulePath();

private:
    Poco::OSP::OSPSubsystem platform_;
};

} // namespace ubrofdump
