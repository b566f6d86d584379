// The module's entry: the class-loader manifest and the activator that registers the parser factory.
#include "plugin/DebuggerUbrofBundleActivator.h"

#include "parser/UbrofParser.h"
#include "plugin/ObjectfileParserFactoryImpl.h"
#include "plugin/OspClassFactoryManager.h"

#include <Poco/ClassLibrary.h>
#include <boost/make_shared.hpp>

namespace ubrof {

using UbrofParserFactory = tarn::ObjectfileParserFactoryImpl<UbrofParser>;

void DebuggerUbrofBundleActivator::start(Poco::OSP::BundleContext::Ptr context)
{
    tarn::OspClassFactoryManager manager(context);
    manager.registerClassFactory<UbrofParserFactory>(boost::make_shared<UbrofParserFactory>());
}

void DebuggerUbrofBundleActivator::stop(Poco::OSP::BundleContext::Ptr) {}

DebuggerUbrofBundleActivator::~DebuggerUbrofBundleActivator() = default;

} // namespace ubrof

// The manifest names the class without its namespace: bundle properties refer to it so.
using ubrof::DebuggerUbrofBundleActivator;

POCO_BEGIN_MANIFEST(Poco::OSP::BundleActivator)
    POCO_EXPORT_CLASS(DebuggerUbrofBundleActivator)
POCO_END_MANIFEST
