// What ubrofdump asks the parser's views, gathered as JSON documents: one per command.
#pragma once

#include "host/IObjectfileParser.h"

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace ubrofdump {

/// A view the parser does not offer.
class MissingView : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The program counter of "no particular frame": locations then come from the symbols alone.
constexpr uint64_t kNoPc = 0xFFFFFFFF;

/// The answer of one command: the key it sits under, its value, and the host's status when
/// the host answered false (then the command found nothing).
struct Answer {
    std::string key;
    boost::json::value value;
    std::optional<boost::json::object> status;
};

class Report {
public:
    Report(boost::shared_ptr<tarn::IObjectfileParser> parser, std::string file);

    Answer summary() const;
    Answer segments(bool withData) const;
    Answer sources() const;
    Answer lines(uint64_t start, uint64_t end) const;
    Answer lineToAddress(const std::string& source, uint32_t line) const;
    /// Null value when no scope holds pc.
    Answer scope(uint64_t pc) const;
    Answer symbols(uint64_t pc) const;
    /// From the scope at pc when one is given, else from the scope context of scopeId, else globally.
    /// Null value when nothing is found.
    Answer lookup(const std::string& name, std::optional<uint64_t> pc, std::optional<std::string> scopeId) const;
    /// Null value when the ID names no context of the file.
    Answer context(const std::string& id) const;
    Answer compiler() const;

private:
    boost::shared_ptr<tarn::IObjectfileParser> parser_;
    std::string file_;
};

/// A context as JSON: its property list, storage class, type name, location at pc, and children.
boost::json::object contextJson(const tarn::ISymbolContext::Ptr& context, uint64_t pc, int depth = 0);

} // namespace ubrofdump
