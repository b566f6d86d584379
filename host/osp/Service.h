// The base of every object that lives in the service registry: reference counted and type-queryable.
#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/RefCountedObject.h>

#include <typeinfo>

namespace Poco {
namespace OSP {

class Service : public Poco::RefCountedObject {
public:
    using Ptr = Poco::AutoPtr<Service>;

    /// The run-time type of the service object.
    virtual const std::type_info& type() const = 0;
    /// True when the service can be treated as otherType. Types are compared by name,
    /// since a service and its user may sit in different shared libraries.
    virtual bool isA(const std::type_info& otherType) const;

protected:
    ~Service() override;
};

} // namespace OSP
} // namespace Poco
