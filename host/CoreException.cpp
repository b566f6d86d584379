// CoreException: never without a status, so that catchers can always read one.
#include "host/CoreException.h"

#include <boost/make_shared.hpp>

namespace tarn {

CoreException::CoreException(boost::shared_ptr<IStatus> status) : status_(std::move(status))
{
    if (!status_)
        status_ = boost::make_shared<Status>();
}

const char* CoreException::what() const noexcept
{
    return status_->getMessage().c_str();
}

} // namespace tarn
