// Lets an object held by a boost shared pointer live in the platform's service registry.
#pragma once

#include "host/osp/Service.h"

#include <boost/shared_ptr.hpp>

#include <cstring>
#include <typeinfo>

namespace tarn {

template <typename T>
class OspService : public Poco::OSP::Service {
public:
    using Ptr = Poco::AutoPtr<OspService>;

    explicit OspService(boost::shared_ptr<T> object) : object_(std::move(object)) {}

    const std::type_info& type() const override { return typeid(*this); }

    bool isA(const std::type_info& otherType) const override
    {
        // By name: the registering module and the asking host each have their own type_info.
        if (std::strcmp(otherType.name(), typeid(*this).name()) == 0)
            return true;
        return Poco::OSP::Service::isA(otherType);
    }

    /// The wrapped object, shared with the registry.
    boost::shared_ptr<T> getObject() const { return object_; }

private:
    boost::shared_ptr<T> object_;
};

} // namespace tarn
