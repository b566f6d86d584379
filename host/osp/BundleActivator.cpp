// BundleActivator: out of line, so that its type information lives once, in the platform library.
#include "host/osp/BundleActivator.h"

namespace Poco {
namespace OSP {

BundleActivator::BundleActivator() = default;
BundleActivator::~BundleActivator() = default;

} // namespace OSP
} // namespace Poco
