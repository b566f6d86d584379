// The bundle's activator: registers the UBROF parser factory when the platform starts the bundle.
#pragma once

#include "host/osp/BundleActivator.h"

namespace ubrof {

class DebuggerUbrofBundleActivator : public Poco::OSP::BundleActivator {
public:
    void start(Poco::OSP::BundleContext::Ptr context) override;
    /// The factory stays registered: the platform owns it from start on.
    void stop(Poco::OSP::BundleContext::Ptr context) override;
    ~DebuggerUbrofBundleActivator() override;
};

} // namespace ubrof
