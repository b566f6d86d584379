// What ubrofdump asks the parser's views, gathered as JSON documents: one per command.
#pragma once

#include "host/IObjectfileParser.h"
#include "tools/ubrofdump/Json.h"
#include "tools/ubrofdump/Matching.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace ubrofdump {

/// The program counter of "no particular frame": locations then come from the symbols alone.
constexpr uint64_t kNoPc = 0xFFFFFFFF;

/// The largest context ID: the host reads IDs as signed 32-bit numbers.
constexpr uint64_t kMaxContextId = 0x7FFFFFFF;

/// The answer of one command: the key it sits under in the JSON document, and its value.
/// Commands that find nothing throw a Failure instead.
struct Answer {
    std::string key;
    boost::json::value value;
};

/// How many hex digits the addresses of each memory are printed with.
struct AddressWidths {
    std::map<std::string, int> digits; ///< by memory-space name
    int of(const std::string& memory) const;
};

class Report {
public:
    /// Source paths are shown through paths.
    Report(boost::shared_ptr<tarn::IObjectfileParser> parser, std::string file, const PathMap& paths);

    Answer summary() const;
    Answer segments(bool withData) const;
    Answer sources() const;
    Answer lines(uint64_t start, uint64_t end) const;
    /// source may be any path that matchSources() accepts.
    Answer lineToAddress(const std::string& source, uint32_t line) const;
    Answer scope(uint64_t pc) const;
    Answer symbols(uint64_t pc) const;
    /// From the scope at pc when one is given, else from the scope context scopeId, else globally.
    Answer lookup(const std::string& name, std::optional<uint64_t> pc, std::optional<uint64_t> scopeId) const;
    Answer context(uint64_t id) const;
    Answer compiler() const;

    /// From the program segments: each memory's width covers the highest address its segments reach.
    AddressWidths addressWidths() const;

private:
    bool isContext(uint64_t id) const;
    std::vector<std::pair<std::string, std::string>> sourcePaths() const; ///< (stored, shown)

    boost::shared_ptr<tarn::IObjectfileParser> parser_;
    std::string file_;
    const PathMap& paths_;
};

} // namespace ubrofdump
