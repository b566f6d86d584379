// The common face of the host's contexts: an ID, a parent, a property list, an owner.
#pragma once

#include <boost/json/object.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/slot.hpp>
#include <cstdint>
#include <string>

namespace tarn {

/// Name/value pairs in insertion order: text, int64, uint64 and array values.
using PropertyList = boost::json::object;

class IContextBase {
public:
    using ContextChangedSlot = boost::signals2::slot<void(boost::shared_ptr<IContextBase>)>;

    virtual ~IContextBase() = default;
    virtual std::string getId() const = 0;
    virtual boost::shared_ptr<IContextBase> getParent() const = 0;
    virtual PropertyList getProperties() const = 0;
    virtual void setProperties(const PropertyList& properties) = 0;
    virtual boost::signals2::connection addContextChangedHandler(const ContextChangedSlot& slot) = 0;
    virtual int32_t getOwner() const = 0;
    virtual void setOwner(int32_t owner) = 0;
};

} // namespace tarn
