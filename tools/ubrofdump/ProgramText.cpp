// ProgramText: addr2line's "function at file:line", nm's name list, and size's tables.
#include "tools/ubrofdump/ProgramText.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace ubrofdump {
namespace {

namespace json = boost::json;

std::string text(const json::object& object, const char* key)
{
    const json::value* value = object.if_contains(key);
    return value && value->is_string() ? std::string(value->get_string()) : std::string();
}

uint64_t number(const json::object& object, const char* key)
{
    const json::value* value = object.if_contains(key);
    return value && value->is_number() ? value->to_number<uint64_t>() : 0;
}

std::string hexDigits(uint64_t value, int digits)
{
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "%0*llx", digits, static_cast<unsigned long long>(value));
    return buffer;
}

// At a function's entry the row's line is where its first code is listed (the opening brace, or
// a first statement), and the function is named on an earlier line, which llvm-symbolizer's
// verbose output gives as the function's start line. It follows the row as a note in
// parentheses on the same line, as binutils' addr2line adds "(discriminator N)": one line per
// address, and a script that reads "FUNCTION at FILE:LINE" still finds the row's line there.
std::string declaration(const json::object& symbol, uint64_t address)
{
    const json::value* start = symbol.if_contains("StartAddress");
    const uint64_t line = number(symbol, "StartLine");
    const std::string file = text(symbol, "StartFileName");
    if (!start || !start->is_number() || start->to_number<uint64_t>() != address || line == 0 || file.empty())
        return {};
    if (file == text(symbol, "FileName") && line == number(symbol, "Line"))
        return {};
    return file == text(symbol, "FileName") ? " (declared at line " + std::to_string(line) + ")"
                                            : " (declared at " + printable(file) + ":" + std::to_string(line) + ")";
}

// As binutils' addr2line -f -p prints it: "?? ??:0" when nothing is known, "f at ??:?" for a
// function without a line.
void printSymbolized(std::ostream& out, const json::array& entries)
{
    for (const auto& entry : entries) {
        const json::value* symbols = entry.get_object().if_contains("Symbol");
        if (!symbols || !symbols->is_array() || symbols->get_array().empty() || !symbols->get_array()[0].is_object())
            continue;
        const json::object& symbol = symbols->get_array()[0].get_object();
        const std::string function = printable(text(symbol, "FunctionName"));
        const std::string file = printable(text(symbol, "FileName"));
        const uint64_t line = number(symbol, "Line");
        if (function.empty() && file.empty())
            out << "?? ??:0\n";
        else
            out << (function.empty() ? "??" : function) << " at " << (file.empty() ? "??" : file) << ":"
                << (line ? std::to_string(line) : "?") << declaration(symbol, number(entry.get_object(), "Address"))
                << "\n";
    }
}

// nm --stack: SEGMENT=BYTES for each stack segment of the program, "?" where the file does not
// say, in the same order on every line, so that each figure is always the same field.
std::string stackFields(const json::object& entry)
{
    const json::value* stack = entry.if_contains("Stack");
    if (!stack || !stack->is_object())
        return {};
    std::string fields;
    for (const auto& segment : stack->get_object())
        fields += printable(segment.key()) + "=" +
                  (segment.value().is_number() ? std::to_string(segment.value().to_number<uint64_t>()) : "?") + " ";
    return fields;
}

// nm -S's columns without a header: value and size in hex without prefix, as wide as the
// memory's addresses, the kind letter, then the memory; the name comes last because it alone may
// hold blanks ("operator new"), and it is never cut.
void printNameList(std::ostream& out, const json::array& entries, const TextRequest& request)
{
    for (const auto& value : entries) {
        const json::object& entry = value.get_object();
        const std::string memory = text(entry, "Memory");
        const int digits = request.widths.of(memory);
        std::string shownMemory = printable(memory);
        shownMemory.resize(std::max<size_t>(shownMemory.size(), 6), ' ');
        out << hexDigits(number(entry, "Address"), digits) << " " << hexDigits(number(entry, "Size"), digits) << " "
            << text(entry, "Kind") << " " << shownMemory << " " << stackFields(entry) << printable(text(entry, "Name"))
            << "\n";
    }
}

std::string address(uint64_t value, int digits)
{
    return "0x" + hexDigits(value, digits);
}

void printSizes(std::ostream& out, const json::object& sizes, const TextRequest& request)
{
    bool first = true;
    const auto section = [&](const char* key, const char* title) -> const json::array* {
        const json::value* list = sizes.if_contains(key);
        if (!list || !list->is_array())
            return nullptr;
        out << (first ? "" : "\n") << title << ":\n\n";
        first = false;
        return &list->get_array();
    };
    if (const json::array* memories = section("Memories", "Bytes per memory, largest first")) {
        Table table(out, {"Memory", "Bytes", "Written", "Low", "End"});
        for (const auto& value : *memories) {
            const json::object& memory = value.get_object();
            const int digits = request.widths.of(text(memory, "Name"));
            table.add({tableCell(text(memory, "Name")), std::to_string(number(memory, "Bytes")),
                       std::to_string(number(memory, "Written")), address(number(memory, "Low"), digits),
                       address(number(memory, "End"), digits)});
        }
        table.finish();
    }
    if (const json::array* modules = section("Modules", "Bytes per module and memory, largest first")) {
        Table table(out, {"Bytes", "Memory", "Module"});
        for (const auto& value : *modules) {
            const json::object& module = value.get_object();
            table.add({std::to_string(number(module, "Bytes")), tableCell(text(module, "Memory")),
                       tableCell(text(module, "Name"))});
        }
        table.finish();
    }
    if (const json::array* stack = section("Stack", "Stack bytes per stack segment and function, largest first")) {
        Table table(out, {"Segment", "Bytes", "Entry", "Module", "Function"});
        const int digits = request.widths.of("code");
        for (const auto& value : *stack) {
            const json::object& use = value.get_object();
            table.add({tableCell(text(use, "Segment")), std::to_string(number(use, "Bytes")),
                       address(number(use, "Address"), digits), tableCell(text(use, "Module")),
                       tableCell(text(use, "Name"))});
        }
        table.finish();
    }
    if (const json::array* functions = section("Functions", "Bytes per function, largest first")) {
        Table table(out, {"Bytes", "Entry", "Module", "Function"});
        const int digits = request.widths.of("code");
        for (const auto& value : *functions) {
            const json::object& function = value.get_object();
            table.add({std::to_string(number(function, "Bytes")), address(number(function, "Address"), digits),
                       tableCell(text(function, "Module")), tableCell(text(function, "Name"))});
        }
        table.finish();
    }
}

} // namespace

bool printProgramText(std::ostream& out, const Answer& answer, const TextRequest& request)
{
    const json::value& value = answer.value;
    if (answer.key == "Symbolized" && value.is_array())
        printSymbolized(out, value.get_array());
    else if (answer.key == "NameList" && value.is_array())
        printNameList(out, value.get_array(), request);
    else if (answer.key == "Sizes" && value.is_object())
        printSizes(out, value.get_object(), request);
    else
        return false;
    return true;
}

} // namespace ubrofdump
