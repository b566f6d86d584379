// How a Program's processor looks in an ELF file: machine code, header flags, where each memory
// sits in the one ELF address space, and the processor facts its DWARF needs.
//
// AVR follows its GNU toolchain: code at 0, data at 0x800000, EEPROM at 0x810000, e_flags the core's
// architecture number. MSP430 and RL78 have one address space for code and data, so both keep the
// addresses the processor sees. The 8051's code and data spaces both start at 0; its data moves to
// 0x1000000, above the largest banked code address, so that the two never share an ELF address;
// its external data (XDATA), whose addresses start at 0 too, gets a window of its own at 0x3000000.
#pragma once

#include "model/Program.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ubrof::exporter {

struct ElfTarget {
    /// Where one memory's addresses sit in the ELF address space, and how many there are.
    struct Window {
        uint32_t base = 0;
        uint64_t size = 0;
    };

    uint16_t machine = 0; ///< EM_AVR, EM_MSP430, EM_8051, EM_RL78
    uint32_t flags = 0;   ///< e_flags
    /// Lower-case name of the device a simulator runs the program on (AVR): the processor's own,
    /// or a close relative's for a few the simulator lacks; else empty.
    std::string device;
    Window code, data, eeprom;
    /// The 8051's external data; empty for the families that have none.
    Window external;
    unsigned registerBytes = 1; ///< width of one register, for DW_OP_piece
    /// DWARF register whose value is the frame base of frame-offset locations; none: such locations
    /// cannot be described. The register is read as a data pointer, which AVR's gdb itself moves
    /// into the data window, so frame-based addresses need no offset of their own.
    std::optional<unsigned> frameBaseRegister;

    const Window& window(model::MemorySpace space) const;
    /// The ELF address of a memory address; throws ExportError when it lies outside the window.
    uint32_t address(model::MemorySpace space, uint64_t memoryAddress, const char* what) const;
};

/// The ELF target for the program's processor; throws ExportError when the program names no
/// processor, or one that has no ELF machine code or whose architecture is not known.
ElfTarget elfTargetFor(const model::Program& program);

} // namespace ubrof::exporter
