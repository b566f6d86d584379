// The linkers' maps and the compiler's listings beside the real files: accounts of the same programs
// that owe nothing to our reader, parsed for the tests that hold the program model against them.
//
// Two kinds of map occur. Most list each module's segment parts ("Relative segment, address: CODE
// 000004E0 - 000004F1 (0x12 bytes)"; the memory word is missing where code and data share one
// space), each with its entries and, under an entry, lines such as "interrupt function" and
// "CSTACK = 00000000 ( 00000004 )". The MSP430 one has an entry list instead: name, address,
// Pub or Loc, Code or Data, module. A map may be gzipped; zlib reads either.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace ubrof::test {

struct MapEntry {
    std::string module;
    std::string name;
    std::optional<uint32_t> address; ///< none where the map says N/A
    std::string memory;              ///< "CODE", "DATA" as the map says; empty when it does not
    uint32_t partAddress = 0;
    uint32_t partSize = 0;     ///< bytes of its segment part; 0 when the map gives none
    size_t partEntries = 0;    ///< entries its segment part defines
    bool isLocal = false;
    bool isFunction = false; ///< a line under it says so ("interrupt, non_banked function"); not every map does
    bool isInterrupt = false;
    /// Stack figures under the entry: "CSTACK = 00000004 ( 0000000A )".
    struct Stack {
        std::string segment;
        uint32_t first = 0;
        uint32_t second = 0; ///< the figure in parentheses
    };
    std::vector<Stack> stack;
};

struct LinkerMap {
    std::optional<uint32_t> entryPoint;
    std::vector<MapEntry> entries;

    /// The entry of that module and name, or nullptr.
    const MapEntry* find(const std::string& module, const std::string& name) const
    {
        for (const MapEntry& entry : entries)
            if (entry.module == module && entry.name == name)
                return &entry;
        return nullptr;
    }
};

/// The lines of a text file, gzipped or not; empty when it cannot be read.
inline std::vector<std::string> readTextLines(const std::string& path)
{
    std::vector<std::string> lines;
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> in(gzopen(path.c_str(), "rb"), &gzclose);
    if (!in)
        return lines;
    std::string line;
    char buffer[4096];
    while (gzgets(in.get(), buffer, sizeof buffer)) {
        line += buffer;
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(std::move(line));
            line.clear();
        }
    }
    if (!line.empty())
        lines.push_back(std::move(line));
    return lines;
}

inline uint32_t hexNumber(const std::string& text)
{
    return static_cast<uint32_t>(std::stoul(text, nullptr, 16));
}

inline LinkerMap readLinkerMap(const std::string& path)
{
    static const std::regex programEntry(R"(Program entry at :\s+(?:\w+\s+)?([0-9A-F]{8}))");
    static const std::regex module(R"(^\s+(?:PROGRAM|LIBRARY) MODULE, NAME : (\S+))");
    static const std::regex part(
        R"(^\s+(?:Relative|Common) segment, address: (?:([A-Z]+) +)?([0-9A-F]{8})(?: - [0-9A-F]{8} \(0x([0-9a-f]+) bytes\))?)");
    static const std::regex heading(R"(^ {11}(ENTRY|LOCAL) +ADDRESS)");
    static const std::regex entry(R"(^ {11}([^ =].*?) +([0-9A-F]{8})(?: .*)?$)");
    static const std::regex bareName(R"(^ {11}([^ =].*?)\s*$)");
    static const std::regex nextLineAddress(R"(^ {20,}([0-9A-F]{8})(?: .*)?$)");
    static const std::regex stack(R"(^ {15}(\w[\w ]*?) = ([0-9A-F]{8}) \( ([0-9A-F]{8}) \))");
    // The entry list: name, address (0x...) or N/A, Pub or Loc, Code or Data, module.
    static const std::regex listed(R"(^(\S(?:.*\S)?)\s+(0x[0-9A-Fa-f]+|N/A)\s+(Pub|Loc)\s+(?:(Code|Data)\s+)?(\S+))");
    static const std::regex listedEntry(R"(^\s+(0x[0-9A-Fa-f]+)\s+(?:\S+\s+)?(?:Relocatable|Absolute))");

    LinkerMap map;
    std::string currentModule;
    MapEntry partTemplate;
    size_t partStart = 0;
    bool local = false, pendingAddress = false, inEntryList = false, inProgramEntry = false;
    std::smatch m;
    for (const std::string& line : readTextLines(path)) {
        if (line.find("SEGMENTS IN ADDRESS ORDER") != std::string::npos)
            currentModule.clear();
        if (line.find("PROGRAM ENTRY") != std::string::npos) {
            inProgramEntry = true;
            continue;
        }
        if (inProgramEntry && std::regex_search(line, m, listedEntry)) {
            map.entryPoint = hexNumber(m[1]);
            inProgramEntry = false;
            continue;
        }
        if (std::regex_search(line, m, programEntry)) {
            map.entryPoint = hexNumber(m[1]);
            continue;
        }
        if (line.rfind("ENTRY ", 0) == 0 && line.find("MODULE") != std::string::npos) {
            inEntryList = true;
            continue;
        }
        if (inEntryList) {
            if (line.empty())
                inEntryList = false;
            else if (std::regex_search(line, m, listed)) {
                MapEntry e;
                e.name = m[1];
                if (m[2] != "N/A")
                    e.address = hexNumber(m[2].str().substr(2));
                e.isLocal = m[3] == "Loc";
                e.memory = m[4] == "Code" ? "CODE" : m[4] == "Data" ? "DATA" : "";
                e.module = m[5];
                map.entries.push_back(std::move(e));
            }
            continue;
        }
        if (std::regex_search(line, m, module)) {
            currentModule = m[1];
            pendingAddress = false;
        } else if (std::regex_search(line, m, part)) {
            for (size_t i = partStart; i < map.entries.size(); ++i)
                map.entries[i].partEntries = map.entries.size() - partStart;
            partStart = map.entries.size();
            partTemplate = MapEntry{};
            partTemplate.module = currentModule;
            partTemplate.memory = m[1];
            partTemplate.partAddress = hexNumber(m[2]);
            partTemplate.partSize = m[3].matched ? hexNumber(m[3]) : 0;
            local = pendingAddress = false;
        } else if (std::regex_search(line, m, heading)) {
            local = m[1] == "LOCAL";
        } else if (currentModule.empty() || line.find("=====") != std::string::npos) {
            continue;
        } else if (std::regex_match(line, m, entry)) {
            MapEntry e = partTemplate;
            e.name = m[1];
            e.address = hexNumber(m[2]);
            e.isLocal = local;
            map.entries.push_back(std::move(e));
            pendingAddress = false;
        } else if (std::regex_match(line, m, bareName)) {
            MapEntry e = partTemplate;
            e.name = m[1];
            e.isLocal = local;
            map.entries.push_back(std::move(e));
            pendingAddress = true;
        } else if (pendingAddress && std::regex_match(line, m, nextLineAddress)) {
            map.entries.back().address = hexNumber(m[1]);
            pendingAddress = false;
        } else if (map.entries.size() > partStart && line.find(" function") != std::string::npos) {
            map.entries.back().isFunction = true;
            map.entries.back().isInterrupt |= line.find("interrupt") != std::string::npos;
        } else if (map.entries.size() > partStart && std::regex_search(line, m, stack)) {
            map.entries.back().stack.push_back({m[1], hexNumber(m[2]), hexNumber(m[3])});
        }
    }
    for (size_t i = partStart; i < map.entries.size(); ++i)
        map.entries[i].partEntries = map.entries.size() - partStart;
    // The entry list names a module taken from a library with the library's number: "?cstart [1]".
    for (MapEntry& e : map.entries)
        if (const size_t bracket = e.module.find(" ["); bracket != std::string::npos)
            e.module.resize(bracket);
    return map;
}

/// A statement of a compiler listing: the source line it is printed under, and where its code lies.
struct ListedStatement {
    std::string function;
    uint32_t line = 0;
    uint32_t address = 0;
    std::string hex;       ///< its first instruction as listed: 16-bit words, high digit first
    bool startsStatement;  ///< the first code printed under its line
};

/// A function of a listing: its label follows the number of the line that names it.
struct ListedFunction {
    std::string module;
    std::string name;
    uint32_t line = 0;
    uint32_t address = 0;
};

struct Listings {
    std::vector<ListedStatement> statements;
    std::vector<ListedFunction> functions;
};

/// The code lines of every listing in folder ("\   OFFSET   BYTES   INSTRUCTION", the offset counted
/// from the segment part of the function whose label came last), placed by the map's entries of the
/// module named like the listing. Code the linker left out is left out.
inline Listings readListings(const std::string& folder, const std::vector<std::string>& names, const LinkerMap& map)
{
    static const std::regex number(R"(^\s+(\d+)$)");
    static const std::regex segment(R"(^\s+\\\s+In\s+segment (\S+?),)");
    static const std::regex label(R"(^\s+\\\s+([A-Za-z_?][\w?]*):\s*$)");
    static const std::regex code(R"(^\s+\\\s+([0-9A-F]{8})\s{3}([0-9A-F.]+)\s)");
    Listings listed;
    for (const std::string& name : names) {
        const std::string module = name.substr(0, name.rfind('.'));
        uint32_t line = 0;
        bool pending = false, inCode = false;
        std::string function;
        std::smatch m;
        for (const std::string& text : readTextLines(folder + "/" + name)) {
            if (std::regex_search(text, m, number)) {
                line = static_cast<uint32_t>(std::stoul(m[1]));
                pending = true;
            } else if (std::regex_search(text, m, segment)) {
                inCode = m[1] == "CODE";
                function.clear();
            } else if (std::regex_search(text, m, label)) {
                if (m[1].str().rfind("??", 0) == 0)
                    continue; // a branch target inside the function
                function = m[1];
                const MapEntry* placed = map.find(module, function);
                if (inCode && placed && placed->address && placed->memory == "CODE")
                    listed.functions.push_back({module, function, line, *placed->address});
            } else if (inCode && !function.empty() && std::regex_search(text, m, code)) {
                const MapEntry* placed = map.find(module, function);
                if (!placed || !placed->address || placed->memory != "CODE")
                    continue;
                listed.statements.push_back({function, line, *placed->address + hexNumber(m[1]), m[2], pending});
                pending = false;
            }
        }
    }
    return listed;
}

} // namespace ubrof::test
