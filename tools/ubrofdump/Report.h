// What ubrofdump asks the parser's views, gathered as JSON documents: one per command.
#pragma once

#include "host/IObjectfileParser.h"
#include "host/ISymbolContext.h"
#include "tools/ubrofdump/Json.h"
#include "tools/ubrofdump/Matching.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ubrofdump {

/// The program counter of "no particular frame": locations then come from the symbols alone.
constexpr uint64_t kNoPc = 0xFFFFFFFF;

/// The largest context ID: the host reads IDs as signed 32-bit numbers.
constexpr uint64_t kMaxContextId = 0x7FFFFFFF;

/// Receives a context tree depth first, as it is walked, so that it can be written as it comes:
/// first the tree, then the types it names, each once.
class ContextSink {
public:
    virtual ~ContextSink() = default;
    /// A context's fields, everything but its children; its children follow, then leave().
    virtual void enter(const boost::json::object& context, int depth) = 0;
    virtual void leave(int depth) = 0;
    /// The types follow, each entered at depth 0 with its members as its children.
    virtual void beginTypes() = 0;
    virtual void endTypes() = 0;
};

/// The answer of one command: the key it sits under in the JSON document, and its value.
/// Commands that find nothing throw a Failure instead, before anything is written.
struct Answer {
    Answer() = default;
    Answer(std::string key, boost::json::value value) : key(std::move(key)), value(std::move(value)) {}

    std::string key;
    boost::json::value value;
    /// Set instead of value for the context trees, which can outgrow memory: walks the tree
    /// into a sink. It may still fail half-way.
    std::function<void(ContextSink&)> walk;
};

/// How many hex digits the addresses of each memory are printed with.
struct AddressWidths {
    std::map<std::string, int> digits; ///< by memory-space name
    int of(const std::string& memory) const;
    /// Widens memory's addresses, in whole bytes, until highest fits.
    void cover(const std::string& memory, uint64_t highest);
};

/// Where the program model places a name the module does not know qualified ("Class::method"),
/// so that the module's own context for it can be found: by its plain name and its place.
struct PlacedName {
    std::string name;  ///< the last part of the qualified name, as the module names it
    bool isFunction = false;
    uint64_t low = 0;  ///< a function: its code [low, high); a variable: its address
    uint64_t high = 0;
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
    // The context trees: a type's members are listed under the type, and under a variable of
    // that type too when members is set.
    Answer scope(uint64_t pc, bool members) const;
    Answer symbols(uint64_t pc, bool members) const;
    /// From the scope at pc when one is given, else from the scope context scopeId, else globally.
    Answer lookup(const std::string& name, std::optional<uint64_t> pc, std::optional<uint64_t> scopeId,
                  bool members) const;
    Answer context(uint64_t id, bool members) const;
    /// The module's context of the first candidate it has one for: a function whose scope lies
    /// within the candidate's code, or a variable at the candidate's address.
    Answer lookupPlaced(const std::string& qualified, const std::vector<PlacedName>& candidates, bool members) const;
    Answer compiler() const;

    /// From the program segments: each memory's width covers the highest address its segments reach.
    AddressWidths addressWidths() const;

private:
    Answer tree(std::string key, tarn::ISymbolContext::Ptr context, uint64_t pc, bool members) const;
    bool isContext(uint64_t id) const;
    std::vector<std::pair<std::string, std::string>> sourcePaths() const; ///< (stored, shown)

    boost::shared_ptr<tarn::IObjectfileParser> parser_;
    std::string file_;
    const PathMap& paths_;
};

} // namespace ubrofdump
