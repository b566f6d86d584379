// FileMapper: a process-wide list of prefix substitutions; no match is the identity.
#include "host/FileMapper.h"

#include <mutex>
#include <utility>
#include <vector>

namespace tarn {
namespace {

struct Substitutions {
    std::mutex mutex;
    std::vector<std::pair<std::string, std::string>> pairs; // (private, public)
};

Substitutions& substitutions()
{
    static Substitutions instance;
    return instance;
}

bool hasPrefix(const std::string& path, const std::string& prefix)
{
    return !prefix.empty() && path.compare(0, prefix.size(), prefix) == 0;
}

// fromPrivate: map private to public; otherwise public to private.
std::string translate(const std::string& path, bool fromPrivate)
{
    Substitutions& all = substitutions();
    std::lock_guard<std::mutex> lock(all.mutex);
    for (const auto& [privatePrefix, publicPrefix] : all.pairs) {
        const std::string& from = fromPrivate ? privatePrefix : publicPrefix;
        const std::string& to = fromPrivate ? publicPrefix : privatePrefix;
        if (hasPrefix(path, from))
            return to + path.substr(from.size());
    }
    return path;
}

} // namespace

void FileMapper::addSubstitution(const std::string& privatePrefix, const std::string& publicPrefix)
{
    Substitutions& all = substitutions();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.pairs.emplace_back(privatePrefix, publicPrefix);
}

void FileMapper::clearSubstitutions()
{
    Substitutions& all = substitutions();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.pairs.clear();
}

std::string FileMapper::GetPublicPath(const std::string& privatePath) const
{
    return translate(privatePath, true);
}

std::string FileMapper::GetPrivatePath(const std::string& publicPath) const
{
    return translate(publicPath, false);
}

} // namespace tarn
