// Translation between source paths as an object file names them (private) and as the host shows them (public).
#pragma once

#include <string>

namespace tarn {

/// Every FileMapper of the process applies the same substitutions: the host
/// configures them once and each parser's mapper follows.
class FileMapper {
public:
    /// Paths that begin with privatePrefix are shown with publicPrefix in its place;
    /// the first substitution whose prefix matches wins.
    static void addSubstitution(const std::string& privatePrefix, const std::string& publicPrefix);
    static void clearSubstitutions();

    std::string GetPublicPath(const std::string& privatePath) const;
    std::string GetPrivatePath(const std::string& publicPath) const;
};

} // namespace tarn
