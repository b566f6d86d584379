// The module's entry: the class-loader manifest and the activator that registers the parser factory.
#include "plugin/DebuggerUbrofBundleActivator.h"

#include "plugin/OspClassFactoryManager.h"
#include "plugin/UbrofParserFactory.h"

#include <Poco/ClassLibrary.h>
#include <boost/make_shared.hpp>

namespace ubrof {

void DebuggerUbrofBundleActivator::start(Poco::OSP::BundleContext::Ptr context)
{
    // The factory outlives this manager; it reads the preferences through one of its own.
    auto preferences = [context](const std::string& key) {
        try {
            return tarn::OspClassFactoryManager(context).getPreference(key);
        } catch (const Poco::Exception&) {
            return std::string(); // a platform without preferences: every setting at its default
        }
    };
    tarn::OspClassFactoryManager manager(context);
    manager.registerClassFactory<UbrofParserFactory>(boost::make_shared<UbrofParserFactory>(preferences));
}

void DebuggerUbrofBundleActivator::stop(Poco::OSP::BundleContext::Ptr) {}

DebuggerUbrofBundleActivator::~DebuggerUbrofBundleActivator() = default;

} // namespace ubrof

// The manifest names the class without its namespace: bundle properties refer to it so.
using ubrof::DebuggerUbrofBundleActivator;

POCO_BEGIN_MANIFEST(Poco::OSP::BundleActivator)
    POCO_EXPORT_CLASS(DebuggerUbrofBundleActivator)
POCO_END_MANIFEST
