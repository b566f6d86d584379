// The host framework's exception: a status carried out of an invalid call or a failed parse.
#pragma once

#include "host/Status.h"

#include <boost/shared_ptr.hpp>
#include <exception>

namespace tarn {

class CoreException : public std::exception {
public:
    explicit CoreException(boost::shared_ptr<IStatus> status);

    const boost::shared_ptr<IStatus>& getStatus() const { return status_; }
    ErrorCode getErrorCode() const { return status_->getErrorCode(); }
    const char* what() const noexcept override;

private:
    boost::shared_ptr<IStatus> status_;
};

} // namespace tarn
