// Matching: forgiving comparisons of paths and names, for what people type on a command line.
#include "tools/ubrofdump/Matching.h"

#include "tools/ubrofdump/Json.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <numeric>

namespace ubrofdump {
namespace {

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

// The last components of path, as many as wanted has.
std::string lastComponents(const std::string& path, const std::string& wanted)
{
    size_t components = 1 + std::count_if(wanted.begin(), wanted.end(), isSeparator);
    size_t start = path.size();
    while (start > 0 && components > 0) {
        --start;
        if (isSeparator(path[start]) && --components == 0) {
            ++start;
            break;
        }
    }
    return path.substr(start);
}

size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<size_t> previous(b.size() + 1), current(b.size() + 1);
    std::iota(previous.begin(), previous.end(), size_t(0));
    for (size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= b.size(); ++j)
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (a[i - 1] != b[j - 1])});
        std::swap(previous, current);
    }
    return previous[b.size()];
}

// Names come from files of any origin; comparing only their ends keeps the cost per pair bounded.
constexpr size_t kComparedLength = 64;

std::string tail(const std::string& text)
{
    return text.size() > kComparedLength ? text.substr(text.size() - kComparedLength) : text;
}

} // namespace

void PathMap::add(const std::string& mapping)
{
    const size_t equals = mapping.find('=');
    if (equals == std::string::npos || equals == 0)
        throw usageError("--map-path wants FROM=TO, not " + mapping);
    mappings_.emplace_back(mapping.substr(0, equals), mapping.substr(equals + 1));
}

std::string PathMap::shown(const std::string& stored) const
{
    const std::string storedKey = comparable(stored);
    for (const auto& [from, to] : mappings_) {
        if (storedKey.compare(0, from.size(), comparable(from)) != 0)
            continue;
        // A path written on another system keeps its separators after FROM unless they are
        // rewritten too; without a separator in TO, the one of this system.
        const bool backslashes = to.find('\\') != std::string::npos && to.find('/') == std::string::npos;
        std::string rest = stored.substr(from.size());
        std::replace_if(rest.begin(), rest.end(), isSeparator, backslashes ? '\\' : '/');
        return to + rest;
    }
    return stored;
}

std::string comparable(const std::string& path)
{
    std::string result = path;
    for (char& c : result)
        c = c == '\\' ? '/' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::vector<size_t> matchSources(const std::string& name,
                                 const std::vector<std::pair<std::string, std::string>>& sources)
{
    const std::string wanted = comparable(name);
    std::vector<size_t> equal, ending;
    if (wanted.empty())
        return equal;
    for (size_t i = 0; i < sources.size(); ++i) {
        bool isEqual = false, endsWith = false;
        for (const std::string& path : {sources[i].first, sources[i].second}) {
            const std::string candidate = comparable(path);
            isEqual = isEqual || candidate == wanted;
            const size_t at = candidate.size() - std::min(candidate.size(), wanted.size());
            endsWith = endsWith || (candidate.size() > wanted.size() && candidate.compare(at, wanted.size(), wanted) == 0 &&
                                    (candidate[at - 1] == '/' || wanted[0] == '/'));
        }
        if (isEqual)
            equal.push_back(i);
        else if (endsWith)
            ending.push_back(i);
    }
    return equal.empty() ? ending : equal;
}

std::vector<std::string> closest(const std::string& wanted, const std::vector<std::string>& candidates, size_t count)
{
    const std::string key = tail(comparable(wanted));
    std::vector<std::pair<size_t, size_t>> ranked; // (distance, candidate)
    for (size_t i = 0; i < candidates.size(); ++i)
        ranked.emplace_back(editDistance(key, tail(comparable(lastComponents(candidates[i], wanted)))), i);
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    // Names much farther than the best one are no help: a typo is a few edits away.
    std::vector<std::string> result;
    const size_t slack = std::max<size_t>(2, key.size() / 4);
    for (size_t i = 0; i < ranked.size() && i < count && ranked[i].first <= ranked[0].first + slack; ++i)
        result.push_back(candidates[ranked[i].second]);
    return result;
}

std::string listed(const std::vector<std::string>& items)
{
    std::string text;
    for (size_t i = 0; i < items.size(); ++i)
        text += (i == 0 ? "" : i + 1 == items.size() ? " and " : ", ") + items[i];
    return text;
}

uint64_t parseNumber(const std::string& text, const char* what)
{
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = isHex ? text.substr(2) : text;
    const char* allowed = isHex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos)
        throw usageError(std::string("not a number for ") + what + ": " + text +
                         " (numbers are decimal, or hexadecimal after 0x)");
    errno = 0;
    const unsigned long long value = std::strtoull(digits.c_str(), nullptr, isHex ? 16 : 10);
    if (errno == ERANGE)
        throw usageError(std::string("number too large for ") + what + ": " + text);
    return value;
}

} // namespace ubrofdump
