// Properties: an ordered map, so that listings come out the same on every run.
#include "host/osp/Properties.h"

#include <Poco/Exception.h>

namespace Poco {
namespace OSP {

void Properties::set(const std::string& key, const std::string& value)
{
    values_[key] = value;
}

bool Properties::has(const std::string& key) const
{
    return values_.count(key) != 0;
}

const std::string& Properties::get(const std::string& key) const
{
    auto it = values_.find(key);
    if (it == values_.end())
        throw Poco::NotFoundException("service property", key);
    return it->second;
}

std::string Properties::get(const std::string& key, const std::string& defaultValue) const
{
    auto it = values_.find(key);
    return it == values_.end() ? defaultValue : it->second;
}

void Properties::keys(std::vector<std::string>& keys) const
{
    for (const auto& entry : values_)
        keys.push_back(entry.first);
}

} // namespace OSP
} // namespace Poco
