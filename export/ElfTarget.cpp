// Processor facts for the ELF exporter: machine codes, AVR architectures by device, memory windows.
#include "export/ElfTarget.h"

#include "export/ExportError.h"
#include "export/ImageExport.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <elf.h>
#include <sstream>
#include <utility>

namespace ubrof::exporter {

using model::Family;
using model::MemorySpace;
using model::Program;

namespace {

struct AvrDevice {
    const char* name;
    uint32_t architecture;
};

constexpr AvrDevice kAvrDevices[] = {
#define AVR_DEVICE(name, architecture) {name, architecture},
#include "export/AvrDevices.def"
#undef AVR_DEVICE
};

/// Devices the simulator lacks, and the part it knows that runs their programs alike. Only where
/// that holds: an "A" part is a later process of the same device, with the same memories,
/// registers and vectors; the ATmega64 shares the ATmega128's core, registers, vectors and RAM,
/// and has half its flash and EEPROM, which a program for the smaller part never leaves. No part
/// the simulator knows stands in for the AT90USB1287 (its USB parts have less flash and other
/// vectors), so it keeps its own name and the simulator says it does not know it.
constexpr std::pair<const char*, const char*> kSimulatorStandIns[] = {
    {"atmega8a", "atmega8"},   {"atmega16a", "atmega16"},  {"atmega32a", "atmega32"},
    {"atmega64", "atmega128"}, {"atmega64a", "atmega128"}, {"atmega128a", "atmega128"},
};

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The compiler's own attribute for the core (__core), which names MSP430 and RL78 cores better than
/// the processor name does.
std::string attribute(const Program& program, const char* key)
{
    for (const auto& [name, value] : program.attributes)
        if (name == key)
            return value;
    return {};
}

ElfTarget avrTarget(const Program& program)
{
    const std::string device = lowerCase(program.processor.name);
    const auto known = std::find_if(std::begin(kAvrDevices), std::end(kAvrDevices),
                                     [&](const AvrDevice& d) { return device == d.name; });
    if (known == std::end(kAvrDevices))
        throw ExportError("processor " + program.processor.name +
                          ": not an AVR device whose architecture is known, so no ELF header can be made for it");
    ElfTarget target;
    target.machine = EM_AVR;
    // No link-relax flag: the code is linked already and nothing may shorten its calls.
    target.flags = known->architecture;
    target.device = device;
    for (const auto& [lacking, standIn] : kSimulatorStandIns)
        if (device == lacking)
            target.device = standIn;
    // GNU's AVR windows: program memory below 8 MiB, 64 KiB of data at 0x800000, EEPROM at 0x810000.
    target.code = {0, 0x800000};
    target.data = {0x800000, 0x10000};
    target.eeprom = {0x810000, 0x10000};
    target.registerBytes = 1;
    // This compiler family's AVR code keeps its data stack pointer in Y (r28:r29) and reaches locals
    // through it, so Y is the frame base. gdb reads DW_OP_breg28 as a data pointer, r28 and r29
    // together, and maps it into the data window itself.
    target.frameBaseRegister = 28;
    return target;
}

ElfTarget msp430Target(const Program& program)
{
    ElfTarget target;
    target.machine = EM_MSP430;
    // GNU's machine numbers: 45 for the 430X cores with 20-bit addresses, 11 for the original core.
    const std::string core = lowerCase(attribute(program, "__core") + " " + program.processor.name);
    const bool extended = core.find("430x") != std::string::npos;
    target.flags = extended ? 45 : 11;
    const uint64_t space = extended ? 0x100000 : 0x10000;
    target.code = {0, space};
    target.data = {0, space};
    target.eeprom = {0x2000000, 0x1000000};
    target.registerBytes = 2;
    // Locals on the stack are reached through SP (R1) in this family's MSP430 code.
    target.frameBaseRegister = 1;
    return target;
}

ElfTarget rl78Target(const Program& program)
{
    ElfTarget target;
    target.machine = EM_RL78;
    // GNU's RL78 CPU field: G10 (the rl78_0 core) 4, G13 (rl78_1) 8, G14 (rl78_2) 12; 0 any.
    const std::string core = lowerCase(attribute(program, "__core"));
    target.flags = core == "rl78_0" ? 4 : core == "rl78_1" ? 8 : core == "rl78_2" ? 12 : 0;
    target.code = {0, 0x100000};
    target.data = {0, 0x100000};
    target.eeprom = {0x2000000, 0x1000000};
    target.registerBytes = 1;
    // No DWARF register numbering of RL78 stack pointers is agreed on, so stack locals go undescribed.
    return target;
}

ElfTarget i8051Target()
{
    ElfTarget target;
    target.machine = EM_8051;
    target.flags = 0;
    target.code = {0, 0x1000000};
    target.data = {0x1000000, 0x1000000};
    target.eeprom = {0x2000000, 0x1000000};
    // Above the other windows rather than beside internal data: an XDATA variable at 0x40 and a
    // DATA one at 0x40 are two places, and a debugger told the ELF address tells them apart. Cores
    // with far XDATA address 16 MiB of it, which the window holds whole.
    target.external = {0x3000000, 0x1000000};
    target.registerBytes = 1;
    return target;
}

} // namespace

const ElfTarget::Window& ElfTarget::window(MemorySpace space) const
{
    switch (space) {
    case MemorySpace::Data:
        return data;
    case MemorySpace::Eeprom:
        return eeprom;
    case MemorySpace::External:
        return external;
    case MemorySpace::Code:
        break;
    }
    return code;
}

uint32_t ElfTarget::address(MemorySpace space, uint64_t memoryAddress, const char* what) const
{
    const Window& w = window(space);
    if (memoryAddress > w.size) {
        std::ostringstream message;
        message << what << ": " << memoryName(space) << " address 0x" << std::hex << memoryAddress
                << " lies beyond the 0x" << w.size << " bytes this processor's " << memoryName(space)
                << " memory has";
        throw ExportError(message.str());
    }
    return static_cast<uint32_t>(w.base + memoryAddress);
}

ElfTarget elfTargetFor(const Program& program)
{
    if (program.processor.family == Family::Unknown && !program.processor.name.empty())
        throw ExportError("processor " + program.processor.name +
                          ": of no processor family with an ELF machine code, so no ELF header can be made for it");
    if (program.processor.family == Family::Unknown)
        throw ExportError("the program does not say which processor family it is for, so no ELF machine code can "
                          "be chosen");
    if (program.processor.name.empty())
        throw ExportError("the program does not name its processor, so no ELF header can be made for it");
    switch (program.processor.family) {
    case Family::Avr:
        return avrTarget(program);
    case Family::Msp430:
        return msp430Target(program);
    case Family::Rl78:
        return rl78Target(program);
    case Family::I8051:
        return i8051Target();
    case Family::Unknown:
        break;
    }
    throw ExportError("processor " + program.processor.name + ": no ELF machine code for its family");
}

} // namespace ubrof::exporter
