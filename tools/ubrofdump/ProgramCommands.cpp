// ProgramCommands: the program commands' answers, built from the program model.
#include "tools/ubrofdump/ProgramCommands.h"

#include "model/ProgramBuilder.h"
#include "model/ProgramQueries.h"
#include "reader/OleDate.h"
#include "tools/ubrofdump/Diagnosis.h"

#include <boost/json/array.hpp>

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <tuple>

namespace ubrofdump {
namespace {

namespace json = boost::json;
namespace model = ubrof::model;
using model::kNone;
using model::MemorySpace;
using model::Program;

// How many modules the summary names: enough to see where the code goes, few enough to read
// at a glance; `size --by module` lists them all.
constexpr size_t kLargestModules = 5;

// The options of the program commands, each with the commands it belongs to; any other command
// refuses it.
const struct {
    const char* name;
    std::vector<std::string> commands;
    bool takesValue;
} kProgramOptions[] = {
    {"--size-sort", {"nm"}, false},   {"--name-sort", {"nm"}, false},     {"--functions", {"nm"}, false},
    {"--variables", {"nm"}, false},   {"--module", {"nm"}, true},         {"--stack", {"nm", "size"}, false},
    {"--by", {"size"}, true},         {"--top", {"size"}, true},          {"--format", {"export"}, true},
    {"-o", {"export"}, true},         {"--memory", {"export"}, true},     {"--gap-fill", {"export"}, true},
    {"--mcu", {"export"}, true},
};

} // namespace

Program loadModel(const std::string& file, bool light)
{
    if (auto refused = refuseSpecialFile(file))
        throw *refused;
    model::BuildOptions options;
    options.light = light;
    try {
        return model::loadProgram(file, options);
    } catch (const model::ModelError& e) {
        throw explainUnbuilt(file, e.what());
    }
}

namespace {

std::string moduleName(const Program& program, uint32_t module)
{
    return module < program.modules.size() ? program.modules[module].name : std::string();
}

std::string filePath(const Program& program, uint32_t file, const PathMap& paths)
{
    return file < program.files.size() ? paths.shown(program.files[file].path) : std::string();
}

// A function named by its plain or qualified name, with an optional +OFFSET.
uint64_t functionAddress(const Program& program, const std::string& argument)
{
    std::string name = argument;
    uint64_t offset = 0;
    const size_t plus = argument.rfind('+');
    if (plus != std::string::npos && plus > 0 && plus + 1 < argument.size() &&
        std::isdigit(static_cast<unsigned char>(argument[plus + 1]))) {
        name = argument.substr(0, plus);
        offset = parseNumber(argument.substr(plus + 1), "OFFSET");
    }
    const std::vector<uint32_t> found = model::findFunctions(program, name);
    if (found.empty())
        throw notFound(argument + " is neither an address nor a function of " + program.path +
                       " (addresses are decimal, or hexadecimal after 0x)");
    if (found.size() > 1) {
        std::vector<std::string> names;
        for (uint32_t f : found)
            names.push_back(program.functions[f].qualifiedName);
        throw usageError(name + " names " + std::to_string(found.size()) + " functions, " + listed(names) +
                         "; give the one meant by its qualified name or its address");
    }
    return program.functions[found.front()].entry + offset;
}

json::object symbolizedEntry(const Program& program, uint32_t address, const std::string& file,
                             const PathMap& paths)
{
    const model::SourcePlace place = model::symbolize(program, address);
    json::object symbol{{"FunctionName", ""}, {"FileName", ""}, {"Line", 0}, {"Column", 0}, {"Discriminator", 0}};
    symbol["StartAddress"] = nullptr;
    symbol["StartFileName"] = "";
    symbol["StartLine"] = 0;
    if (place.function != kNone) {
        const model::Function& function = program.functions[place.function];
        symbol["FunctionName"] = function.qualifiedName;
        symbol["StartAddress"] = function.entry;
        symbol["StartFileName"] = filePath(program, function.file, paths);
        symbol["StartLine"] = function.line;
    }
    if (place.row) {
        symbol["FileName"] = filePath(program, place.row->file, paths);
        symbol["Line"] = place.row->line;
        symbol["Column"] = place.row->column;
    }
    return json::object{{"Address", address}, {"ModuleName", file}, {"Symbol", json::array{std::move(symbol)}}};
}

char kindLetter(const model::SymbolEntry& entry)
{
    // nm's letters: T code, R read-only data (a variable in code memory), D data; EEPROM has
    // none, and E is a letter nm gives no other meaning. Which data the start-up code clears (B)
    // the file does not say: its records place a variable, not the segment it lies in.
    char letter = 'D';
    if (entry.kind == model::SymbolEntry::Kind::Function)
        letter = 'T';
    else if (entry.space == MemorySpace::Code)
        letter = 'R';
    else if (entry.space == MemorySpace::Eeprom)
        letter = 'E';
    return entry.isExternal ? letter : static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

const std::string& plainName(const Program& program, const model::SymbolEntry& entry)
{
    return entry.kind == model::SymbolEntry::Kind::Function ? program.functions[entry.index].name
                                                            : program.variables[entry.index].name;
}

bool matches(const std::string& pattern, const std::string& name)
{
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

// Stack use is a function's alone.
bool listsFunctions(const ProgramOptions& options)
{
    return options.has("--functions") || options.has("--stack");
}

std::string whatNmLooksFor(const std::vector<std::string>& args, const ProgramOptions& options)
{
    const bool functions = listsFunctions(options), variables = options.has("--variables");
    std::string what = functions && !variables ? "no function" : variables && !functions ? "no variable" : "no function or variable";
    what += " with an address";
    if (!args.empty())
        what += " matches " + args.front();
    if (const auto module = options.value("--module"))
        what += " in module " + *module;
    return what;
}

uint32_t findModule(const Program& program, const std::string& name)
{
    std::vector<std::string> names;
    for (uint32_t m = 0; m < program.modules.size(); ++m) {
        if (program.modules[m].name == name)
            return m;
        names.push_back(program.modules[m].name);
    }
    const std::vector<std::string> near = closest(name, names, 3);
    throw notFound("no module " + name + " in " + program.path +
                   (near.empty() ? std::string() : (near.size() == 1 ? "; the closest is " : "; the closest are ") + listed(near)));
}

// The stack segments the program's functions take bytes in. A file that records none says so, as a
// column of zeros would pass for a figure.
std::vector<std::string> recordedStackSegments(const Program& program, const std::string& file)
{
    std::vector<std::string> segments = model::stackSegments(program);
    if (segments.empty())
        throw notFound(file + " records no stack use" +
                       (program.version < 10 ? "; files of format versions 10 and 11 do, and it is of version " +
                                                   std::to_string(program.version)
                                             : std::string()));
    return segments;
}

// Each segment's bytes, null for every segment when the file records nothing of the function's.
json::object stackJson(const model::Function& function, const std::vector<std::string>& segments)
{
    json::object stack;
    for (const std::string& segment : segments) {
        if (function.stackUse.empty())
            stack[segment] = nullptr;
        else
            stack[segment] = model::stackUse(function, segment);
    }
    return stack;
}

template <typename List>
void keepTop(List& entries, const std::optional<uint64_t>& top)
{
    if (top && entries.size() > *top)
        entries.resize(static_cast<size_t>(*top));
}

// YYYY-MM-DDThh:mm:ss. The file does not say in which time zone it was linked, so the text names
// none (ISO 8601 reads it as local time). Nothing for 0, which the reader leaves for a date it
// could not read, or for a value no calendar holds.
std::optional<std::string> isoDate(double oleDate)
{
    ubrof::CivilTime time;
    if (oleDate == 0.0 || !ubrof::fromOleDate(oleDate, time))
        return std::nullopt;
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return std::string(text);
}

json::array memoriesJson(const Program& program)
{
    json::array memories;
    for (const model::MemoryUse& use : model::memoryUse(program))
        memories.push_back(json::object{{"Name", model::spaceName(use.space)},
                                        {"Bytes", use.bytes},
                                        {"Written", use.written},
                                        {"Low", use.low},
                                        {"End", use.end}});
    return memories;
}

// Each stack segment's functions, largest first; the top of each segment when top is given.
Answer stackSizes(const std::string& file, const std::optional<uint64_t>& top, AddressWidths& widths)
{
    const Program program = loadModel(file, false);
    recordedStackSegments(program, file);
    std::map<std::string, uint64_t> listed;
    json::array stack;
    for (const model::StackEntry& entry : model::stackUseByFunction(program)) {
        if (top && ++listed[entry.segment] > *top)
            continue;
        const model::Function& function = program.functions[entry.function];
        widths.cover(model::spaceName(MemorySpace::Code), function.entry);
        stack.push_back(json::object{{"Segment", entry.segment},
                                     {"Name", function.qualifiedName},
                                     {"Module", moduleName(program, function.module)},
                                     {"Address", function.entry},
                                     {"Bytes", entry.bytes}});
    }
    return {"Sizes", json::object{{"Stack", std::move(stack)}}};
}

} // namespace

bool ProgramOptions::has(const std::string& name) const
{
    return value(name).has_value();
}

std::optional<std::string> ProgramOptions::value(const std::string& name) const
{
    for (auto option = given.rbegin(); option != given.rend(); ++option)
        if (option->first == name)
            return option->second;
    return std::nullopt;
}

std::optional<bool> programOptionTakesValue(const std::string& name)
{
    for (const auto& option : kProgramOptions)
        if (name == option.name)
            return option.takesValue;
    return std::nullopt;
}

void checkProgramOptions(const std::string& command, const ProgramOptions& options)
{
    for (const auto& given : options.given)
        for (const auto& option : kProgramOptions) {
            if (given.first != option.name)
                continue;
            const std::vector<std::string>& commands = option.commands;
            if (std::find(commands.begin(), commands.end(), command) == commands.end())
                throw usageError(given.first + " does not belong to " + command + "; it belongs to " + listed(commands));
        }
    if (options.has("--size-sort") && options.has("--name-sort"))
        throw usageError("nm sorts by --size-sort or --name-sort, not both");
    if (options.has("--stack") && options.has("--variables"))
        throw usageError("nm --stack lists functions, which alone take stack; give it without --variables");
    if (options.has("--stack") && options.has("--by"))
        throw usageError("size --stack lists stack use instead of the lists --by chooses from; give one of them");
}

bool isQualified(const std::string& name)
{
    return name.find("::") != std::string::npos;
}

Answer addr2line(const std::string& file, const std::vector<std::string>& args, const PathMap& paths)
{
    const Program program = loadModel(file, false);
    std::vector<uint64_t> addresses;
    for (const std::string& argument : args) {
        const bool isNumber = !argument.empty() && std::isdigit(static_cast<unsigned char>(argument.front()));
        addresses.push_back(isNumber ? parseNumber(argument, "ADDR") : functionAddress(program, argument));
        if (addresses.back() > 0xFFFFFFFF)
            throw usageError("ADDR out of range: " + argument + " lies beyond 32-bit code addresses");
    }
    json::array entries;
    for (uint64_t address : addresses)
        entries.push_back(symbolizedEntry(program, static_cast<uint32_t>(address), file, paths));
    return {"Symbolized", std::move(entries)};
}

Answer nm(const std::string& file, const std::vector<std::string>& args, const ProgramOptions& options,
          AddressWidths& widths)
{
    const Program program = loadModel(file, false);
    const std::optional<std::string> wantedModule = options.value("--module");
    const uint32_t module = wantedModule ? findModule(program, *wantedModule) : kNone;
    const bool functions = listsFunctions(options), variables = options.has("--variables");
    const bool stack = options.has("--stack");
    const std::vector<std::string> segments = stack ? recordedStackSegments(program, file) : std::vector<std::string>();
    std::vector<model::SymbolEntry> entries;
    for (const model::SymbolEntry& entry : model::listSymbols(program)) {
        const bool isFunction = entry.kind == model::SymbolEntry::Kind::Function;
        if ((functions || variables) && !(isFunction ? functions : variables))
            continue;
        if (module != kNone && entry.module != module)
            continue;
        if (!args.empty() && !matches(args.front(), *entry.qualifiedName) && !matches(args.front(), plainName(program, entry)))
            continue;
        entries.push_back(entry);
    }
    if (entries.empty())
        throw notFound(whatNmLooksFor(args, options) + " in " + file);
    if (options.has("--size-sort"))
        std::stable_sort(entries.begin(), entries.end(),
                         [](const model::SymbolEntry& a, const model::SymbolEntry& b) { return a.size < b.size; });
    else if (options.has("--name-sort"))
        std::stable_sort(entries.begin(), entries.end(), [](const model::SymbolEntry& a, const model::SymbolEntry& b) {
            return *a.qualifiedName < *b.qualifiedName;
        });

    json::array list;
    for (const model::SymbolEntry& entry : entries) {
        const bool isFunction = entry.kind == model::SymbolEntry::Kind::Function;
        const char* memory = model::spaceName(entry.space);
        widths.cover(memory, uint64_t(entry.address) + (entry.size ? entry.size - 1 : 0));
        json::object item{{"Name", *entry.qualifiedName},
                          {"Address", entry.address},
                          {"Size", entry.size},
                          {"Kind", std::string(1, kindLetter(entry))},
                          {"Memory", memory},
                          {"Category", isFunction ? "function" : "variable"},
                          {"External", entry.isExternal},
                          {"Module", moduleName(program, entry.module)}};
        if (isFunction) {
            item["Described"] = program.functions[entry.index].isDescribed;
            if (stack)
                item["Stack"] = stackJson(program.functions[entry.index], segments);
        } else {
            const uint32_t function = program.variables[entry.index].function;
            item["Function"] = function < program.functions.size() ? program.functions[function].qualifiedName : "";
        }
        list.push_back(std::move(item));
    }
    return {"NameList", std::move(list)};
}

Answer size(const std::string& file, const ProgramOptions& options, AddressWidths& widths)
{
    static const char* const kGroupings[] = {"memory", "module", "function"};
    const std::string by = options.value("--by").value_or("");
    if (options.has("--by") && std::find(std::begin(kGroupings), std::end(kGroupings), by) == std::end(kGroupings))
        throw usageError("--by takes memory, module or function, not " + by);
    std::optional<uint64_t> top;
    if (const auto topText = options.value("--top")) {
        top = parseNumber(*topText, "--top");
        if (*top == 0)
            throw usageError("--top 0 would show nothing; give at least 1");
    }
    if (options.has("--stack"))
        return stackSizes(file, top, widths);
    // Memories and modules need no function: a light build has them, at a fraction of the memory.
    const Program program = loadModel(file, by == "memory" || by == "module");

    json::object sizes;
    bool any = false;
    if (by.empty() || by == "memory") {
        json::array memories = memoriesJson(program);
        for (const auto& memory : memories) {
            const json::object& m = memory.get_object();
            const uint64_t end = m.at("End").to_number<uint64_t>();
            widths.cover(std::string(m.at("Name").as_string()), end ? end - 1 : 0);
        }
        keepTop(memories, top);
        any = any || !memories.empty();
        sizes["Memories"] = std::move(memories);
    }
    if (by.empty() || by == "module") {
        std::vector<model::SizeEntry> entries = model::sizesByModule(program);
        keepTop(entries, top);
        json::array modules;
        for (const model::SizeEntry& entry : entries)
            modules.push_back(
                json::object{{"Name", entry.name}, {"Memory", model::spaceName(entry.space)}, {"Bytes", entry.bytes}});
        any = any || !modules.empty();
        sizes["Modules"] = std::move(modules);
    }
    if (by.empty() || by == "function") {
        std::vector<model::SizeEntry> entries = model::sizesByFunction(program);
        keepTop(entries, top);
        json::array functions;
        for (const model::SizeEntry& entry : entries) {
            const model::Function& function = program.functions[entry.index];
            widths.cover(model::spaceName(MemorySpace::Code), function.entry);
            functions.push_back(json::object{{"Name", entry.name},
                                             {"Module", moduleName(program, function.module)},
                                             {"Address", function.entry},
                                             {"Bytes", entry.bytes}});
        }
        any = any || !functions.empty();
        sizes["Functions"] = std::move(functions);
    }
    if (!any)
        throw notFound(by == "function" ? file + " has no function"
                       : by == "module"   ? "no module of " + file + " takes any bytes"
                                          : file + " holds no program bytes");
    return {"Sizes", std::move(sizes)};
}

json::object programSummary(const std::string& file)
{
    const Program program = loadModel(file, true);
    json::object summary;
    summary["FormatVersion"] = program.version;
    if (const auto created = isoDate(program.creationTime))
        summary["Created"] = *created;
    else
        summary["Created"] = nullptr;
    summary["Processor"] =
        json::object{{"Name", program.processor.name}, {"Family", model::familyName(program.processor.family)}};
    summary["Memories"] = memoriesJson(program);
    summary["ProgramModules"] = program.modules.size();
    std::vector<std::pair<uint64_t, const model::Module*>> byCode;
    for (const model::Module& module : program.modules)
        if (const uint64_t bytes = module.size(MemorySpace::Code))
            byCode.emplace_back(bytes, &module);
    std::stable_sort(byCode.begin(), byCode.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    json::array largest;
    for (size_t i = 0; i < byCode.size() && i < kLargestModules; ++i)
        largest.push_back(json::object{{"Name", byCode[i].second->name}, {"CodeBytes", byCode[i].first}});
    summary["LargestModules"] = std::move(largest);
    return summary;
}

std::vector<PlacedName> placeQualified(const std::string& file, const std::string& qualified)
{
    const Program program = loadModel(file, false);
    std::vector<PlacedName> placed;
    const std::string plain = qualified.substr(qualified.rfind("::") + 2);
    for (uint32_t f : model::findFunctions(program, qualified))
        if (program.functions[f].qualifiedName == qualified)
            placed.push_back({plain, true, program.functions[f].entry, program.functions[f].end});
    for (uint32_t v : model::findVariables(program, qualified)) {
        const model::Variable& variable = program.variables[v];
        if (variable.qualifiedName == qualified && variable.location.kind == model::Location::Kind::Address)
            placed.push_back({plain, false, variable.location.address, uint64_t(variable.location.address) + variable.size});
    }
    if (placed.empty())
        throw notFound("no function or variable " + qualified + " in " + file);
    return placed;
}

} // namespace ubrofdump
