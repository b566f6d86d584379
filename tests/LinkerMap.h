// Test support: the segment parts of a linker map and the entries each defines, an account of a
// real program that owes nothing to our reader.
#pragma once

#include "TestFiles.h"

#include <cstdint>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace ubrof::test {

// One segment part of a linker map: where it lies and the entries it defines.
struct MapPart {
    std::string memory; ///< CODE or DATA
    uint32_t address = 0;
    uint32_t size = 0; ///< 0 when the map gives none
    struct Entry {
        std::string name;
        uint32_t address = 0;
        bool isFunction = false;
        bool isInterrupt = false;
    };
    std::vector<Entry> entries;
};

// Reads the segment parts of a map: a "segment, address:" line opens one, an entry is a name
// (its address on the same line or the next), and a line that says "function" marks the entry
// above it.
inline std::vector<MapPart> readMap(const std::string& relative)
{
    std::ifstream in(realFile(relative));
    const std::regex part(R"(segment, address: (\w+) +([0-9A-F]{8})(?: - [0-9A-F]{8} \(0x([0-9a-f]+) bytes\))?)");
    const std::regex entry(R"(^ {11}([A-Za-z_]\w*)(?: +([0-9A-F]{8}))?\s*(?: .*)?$)");
    const std::regex address(R"(^ {20,}([0-9A-F]{8})\s*$)");
    std::vector<MapPart> parts;
    std::smatch match;
    bool pendingAddress = false;
    for (std::string line; std::getline(in, line);) {
        if (std::regex_search(line, match, part)) {
            parts.push_back({match[1], static_cast<uint32_t>(std::stoul(match[2], nullptr, 16)),
                             match[3].matched ? static_cast<uint32_t>(std::stoul(match[3], nullptr, 16)) : 0, {}});
        } else if (parts.empty()) {
            continue;
        } else if (std::regex_match(line, match, entry) && match[1] != "ENTRY") {
            parts.back().entries.push_back({match[1], 0, false, false});
            pendingAddress = !match[2].matched;
            if (match[2].matched)
                parts.back().entries.back().address = static_cast<uint32_t>(std::stoul(match[2], nullptr, 16));
        } else if (pendingAddress && std::regex_match(line, match, address)) {
            parts.back().entries.back().address = static_cast<uint32_t>(std::stoul(match[1], nullptr, 16));
            pendingAddress = false;
        } else if (!parts.back().entries.empty() && line.find(" function") != std::string::npos) {
            parts.back().entries.back().isFunction = true;
            parts.back().entries.back().isInterrupt = line.find("interrupt") != std::string::npos;
        }
    }
    return parts;
}

} // namespace ubrof::test
