// Vocabulary: the fixed strings shared with the host debugger and the memory space of each MemoryClass.
#pragma once

#include "reader/MemoryClass.h"

#include <cstdint>
#include <string>

namespace ubrof {

/// Names of the object-file formats the host knows parsers for.
namespace ObjectFileFormats {
extern const std::string ElfDwarf, Nordic, Ubrof, Coff;
}

/// The host's memory spaces, lower case.
namespace MemorySpaceNames {
extern const std::string Base, Prog, Data, Eeprom, Io, Registers, Fuses, Lockbits, Signatures, UserSignatures,
    ProdSignatures, Osccal, Sysreg;
}

/// Device memory segments, upper case.
namespace SegmentNames {
extern const std::string Flash, Iflash, Iflash0, Iflash1, BootSection, AppSection, Progmem, Rom, Irom, Rww,
    ApptableSection, Sram, Iram, Iram0, Iram1, Idram, Xram, Hramc0, Hramc1, Bleram, InternalSram, Peripherals,
    UserPage, Fuses, Lockbits, Signatures, UserSignatures, ProdSignatures, Io, MappedIo, MappedEeprom, Eeprom,
    Registers, Vga;
}

namespace ShortMemoryNames {
extern const std::string Prog, Data, Eeprom, Io, Ram, Regs;
}

/// Property keys of a process context.
namespace ProcessContextKeys {
extern const std::string ID, ParentID, Attached, CanTerminate, Name, StdInID, StdOutID, StdErrID, RunControlId,
    TraceID, Signature, MemoryType, LoadAddress, UseSymbols;
}

/// Property keys of a register context.
namespace RegisterKeys {
extern const std::string ID, ParentID, ProcessID, Name, Description, Readable, ReadOnce, Writeable, WriteOnce,
    SideEffects, Volatile, Float, BigEndian, LeftToRight, FirstBit, Bits, Values, MemoryAddress, MemoryContext,
    CanSearch, Role, Size;
}

/// Values of the register key "Role".
namespace RegisterRoles {
extern const std::string PC, SP, FP, RET, CORE, SREG, ALIAS, CYCLECOUNTER;
}

namespace RegisterSearchKeys {
extern const std::string EqualValue, Name;
}

/// Property keys of a stack frame.
namespace StackFrameKeys {
extern const std::string ID, ParentID, ProcessID, Name, Level, FP, RP, IP, ArgsCnt, ArgsAddr, Func, File, Line;
}

/// Property keys of a symbol context.
namespace SymbolKeys {
extern const std::string ID, ExeID, Name, Class, TypeClass, TypeID, BaseTypeID, IndexTypeID, Size, Length, Offset,
    Address, Value, Memory, MultiLocation;
}

/// Memory space of a program segment: prog, data or eeprom; anything else is downloaded as prog.
const std::string& segmentMemorySpace(uint8_t memoryClass);

/// Memory space of a symbol location: prog, data, eeprom or registers; anything else is the empty string.
const std::string& locationMemorySpace(uint8_t memoryClass);

} // namespace ubrof
