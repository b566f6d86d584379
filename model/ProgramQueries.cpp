// The program commands' questions, answered from a built Program alone.
#include "model/ProgramQueries.h"

#include <algorithm>
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

std::vector<SizeEntry> sizesByModule(const Program& program)
{
    std::vector<SizeEntry> entries;
    for (uint32_t index = 0; index < program.modules.size(); ++index)
        for (MemorySpace space : {MemorySpace::Code, MemorySpace::Data, MemorySpace::Eeprom}) {
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

const char* spaceName(MemorySpace space)
{
    switch (space) {
    case MemorySpace::Code: return "code";
    case MemorySpace::Data: return "data";
    case MemorySpace::Eeprom: return "eeprom";
    }
    return "unknown";
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
