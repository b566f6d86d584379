// ServiceRegistry: registrations in order, and the small query language of property filters.
#include "host/osp/ServiceRegistry.h"

#include <Poco/Exception.h>

#include <cctype>
#include <utility>

namespace Poco {
namespace OSP {
namespace {

using Term = std::pair<std::string, std::string>; // key, value

void skipBlanks(const std::string& text, size_t& at)
{
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
        ++at;
}

bool isKeyCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '-';
}

// key=="value" [&& key=="value" ...]; values are plain text between double quotes.
std::vector<Term> parseQuery(const std::string& query)
{
    std::vector<Term> terms;
    size_t at = 0;
    for (;;) {
        skipBlanks(query, at);
        const size_t keyStart = at;
        while (at < query.size() && isKeyCharacter(query[at]))
            ++at;
        if (at == keyStart)
            throw Poco::SyntaxException("service query: a property name expected", query);
        std::string key = query.substr(keyStart, at - keyStart);
        skipBlanks(query, at);
        if (query.compare(at, 2, "==") != 0)
            throw Poco::SyntaxException("service query: == expected", query);
        at += 2;
        skipBlanks(query, at);
        if (at >= query.size() || query[at] != '"')
            throw Poco::SyntaxException("service query: a quoted value expected", query);
        const size_t close = query.find('"', at + 1);
        if (close == std::string::npos)
            throw Poco::SyntaxException("service query: unterminated value", query);
        terms.emplace_back(std::move(key), query.substr(at + 1, close - at - 1));
        at = close + 1;
        skipBlanks(query, at);
        if (at == query.size())
            return terms;
        if (query.compare(at, 2, "&&") != 0)
            throw Poco::SyntaxException("service query: && expected", query);
        at += 2;
    }
}

bool matches(const ServiceRef& service, const std::vector<Term>& terms)
{
    for (const auto& [key, value] : terms) {
        if (service.properties().has(key)) {
            if (service.properties().get(key) != value)
                return false;
        } else if (key != "name" || service.name() != value) {
            return false;
        }
    }
    return true;
}

} // namespace

ServiceRef::Ptr ServiceRegistry::registerService(const std::string& name, Service::Ptr service,
                                                 const Properties& properties)
{
    if (!service)
        throw Poco::NullPointerException("registerService", name);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const ServiceRef::Ptr& registered : services_)
        if (registered->name() == name)
            throw Poco::ExistsException("service", name);
    ServiceRef::Ptr reference(new ServiceRef(name, properties, std::move(service)));
    services_.push_back(reference);
    return reference;
}

bool ServiceRegistry::unregisterService(const std::string& name)
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = services_.begin(); it != services_.end(); ++it) {
        if ((*it)->name() == name) {
            services_.erase(it);
            return true;
        }
    }
    return false;
}

ServiceRef::Ptr ServiceRegistry::findByName(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (const ServiceRef::Ptr& registered : services_)
        if (registered->name() == name)
            return registered;
    return {};
}

std::size_t ServiceRegistry::find(const std::string& query, std::vector<ServiceRef::Ptr>& results) const
{
    const std::vector<Term> terms = parseQuery(query);
    std::lock_guard<std::mutex> lock(mutex_);
    std::size_t found = 0;
    for (const ServiceRef::Ptr& registered : services_) {
        if (matches(*registered, terms)) {
            results.push_back(registered);
            ++found;
        }
    }
    return found;
}

void ServiceRegistry::clear()
{
    // Released outside the lock: a service's destructor may call back into the registry.
    std::vector<ServiceRef::Ptr> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        released.swap(services_);
    }
}

} // namespace OSP
} // namespace Poco
