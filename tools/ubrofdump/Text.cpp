// Text: tables are rendered from the same JSON answers the --json form prints, so both agree.
#include "tools/ubrofdump/Text.h"

#include <boost/json/serialize.hpp>

#include <cstdio>
#include <vector>

namespace ubrofdump {
namespace {

namespace json = boost::json;

std::string hex(uint64_t value, int digits = 8)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

uint64_t number(const json::value& value)
{
    if (value.is_uint64())
        return value.get_uint64();
    if (value.is_int64())
        return static_cast<uint64_t>(value.get_int64());
    return 0;
}

int64_t signedNumber(const json::value& value)
{
    return value.is_int64() ? value.get_int64() : static_cast<int64_t>(number(value));
}

std::string text(const json::value& value)
{
    return value.is_string() ? std::string(value.get_string()) : std::string();
}

const json::value& field(const json::object& object, const char* key)
{
    static const json::value kNone;
    const json::value* found = object.if_contains(key);
    return found ? *found : kNone;
}

/// Left-aligned columns two blanks apart, each as wide as its widest cell.
class Table {
public:
    explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    void print(std::ostream& out) const
    {
        std::vector<size_t> widths;
        for (const auto& row : rows_)
            for (size_t i = 0; i < row.size(); ++i) {
                if (widths.size() <= i)
                    widths.push_back(0);
                widths[i] = std::max(widths[i], row[i].size());
            }
        for (const auto& row : rows_) {
            std::string line = " ";
            for (size_t i = 0; i < row.size(); ++i) {
                line += " " + row[i];
                if (i + 1 < row.size())
                    line += std::string(widths[i] - row[i].size() + 1, ' ');
            }
            while (!line.empty() && line.back() == ' ')
                line.pop_back();
            out << line << "\n";
        }
    }

private:
    std::vector<std::vector<std::string>> rows_;
};

void printJsonAt(std::ostream& out, const json::value& value, int indent)
{
    const std::string inner(indent + 2, ' ');
    if (value.is_object()) {
        const json::object& object = value.get_object();
        if (object.empty()) {
            out << "{}";
            return;
        }
        out << "{\n";
        size_t i = 0;
        for (const auto& entry : object) {
            out << inner << json::serialize(json::value(entry.key())) << ": ";
            printJsonAt(out, entry.value(), indent + 2);
            out << (++i < object.size() ? ",\n" : "\n");
        }
        out << std::string(indent, ' ') << "}";
    } else if (value.is_array()) {
        const json::array& array = value.get_array();
        bool plain = true;
        for (const auto& element : array)
            plain = plain && !element.is_object() && !element.is_array();
        if (plain) {
            out << "[";
            for (size_t i = 0; i < array.size(); ++i)
                out << (i ? ", " : "") << json::serialize(array[i]);
            out << "]";
            return;
        }
        out << "[\n";
        for (size_t i = 0; i < array.size(); ++i) {
            out << inner;
            printJsonAt(out, array[i], indent + 2);
            out << (i + 1 < array.size() ? ",\n" : "\n");
        }
        out << std::string(indent, ' ') << "]";
    } else {
        out << json::serialize(value);
    }
}

void printSummary(std::ostream& out, const json::object& summary)
{
    const std::pair<const char*, const char*> rows[] = {
        {"File", "File"},       {"Machine", "Machine"},       {"Producer", "Producer"},
        {"Segments", "Segments"}, {"Source files", "SourceFiles"}, {"Code areas", "CodeAreas"},
        {"Modules", "Modules"}, {"Functions", "Functions"},   {"Global symbols", "GlobalSymbols"}};
    for (const auto& [label, key] : rows) {
        const json::value& value = field(summary, key);
        std::string shown = value.is_string() ? text(value) : std::to_string(number(value));
        out << label << ":" << std::string(16 - std::string(label).size(), ' ') << shown << "\n";
    }
}

void printSegments(std::ostream& out, const json::array& segments, bool withData)
{
    out << "There " << (segments.size() == 1 ? "is 1 program segment" : "are " + std::to_string(segments.size()) + " program segments") << ":\n\n";
    Table table({"Nr", "Memory", "Start", "Load", "Size", "Name"});
    for (size_t i = 0; i < segments.size(); ++i) {
        const json::object& segment = segments[i].get_object();
        table.add({std::to_string(i), text(field(segment, "MemoryType")), hex(number(field(segment, "StartAddress"))),
                   hex(number(field(segment, "LoadAddress"))), hex(number(field(segment, "Size"))),
                   text(field(segment, "Name"))});
    }
    table.print(out);
    if (!withData)
        return;
    for (size_t i = 0; i < segments.size(); ++i) {
        const json::object& segment = segments[i].get_object();
        const uint64_t start = number(field(segment, "StartAddress"));
        const std::string data = text(field(segment, "Data"));
        out << "\nData of segment " << i << " (" << text(field(segment, "MemoryType")) << "):\n";
        for (size_t at = 0; at < data.size(); at += 32) {
            out << "  " << hex(start + at / 2) << " ";
            for (size_t byte = at; byte < std::min(data.size(), at + 32); byte += 2)
                out << " " << data.substr(byte, 2);
            out << "\n";
        }
    }
}

void printSources(std::ostream& out, const json::array& sources)
{
    out << "There " << (sources.size() == 1 ? "is 1 source file" : "are " + std::to_string(sources.size()) + " source files") << ":\n\n";
    Table table({"Nr", "File"});
    for (size_t i = 0; i < sources.size(); ++i)
        table.add({std::to_string(i), text(sources[i])});
    table.print(out);
}

std::string lineRange(uint64_t first, uint64_t last)
{
    return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}

void printCodeAreas(std::ostream& out, const json::array& areas, const TextRequest& request)
{
    out << "Code areas from " << hex(request.start) << " to " << hex(request.end) << ":\n\n";
    Table table({"Start", "End", "Lines", "Function", "File"});
    for (const auto& value : areas) {
        const json::object& area = value.get_object();
        table.add({hex(number(field(area, "StartAddress"))), hex(number(field(area, "EndAddress"))),
                   lineRange(number(field(area, "StartLine")), number(field(area, "EndLine"))),
                   text(field(area, "Function")), text(field(area, "File"))});
    }
    table.print(out);
}

void printAddresses(std::ostream& out, const json::array& addresses)
{
    Table table({"Address", "Function"});
    for (const auto& value : addresses)
        table.add({hex(number(field(value.get_object(), "Address"))), text(field(value.get_object(), "Name"))});
    table.print(out);
}

const char* symbolClassName(int64_t value)
{
    static const char* const kNames[] = {"other", "label", "data", "code", "type"};
    return value >= 0 && value < 5 ? kNames[value] : "?";
}

const char* typeClassName(int64_t value)
{
    static const char* const kNames[] = {"none", "unsigned", "signed", "float", "pointer",
                                         "array", "composite", "memberptr", "function"};
    return value >= 0 && value < 9 ? kNames[value] : "?";
}

const char* storageClassName(int64_t value)
{
    static const char* const kNames[] = {"-", "auto", "static", "member"};
    return value >= 0 && value < 4 ? kNames[value] : "?";
}

std::string locationText(const json::object& location)
{
    const int64_t mode = signedNumber(field(location, "AddressingMode"));
    const json::value& piecesValue = field(location, "Pieces");
    const json::array empty;
    const json::array& pieces = piecesValue.is_array() ? piecesValue.get_array() : empty;
    if (pieces.empty() || mode == 10)
        return "-";
    const json::object& first = pieces[0].get_object();
    const std::string memory = text(field(first, "Memory"));
    switch (mode) {
    case 0:
        return "value";
    case 1:
        return (memory.empty() ? "" : memory + ":") + hex(number(field(first, "Address")), 4);
    case 2:
    case 11: {
        std::string registers;
        for (const auto& piece : pieces)
            registers += (registers.empty() ? "r" : ",r") + std::to_string(number(field(piece.get_object(), "Register")));
        return registers;
    }
    case 3:
        return "frame+" + std::to_string(signedNumber(field(first, "Offset")));
    case 9:
        return "computed";
    default:
        return "mode " + std::to_string(mode);
    }
}

// A function or block is its code range: its value holds its low address, least significant
// byte first, and its type context is the scope itself.
std::string codeRange(const json::object& context)
{
    const json::value& value = field(context, "Value");
    uint64_t low = 0;
    if (value.is_array())
        for (size_t i = value.get_array().size(); i-- > 0;)
            low = (low << 8) | (number(value.get_array()[i]) & 0xFF);
    return hex(low, 4) + "-" + hex(low + signedNumber(field(context, "Size")), 4);
}

void addContextRows(Table& table, const json::object& context, int depth)
{
    const int64_t storage = signedNumber(field(context, "StorageClass"));
    const int64_t symbolClass = signedNumber(field(context, "Class"));
    const std::string name = text(field(context, "Name"));
    const std::string type = text(field(context, "TypeName"));
    std::string location = "-";
    if (symbolClass == 3)
        location = codeRange(context);
    else if (!type.empty() && field(context, "Location").is_object())
        location = locationText(field(context, "Location").get_object()); // modules have no type and no place
    table.add({text(field(context, "ID")), symbolClassName(symbolClass), storageClassName(storage),
               typeClassName(signedNumber(field(context, "TypeClass"))),
               std::to_string(signedNumber(field(context, "Size"))),
               storage == 3 ? std::to_string(signedNumber(field(context, "Offset"))) : "-", location,
               type.empty() || symbolClass == 3 ? "-" : type,
               std::string(2 * depth, ' ') + (name.empty() ? "<unnamed>" : name)});
    const json::value& children = field(context, "Children");
    if (children.is_array())
        for (const auto& child : children.get_array())
            if (child.is_object())
                addContextRows(table, child.get_object(), depth + 1);
}

void printContext(std::ostream& out, const std::string& title, const json::object& context)
{
    out << title << ":\n\n";
    Table table({"ID", "Class", "Storage", "TypeClass", "Size", "Offset", "Location", "Type", "Name"});
    addContextRows(table, context, 0);
    table.print(out);
}

std::string atPc(uint64_t pc)
{
    return pc == kNoPc ? std::string(" (no pc: locations from the symbols alone)") : " at pc " + hex(pc);
}

void printCompiler(std::ostream& out, const json::object& compiler)
{
    out << "Machine:     " << text(field(compiler, "Machine")) << "\n";
    out << "Producer:    " << text(field(compiler, "Producer")) << "\n";
    out << "Big endian:  " << (field(compiler, "BigEndian").is_bool() && field(compiler, "BigEndian").get_bool() ? "yes" : "no")
        << "\n\nBase types:\n\n";
    static const char* const kOrders[] = {"-", "little", "big"};
    Table table({"Id", "Name", "Size", "Bits", "Signed", "Byte order"});
    if (field(compiler, "BaseTypes").is_array()) {
        for (const auto& value : field(compiler, "BaseTypes").get_array()) {
            const json::object& type = value.get_object();
            const uint64_t order = number(field(type, "ByteOrder"));
            table.add({std::to_string(signedNumber(field(type, "Id"))), text(field(type, "Name")),
                       std::to_string(number(field(type, "Size"))), std::to_string(number(field(type, "Bits"))),
                       field(type, "Signed").is_bool() && field(type, "Signed").get_bool() ? "yes" : "no",
                       order < 3 ? kOrders[order] : std::to_string(order)});
        }
    }
    table.print(out);
    out << "\nCompiler info:\n\n";
    const json::value& info = field(compiler, "CompilerInfo");
    if (!info.is_object())
        return;
    for (const char* key : {"Words", "Flags"}) {
        out << "  " << key << ":" << std::string(7 - std::string(key).size(), ' ');
        const json::value& list = field(info.get_object(), key);
        if (list.is_array())
            for (size_t i = 0; i < list.get_array().size(); ++i)
                out << (i ? " " : "") << signedNumber(list.get_array()[i]);
        out << "\n";
    }
    out << "  Last:   " << signedNumber(field(info.get_object(), "Last")) << "\n";
}

} // namespace

void printJson(std::ostream& out, const json::value& value)
{
    printJsonAt(out, value, 0);
    out << "\n";
}

void printText(std::ostream& out, const Answer& answer, const TextRequest& request)
{
    const json::value& value = answer.value;
    if (answer.key == "Summary" && value.is_object())
        printSummary(out, value.get_object());
    else if (answer.key == "Segments" && value.is_array())
        printSegments(out, value.get_array(), request.withData);
    else if (answer.key == "Sources" && value.is_array())
        printSources(out, value.get_array());
    else if (answer.key == "CodeAreas" && value.is_array())
        printCodeAreas(out, value.get_array(), request);
    else if (answer.key == "Addresses" && value.is_array())
        printAddresses(out, value.get_array());
    else if (answer.key == "Scope" && value.is_object())
        printContext(out, "Scope" + atPc(request.pc), value.get_object());
    else if (answer.key == "Symbols" && value.is_object())
        printContext(out, "Symbol tree" + atPc(request.pc), value.get_object());
    else if (answer.key == "Lookup" && value.is_object())
        printContext(out, "Symbol " + request.subject + atPc(request.pc), value.get_object());
    else if (answer.key == "Context" && value.is_object())
        printContext(out, "Context " + request.subject, value.get_object());
    else if (answer.key == "Compiler" && value.is_object())
        printCompiler(out, value.get_object());
}

} // namespace ubrofdump
