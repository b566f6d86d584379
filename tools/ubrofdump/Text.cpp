// Text: tables are rendered from the same JSON answers the --json form prints, so both agree.
#include "tools/ubrofdump/Text.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace ubrofdump {
namespace {

namespace json = boost::json;

// The memory-space name of code addresses: functions, code areas, statements and pcs.
const std::string kCodeMemory = "prog";

std::string hex(uint64_t value, int digits)
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

bool isContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Characters on a terminal: UTF-8 sequences count once.
size_t displayWidth(const std::string& text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(c); }));
}

enum class Keep { Start, End };

// Texts from the file may hold anything: a control character would break the row, so it shows
// as '?'; a long text is cut to the column's width, keeping the end of a path (its file name).
std::string cell(std::string text, Keep keep = Keep::Start)
{
    text = printable(std::move(text));
    const size_t width = displayWidth(text);
    if (width <= kMaxColumnWidth)
        return text;
    static const std::string kEllipsis = "...";
    size_t kept = kMaxColumnWidth - kEllipsis.size();
    if (keep == Keep::Start) {
        size_t at = 0;
        for (; at < text.size(); ++at)
            if (!isContinuation(text[at]) && kept-- == 0)
                break;
        return text.substr(0, at) + kEllipsis;
    }
    size_t at = text.size();
    while (at > 0 && kept > 0) {
        --at;
        if (!isContinuation(text[at]))
            --kept;
    }
    return kEllipsis + text.substr(at);
}

std::string count(size_t n, const std::string& one, const std::string& many)
{
    return n == 1 ? "is 1 " + one : "are " + std::to_string(n) + " " + many;
}

// The summary's account of the program as it is, when the answer has one.
void printProgramSummary(std::ostream& out, const json::object& summary)
{
    if (!summary.contains("FormatVersion"))
        return;
    out << "Format version:  " << number(field(summary, "FormatVersion")) << "\n";
    out << "Created:         " << (field(summary, "Created").is_string() ? text(field(summary, "Created")) : "unknown")
        << "\n";
    const json::value& processor = field(summary, "Processor");
    if (processor.is_object()) {
        const std::string name = text(field(processor.get_object(), "Name"));
        const std::string family = text(field(processor.get_object(), "Family"));
        out << "Processor:       " << (name.empty() ? family : cell(name) + " (" + family + ")") << "\n";
    }
    std::string memories;
    if (field(summary, "Memories").is_array())
        for (const auto& memory : field(summary, "Memories").get_array())
            memories += (memories.empty() ? "" : ", ") + text(field(memory.get_object(), "Name")) + " " +
                        std::to_string(number(field(memory.get_object(), "Bytes"))) + " bytes";
    out << "Memories:        " << (memories.empty() ? "none" : memories) << "\n";
    const json::value& largest = field(summary, "LargestModules");
    const size_t shown = largest.is_array() ? largest.get_array().size() : 0;
    out << "Program modules: " << number(field(summary, "ProgramModules"));
    if (shown == 0) {
        out << "\n";
        return;
    }
    out << (shown == 1 ? "; the largest by code bytes:\n" : "; the " + std::to_string(shown) + " largest by code bytes:\n");
    std::vector<std::pair<std::string, std::string>> rows;
    size_t width = 0;
    for (const auto& module : largest.get_array()) {
        rows.emplace_back(std::to_string(number(field(module.get_object(), "CodeBytes"))),
                          cell(text(field(module.get_object(), "Name"))));
        width = std::max(width, rows.back().first.size());
    }
    for (const auto& [bytes, name] : rows)
        out << std::string(17 + width - bytes.size(), ' ') << bytes << "  " << name << "\n";
}

void printSummary(std::ostream& out, const json::object& summary)
{
    const std::pair<const char*, const char*> rows[] = {
        {"File", "File"},         {"Machine", "Machine"},         {"Producer", "Producer"},
        {"Segments", "Segments"}, {"Source files", "SourceFiles"}, {"Code areas", "CodeAreas"},
        {"Modules", "Modules"},   {"Functions", "Functions"},     {"Global symbols", "GlobalSymbols"}};
    for (const auto& [label, key] : rows) {
        // A summary of a file the module did not read holds the program's rows alone.
        if (!summary.contains(key))
            continue;
        const json::value& value = field(summary, key);
        const std::string shown = value.is_string() ? cell(text(value), std::string(key) == "File" ? Keep::End : Keep::Start)
                                                    : std::to_string(number(value));
        out << label << ":" << std::string(16 - std::string(label).size(), ' ') << shown << "\n";
    }
    printProgramSummary(out, summary);
}

// Sixteen bytes a line, as hex and as text, like a hex dump tool.
void printData(std::ostream& out, uint64_t start, const std::string& data, int digits)
{
    constexpr size_t kBytesPerLine = 16;
    const size_t bytes = data.size() / 2;
    for (size_t first = 0; first < bytes; first += kBytesPerLine) {
        std::string hexPart, textPart;
        for (size_t i = first; i < first + kBytesPerLine; ++i) {
            if (i >= bytes) {
                hexPart += "   ";
                continue;
            }
            const std::string pair = data.substr(2 * i, 2);
            const int byte = std::stoi(pair, nullptr, 16);
            hexPart += " " + pair;
            textPart += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
        }
        out << "  " << hex(start + first, digits) << " " << hexPart << "  " << textPart << "\n";
    }
}

void printSegments(std::ostream& out, const json::array& segments, const TextRequest& request)
{
    out << "There " << count(segments.size(), "program segment", "program segments") << ":\n\n";
    Table table(out, {"Nr", "Memory", "Start", "Load", "Size", "Name"});
    for (size_t i = 0; i < segments.size(); ++i) {
        const json::object& segment = segments[i].get_object();
        const int digits = request.widths.of(text(field(segment, "Memory")));
        table.add({std::to_string(i), cell(text(field(segment, "Memory"))),
                   hex(number(field(segment, "StartAddress")), digits), hex(number(field(segment, "LoadAddress")), digits),
                   hex(number(field(segment, "Size")), digits), cell(text(field(segment, "Name")))});
    }
    table.finish();
    if (!request.withData)
        return;
    for (size_t i = 0; i < segments.size(); ++i) {
        const json::object& segment = segments[i].get_object();
        const std::string memory = text(field(segment, "Memory"));
        out << "\nData of segment " << i << " (" << cell(memory) << "):\n";
        printData(out, number(field(segment, "StartAddress")), text(field(segment, "Data")), request.widths.of(memory));
    }
}

void printSources(std::ostream& out, const json::array& sources)
{
    out << "There " << count(sources.size(), "source file", "source files") << ":\n\n";
    Table table(out, {"Nr", "File"});
    for (size_t i = 0; i < sources.size(); ++i)
        table.add({std::to_string(i), cell(text(sources[i]), Keep::End)});
    table.finish();
}

std::string lineRange(uint64_t first, uint64_t last)
{
    return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}

void printCodeAreas(std::ostream& out, const json::array& areas, const TextRequest& request)
{
    const int digits = request.widths.of(kCodeMemory);
    if (!request.startGiven)
        out << "All code areas:\n\n";
    else if (!request.endGiven)
        out << "Code areas from " << hex(request.start, digits) << " on:\n\n";
    else
        out << "Code areas from " << hex(request.start, digits) << " to " << hex(request.end, digits) << ":\n\n";
    Table table(out, {"Start", "End", "Lines", "Function", "File"});
    for (const auto& value : areas) {
        const json::object& area = value.get_object();
        table.add({hex(number(field(area, "StartAddress")), digits), hex(number(field(area, "EndAddress")), digits),
                   lineRange(number(field(area, "StartLine")), number(field(area, "EndLine"))),
                   cell(text(field(area, "Function"))), cell(text(field(area, "File")), Keep::End)});
    }
    table.finish();
}

void printAddresses(std::ostream& out, const json::array& addresses, const TextRequest& request)
{
    if (!addresses.empty()) {
        const json::object& first = addresses.front().get_object();
        out << "Line " << number(field(first, "Line")) << " of " << cell(text(field(first, "File")), Keep::End)
            << ":\n\n";
    }
    Table table(out, {"Address", "Function"});
    for (const auto& value : addresses)
        table.add({hex(number(field(value.get_object(), "Address")), request.widths.of(kCodeMemory)),
                   cell(text(field(value.get_object(), "Function")))});
    table.finish();
}

std::string locationText(const json::object& location, const AddressWidths& widths)
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
        return (memory.empty() ? "" : memory + ":") + hex(number(field(first, "Address")), widths.of(memory));
    case 2:
    case 11: {
        std::string registers;
        for (const auto& piece : pieces)
            registers += (registers.empty() ? "r" : ",r") + std::to_string(number(field(piece.get_object(), "Register")));
        return registers;
    }
    case 3:
        return "frame+" + std::to_string(signedNumber(field(first, "Offset")));
    default:
        return addressingModeName(mode);
    }
}

// A function or block is its code range: its value holds its low address, least significant
// byte first, and its type context is the scope itself.
std::string codeRange(const json::object& context, const AddressWidths& widths)
{
    const json::value& value = field(context, "Value");
    uint64_t low = 0;
    if (value.is_array())
        for (size_t i = value.get_array().size(); i-- > 0;)
            low = (low << 8) | (number(value.get_array()[i]) & 0xFF);
    const int digits = widths.of(kCodeMemory);
    return hex(low, digits) + "-" + hex(low + signedNumber(field(context, "Size")), digits);
}

std::string atPc(const TextRequest& request)
{
    return request.pc == kNoPc ? std::string(" (no pc: locations from the symbols alone)")
                               : " at pc " + hex(request.pc, request.widths.of(kCodeMemory));
}

void printCompiler(std::ostream& out, const json::object& compiler)
{
    out << "Machine:     " << cell(text(field(compiler, "Machine"))) << "\n";
    out << "Producer:    " << cell(text(field(compiler, "Producer"))) << "\n";
    out << "Big endian:  " << (field(compiler, "BigEndian").is_bool() && field(compiler, "BigEndian").get_bool() ? "yes" : "no")
        << "\n\nBase types:\n\n";
    Table table(out, {"ID", "Name", "Size", "Bits", "Signed", "Byte order"});
    if (field(compiler, "BaseTypes").is_array()) {
        for (const auto& value : field(compiler, "BaseTypes").get_array()) {
            const json::object& type = value.get_object();
            table.add({std::to_string(signedNumber(field(type, "ID"))), cell(text(field(type, "Name"))),
                       std::to_string(number(field(type, "Size"))), std::to_string(number(field(type, "Bits"))),
                       field(type, "Signed").is_bool() && field(type, "Signed").get_bool() ? "yes" : "no",
                       byteOrderName(signedNumber(field(type, "ByteOrder")))});
        }
    }
    table.finish();
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

Table::Table(std::ostream& out, std::vector<std::string> header, size_t window)
    : out_(out), window_(std::max<size_t>(window, 1))
{
    rows_.push_back(std::move(header));
}

void Table::add(std::vector<std::string> row)
{
    rows_.push_back(std::move(row));
    if (rows_.size() >= window_)
        finish();
}

void Table::finish()
{
    for (const auto& row : rows_)
        for (size_t i = 0; i < row.size(); ++i) {
            if (widths_.size() <= i)
                widths_.push_back(0);
            widths_[i] = std::max(widths_[i], displayWidth(row[i]));
        }
    for (const auto& row : rows_) {
        std::string line = " ";
        for (size_t i = 0; i < row.size(); ++i) {
            line += " " + row[i];
            if (i + 1 < row.size())
                line += std::string(widths_[i] - displayWidth(row[i]) + 1, ' ');
        }
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        out_ << line << "\n";
    }
    rows_.clear();
}

std::vector<std::string> contextRow(const json::object& context, int depth, const AddressWidths& widths)
{
    const int64_t storage = signedNumber(field(context, "StorageClass"));
    const int64_t symbolClass = signedNumber(field(context, "Class"));
    const std::string name = text(field(context, "Name"));
    const std::string type = text(field(context, "TypeName"));
    std::string location = "-";
    if (symbolClass == 3)
        location = codeRange(context, widths);
    else if (!type.empty() && field(context, "Location").is_object())
        location = locationText(field(context, "Location").get_object(), widths); // modules have no type and no place
    return {text(field(context, "ID")), symbolClassName(symbolClass), storageClassName(storage),
            typeClassName(signedNumber(field(context, "TypeClass"))),
            std::to_string(signedNumber(field(context, "Size"))),
            storage == 3 ? std::to_string(signedNumber(field(context, "Offset"))) : "-", location,
            type.empty() || symbolClass == 3 ? "-" : cell(type),
            cell(std::string(2 * depth, ' ') + (name.empty() ? "<unnamed>" : name))};
}

const std::vector<std::string>& contextHeader()
{
    static const std::vector<std::string> kHeader{"ID",     "Class",    "Storage", "TypeClass", "Size",
                                                  "Offset", "Location", "Type",    "Name"};
    return kHeader;
}

std::string treeTitle(const std::string& key, const TextRequest& request)
{
    if (key == "Scope")
        return "Scope" + atPc(request);
    if (key == "Symbols")
        return "Symbol tree" + atPc(request);
    if (key == "Lookup")
        return "Symbol " + cell(request.subject) + atPc(request);
    return "Context " + request.subject;
}

void printText(std::ostream& out, const Answer& answer, const TextRequest& request)
{
    const json::value& value = answer.value;
    if (answer.key == "Summary" && value.is_object())
        printSummary(out, value.get_object());
    else if (answer.key == "Segments" && value.is_array())
        printSegments(out, value.get_array(), request);
    else if (answer.key == "Sources" && value.is_array())
        printSources(out, value.get_array());
    else if (answer.key == "CodeAreas" && value.is_array())
        printCodeAreas(out, value.get_array(), request);
    else if (answer.key == "Addresses" && value.is_array())
        printAddresses(out, value.get_array(), request);
    else if (answer.key == "Compiler" && value.is_object())
        printCompiler(out, value.get_object());
}

std::string printable(std::string text)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text;
}

std::string tableCell(const std::string& text, bool keepEnd)
{
    return cell(text, keepEnd ? Keep::End : Keep::Start);
}

} // namespace ubrofdump
