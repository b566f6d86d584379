// Key/value properties that a service is registered with and that registry queries match.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Poco {
namespace OSP {

class Properties {
public:
    void set(const std::string& key, const std::string& value);
    bool has(const std::string& key) const;
    /// Throws Poco::NotFoundException for a key that is not set.
    const std::string& get(const std::string& key) const;
    std::string get(const std::string& key, const std::string& defaultValue) const;
    void keys(std::vector<std::string>& keys) const;

private:
    std::map<std::string, std::string> values_;
};

} // namespace OSP
} // namespace Poco
