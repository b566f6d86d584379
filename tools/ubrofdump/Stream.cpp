// Stream: the context trees are written while they are walked, so that what ubrofdump holds does
// not grow with the tree.
#include "tools/ubrofdump/Stream.h"

#include "host/CoreException.h"

#include <boost/json/serialize.hpp>

#include <optional>

namespace ubrofdump {
namespace {

namespace json = boost::json;

// Runs write and answers how it failed, told as every other failure of a command is told.
template <typename Write>
std::optional<Failure> attempt(Write&& write)
{
    try {
        write();
        return std::nullopt;
    } catch (const Failure& failure) {
        return failure;
    } catch (const tarn::CoreException& e) {
        return refusedRequest(e);
    } catch (const std::exception& e) {
        return unexpectedFailure(e);
    }
}

} // namespace

void JsonStream::element()
{
    if (open_.empty())
        return;
    Open& innermost = open_.back();
    if (!innermost.array) {
        keyWritten_ = false; // key() wrote the separator
        return;
    }
    out_ << (innermost.empty ? "\n" : ",\n") << std::string(2 * open_.size(), ' ');
    innermost.empty = false;
}

void JsonStream::beginObject()
{
    element();
    out_ << "{";
    open_.push_back({false, true});
}

void JsonStream::beginArray()
{
    element();
    out_ << "[";
    open_.push_back({true, true});
}

void JsonStream::key(const std::string& name)
{
    Open& innermost = open_.back();
    out_ << (innermost.empty ? "\n" : ",\n") << std::string(2 * open_.size(), ' ')
         << json::serialize(json::value(name)) << ": ";
    innermost.empty = false;
    keyWritten_ = true;
}

void JsonStream::value(const json::value& value)
{
    element();
    printJsonAt(out_, value, static_cast<int>(2 * open_.size()));
    if (open_.empty())
        out_ << "\n";
}

void JsonStream::end()
{
    const Open closed = open_.back();
    open_.pop_back();
    if (!closed.empty)
        out_ << "\n" << std::string(2 * open_.size(), ' ');
    out_ << (closed.array ? "]" : "}");
    if (open_.empty())
        out_ << "\n";
}

void JsonStream::closeTo(size_t depth)
{
    // A key whose value never came still needs one.
    if (keyWritten_)
        value(nullptr);
    while (open_.size() > depth)
        end();
}

void JsonTreeWriter::enter(const json::object& context, int)
{
    json_.beginObject();
    for (const auto& entry : context) {
        json_.key(entry.key());
        json_.value(entry.value());
    }
    json_.key("Children");
    json_.beginArray();
}

void JsonTreeWriter::leave(int)
{
    json_.end(); // the children
    json_.end(); // the context
}

void JsonTreeWriter::beginTypes()
{
    json_.key("Types");
    json_.beginArray();
}

void JsonTreeWriter::endTypes()
{
    json_.end();
}

TextTreeWriter::TextTreeWriter(std::ostream& out, const std::string& title, const AddressWidths& widths)
    : out_(out), widths_(widths)
{
    out_ << title << ":\n\n";
    table_.emplace(out_, contextHeader(), kTreeRowWindow);
}

void TextTreeWriter::enter(const json::object& context, int depth)
{
    // The types table is begun by its first type: a tree that names none shows no empty table.
    if (!table_) {
        out_ << "\nTypes named above:\n\n";
        table_.emplace(out_, contextHeader(), kTreeRowWindow);
    }
    table_->add(contextRow(context, depth, widths_));
}

void TextTreeWriter::beginTypes()
{
    finish();
}

void TextTreeWriter::endTypes()
{
    finish();
}

void TextTreeWriter::finish()
{
    if (table_)
        table_->finish();
    table_.reset();
}

int writeTree(std::ostream& out, const Answer& answer, const TextRequest& request, bool asJson)
{
    if (!asJson) {
        TextTreeWriter writer(out, treeTitle(answer.key, request), request.widths);
        const std::optional<Failure> failure = attempt([&] { answer.walk(writer); });
        writer.finish();
        if (failure) {
            out.flush(); // before the message, so that it follows the rows on a terminal
            throw *failure;
        }
        return kOk;
    }
    JsonStream document(out);
    document.beginObject();
    document.key("Schema");
    document.value(kSchema);
    document.key(answer.key);
    JsonTreeWriter writer(document);
    const std::optional<Failure> failure = attempt([&] { answer.walk(writer); });
    if (failure) {
        document.closeTo(1);
        document.key("Error");
        document.value(errorObject(*failure));
    }
    document.end();
    return failure ? failure->exitStatus : kOk;
}

} // namespace ubrofdump
