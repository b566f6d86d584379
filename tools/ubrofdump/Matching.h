// Names and numbers as people type them: source paths shown through --map-path, a source file named
// by the tail of its path, the closest names when nothing matches, and numbers in either base.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ubrofdump {

/// The --map-path substitutions: a stored source path that begins with FROM is shown with TO in
/// its place, and what follows FROM takes TO's path separator.
class PathMap {
public:
    /// Adds FROM=TO; throws a usage Failure for anything else.
    void add(const std::string& mapping);
    /// The path as shown: the first substitution whose FROM begins it wins.
    std::string shown(const std::string& stored) const;

private:
    std::vector<std::pair<std::string, std::string>> mappings_; // (FROM, TO) as given
};

/// A path compared the way the module compares source names: without regard to case, and with
/// '/' and '\' alike.
std::string comparable(const std::string& path);

/// The indexes of the sources that name matches, each source given as (stored, shown) paths: the
/// sources whose stored or shown path equals name when there are any, else those whose path ends
/// in name just after a separator (a base name, or a trailing part of the path).
std::vector<size_t> matchSources(const std::string& name,
                                 const std::vector<std::pair<std::string, std::string>>& sources);

/// Up to count candidates closest to wanted by edit distance, closest first (ties in the
/// candidates' order), leaving out those much farther than the closest. A wanted text with path
/// separators is compared with as many trailing components of each candidate.
std::vector<std::string> closest(const std::string& wanted, const std::vector<std::string>& candidates,
                                 size_t count);

/// "a, b and c"
std::string listed(const std::vector<std::string>& items);

/// A number as typed: decimal, or hexadecimal after 0x; a usage Failure naming what for anything else.
uint64_t parseNumber(const std::string& text, const char* what);

} // namespace ubrofdump
