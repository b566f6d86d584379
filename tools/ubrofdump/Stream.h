// Writers for answers that are too large to hold: the context trees go out, as text or JSON,
// while they are walked.
#pragma once

#include "tools/ubrofdump/Report.h"
#include "tools/ubrofdump/Text.h"

#include <boost/json/value.hpp>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace ubrofdump {

/// Writes one JSON document piece by piece, in printJson's layout: whole values are laid out as
/// printJson lays them out, and containers opened here hold one element or entry per line.
class JsonStream {
public:
    explicit JsonStream(std::ostream& out) : out_(out) {}

    void beginObject();
    void beginArray();
    /// Closes the innermost open object or array.
    void end();
    /// The key of the next entry of the innermost open object.
    void key(const std::string& name);
    void value(const boost::json::value& value);
    /// How many objects and arrays are open.
    size_t depth() const { return open_.size(); }
    /// Closes open containers until depth() is depth: what was written stays a valid document.
    void closeTo(size_t depth);

private:
    struct Open {
        bool array;
        bool empty;
    };
    void element(); ///< begins the next element or entry value of the innermost container

    std::ostream& out_;
    std::vector<Open> open_;
    bool keyWritten_ = false;
};

/// Writes a context tree into a JSON document: each context as an object whose "Children" array
/// holds its children; then the types under "Types" beside the tree's own key.
class JsonTreeWriter : public ContextSink {
public:
    explicit JsonTreeWriter(JsonStream& json) : json_(json) {}
    void enter(const boost::json::object& context, int depth) override;
    void leave(int depth) override;
    void beginTypes() override;
    void endTypes() override;

private:
    JsonStream& json_;
};

/// Writes a context tree as the text form's table under its title, then the types the tree
/// names as a second table.
class TextTreeWriter : public ContextSink {
public:
    TextTreeWriter(std::ostream& out, const std::string& title, const AddressWidths& widths);
    void enter(const boost::json::object& context, int depth) override;
    void leave(int) override {}
    void beginTypes() override;
    void endTypes() override;
    /// Writes the rows still held, so that a walk that fails half-way loses none it made.
    void finish();

private:
    std::ostream& out_;
    const AddressWidths& widths_;
    std::optional<Table> table_;
};

/// How many rows of a context tree's table are aligned together: enough for the trees of real
/// programs, and at most a few megabytes held (every cell but the location is cut at 40 characters).
constexpr size_t kTreeRowWindow = 1024;

/// Writes an answer that comes with a walk, as one JSON document or as text. A failure met
/// during the walk leaves the JSON document whole, with an "Error" beside the answer, and
/// answers the failure's exit status; in the text form, the rows written so far stay and the
/// failure is thrown on.
int writeTree(std::ostream& out, const Answer& answer, const TextRequest& request, bool json);

} // namespace ubrofdump
