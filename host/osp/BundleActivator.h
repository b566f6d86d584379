// What a bundle's module exports through its class-loader manifest: started and stopped by the platform.
#pragma once

#include "host/osp/BundleContext.h"

namespace Poco {
namespace OSP {

class BundleActivator {
public:
    BundleActivator();
    virtual void start(BundleContext::Ptr context) = 0;
    virtual void stop(BundleContext::Ptr context) = 0;
    virtual ~BundleActivator();

    BundleActivator(const BundleActivator&) = delete;
    BundleActivator& operator=(const BundleActivator&) = delete;
};

} // namespace OSP
} // namespace Poco
