// The program commands' questions, answered from a built Program alone.
#include "model/ProgramQueries.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace ubrof::model {
namespace {

void largestFirst(std::vector<SizeEntry>& entries)
{
    std::stable_sort(entries.begin(), entries.end(), [](const SizeEntry& a, const SizeEntry& b) {
        return std::tie(b.bytes, a.name) < std::tie(a.bytes, b.name);
    });
}

template <typename Record>
std::vector<uint32_t> named(const std::vector<Record>& records, const std::string& name)
{
    std::vector<uint32_t> found;
    for (uint32_t index = 0; index < records.size(); ++index)
        if (records[index].qualifiedName == name || records[index].name == name)
            found.push_back(index);
    return found;
}

} // namespace

SourcePlace symbolize(const Program& program, uint32_t address)
{
    SourcePlace place;
    place.function = program.functionAt(address);
    if (place.function != kNone)
        place.offset = address - program.functions[place.function].entry;
    place.row = program.lineAt(address);
    return place;
}

std::vector<SymbolEntry> listSymbols(const Program& program)
{
    std::vector<SymbolEntry> entries;
    for (uint32_t index = 0; index < program.functions.size(); ++index) {
        const Function& function = program.functions[index];
        SymbolEntry entry;
        entry.kind = SymbolEntry::Kind::Function;
        entry.index = index;
        entry.address = function.entry;
        entry.size = function.size();
        entry.module = function.module;
        entry.isExternal = function.isExternal;
        entry.qualifiedName = &function.qualifiedName;
        entries.push_back(entry);
    }
    for (uint32_t index = 0; index < program.variables.size(); ++index) {
        const Variable& variable = program.variables[index];
        if (variable.location.kind != Location::Kind::Address)
            continue;
        SymbolEntry entry;
        entry.kind = SymbolEntry::Kind::Variable;
        entry.index = index;
        entry.space = variable.location.space;
        entry.address = variable.location.address;
        entry.size = variable.size;
        entry.module = variable.module;
        entry.isExternal = variable.isExternal;
        entry.qualifiedName = &variable.qualifiedName;
        entries.push_back(entry);
    }
    std::stable_sort(entries.begin(), entries.end(), [](const SymbolEntry& a, const SymbolEntry& b) {
        return std::tie(a.space, a.address, *a.qualifiedName) < std::tie(b.space, b.address, *b.qualifiedName);
    });
    return entries;
}

std::vector<uint32_t> findFunctions(const Program& program, const std::string& name)
{
    return named(program.functions, name);
}

std::vector<uint32_t> findVariables(const Program& program, const std::string& name)
{
    return named(program.variables, name);
}

std::vector<SizeEntry> sizesByMemory(const Program& program)
{
    std::vector<SizeEntry> entries;
    for (const MemoryImage& memory : program.memories)
        entries.push_back({memory.name, memory.space, memory.byteCount(), kNone});
    largestFirst(entries);
    return entries;
}

std::vector<MemoryUse> memoryUse(const Program& program)
{
    std::vector<MemoryUse> uses;
    std::vector<std::pair<uint64_t, uint64_t>> spans;
    for (MemorySpace space : kMemorySpaces) {
        spans.clear();
        MemoryUse use;
        use.space = space;
        if (const MemoryImage* image = program.memory(space)) {
            use.written = image->byteCount();
            for (const ByteRun& run : image->runs)
                spans.emplace_back(run.address, run.end());
            if (image->runs.empty() && image->extent)
                spans.insert(spans.end(), image->extent->spans.begin(), image->extent->spans.end());
        }
        for (const Module& module : program.modules)
            for (const AddressRange& range : module.ranges)
                if (range.space == space && range.low < range.high)
                    spans.emplace_back(range.low, range.high);
        if (spans.empty())
            continue;
        std::sort(spans.begin(), spans.end());
        use.low = static_cast<uint32_t>(spans.front().first);
        uint64_t low = spans.front().first, end = spans.front().second;
        for (const auto& span : spans) {
            if (span.first > end) {
                use.bytes += end - low;
                low = span.first;
            }
            end = std::max(end, span.second);
        }
        use.bytes += end - low;
        use.end = end;
        uses.push_back(use);
    }
    std::stable_sort(uses.begin(), uses.end(), [](const MemoryUse& a, const MemoryUse& b) { return a.bytes > b.bytes; });
    return uses;
}

std::vector<SizeEntry> sizesByModule(const Program& program)
{
    std::vector<SizeEntry> entries;
    for (uint32_t index = 0; index < program.modules.size(); ++index)
        for (MemorySpace space : kMemorySpaces) {
            const uint64_t bytes = program.modules[index].size(space);
            if (bytes != 0)
                entries.push_back({program.modules[index].name, space, bytes, index});
        }
    largestFirst(entries);
    return entries;
}

std::vector<SizeEntry> sizesByFunction(const Program& program)
{
    std::vector<SizeEntry> entries;
    for (uint32_t index = 0; index < program.functions.size(); ++index) {
        const Function& function = program.functions[index];
        entries.push_back({function.qualifiedName, MemorySpace::Code, function.size(), index});
    }
    largestFirst(entries);
    return entries;
}

std::vector<std::string> stackSegments(const Program& program)
{
    std::vector<std::string> segments;
    for (const Function& function : program.functions)
        for (const auto& [segment, bytes] : function.stackUse)
            if (bytes != 0 && std::find(segments.begin(), segments.end(), segment) == segments.end())
                segments.push_back(segment);
    std::sort(segments.begin(), segments.end());
    return segments;
}

uint32_t stackUse(const Function& function, const std::string& segment)
{
    uint32_t bytes = 0;
    for (const auto& [name, used] : function.stackUse)
        if (name == segment)
            bytes += used;
    return bytes;
}

std::vector<StackEntry> stackUseByFunction(const Program& program)
{
    std::vector<StackEntry> entries;
    for (uint32_t index = 0; index < program.functions.size(); ++index)
        for (const auto& [segment, bytes] : program.functions[index].stackUse)
            if (bytes != 0)
                entries.push_back({segment, index, bytes});
    const std::vector<Function>& functions = program.functions;
    std::stable_sort(entries.begin(), entries.end(), [&functions](const StackEntry& a, const StackEntry& b) {
        return std::tie(a.segment, b.bytes, functions[a.function].qualifiedName) <
               std::tie(b.segment, a.bytes, functions[b.function].qualifiedName);
    });
    return entries;
}

const char* spaceName(MemorySpace space)
{
    switch (space) {
    case MemorySpace::Code: return "code";
    case MemorySpace::Data: return "data";
    case MemorySpace::Eeprom: return "eeprom";
    case MemorySpace::External: return "xdata";
    }
    return "unknown";
}

Family familyOfProcessor(const std::string& name)
{
    std::string cpu = name;
    for (char& c : cpu)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const auto startsWith = [&cpu](const char* prefix) { return cpu.rfind(prefix, 0) == 0; };
    // 8051 derivatives named AT89 share the AT prefix of the AVR parts.
    if (startsWith("at89") || startsWith("8051") || startsWith("cc25") || startsWith("cc85"))
        return Family::I8051;
    if (startsWith("at") || startsWith("avr"))
        return Family::Avr;
    if (startsWith("msp430") || startsWith("cc430"))
        return Family::Msp430;
    if (startsWith("rl78") || startsWith("r5f1"))
        return Family::Rl78;
    return Family::Unknown;
}

const char* familyName(Family family)
{
    switch (family) {
    case Family::Avr: return "AVR";
    case Family::Msp430: return "MSP430";
    case Family::I8051: return "8051";
    case Family::Rl78: return "RL78";
    case Family::Unknown: break;
    }
    return "unknown";
}

} // namespace ubrof::model
