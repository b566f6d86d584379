// Vocabulary: the one definition of every shared string and the memory-space tables.
#include "parser/Vocabulary.h"

namespace ubrof {

namespace ObjectFileFormats {
const std::string ElfDwarf = "ElfDwarf", Nordic = "Nordic", Ubrof = "Ubrof", Coff = "Coff";
}

namespace MemorySpaceNames {
const std::string Base = "base", Prog = "prog", Data = "data", Eeprom = "eeprom", Io = "io",
                  Registers = "registers", Fuses = "fuses", Lockbits = "lockbits", Signatures = "signatures",
                  UserSignatures = "user_signatures", ProdSignatures = "prod_signatures", Osccal = "osccal",
                  Sysreg = "sysreg";
}

namespace SegmentNames {
const std::string Flash = "FLASH", Iflash = "IFLASH", Iflash0 = "IFLASH0", Iflash1 = "IFLASH1",
                  BootSection = "BOOT_SECTION", AppSection = "APP_SECTION", Progmem = "PROGMEM", Rom = "ROM",
                  Irom = "IROM", Rww = "RWW", ApptableSection = "APPTABLE_SECTION", Sram = "SRAM", Iram = "IRAM",
                  Iram0 = "IRAM0", Iram1 = "IRAM1", Idram = "IDRAM", Xram = "XRAM", Hramc0 = "HRAMC0",
                  Hramc1 = "HRAMC1", Bleram = "BLERAM", InternalSram = "INTERNAL_SRAM", Peripherals = "PERIPHERALS",
                  UserPage = "USER_PAGE", Fuses = "FUSES", Lockbits = "LOCKBITS", Signatures = "SIGNATURES",
                  UserSignatures = "USER_SIGNATURES", ProdSignatures = "PROD_SIGNATURES", Io = "IO",
                  MappedIo = "MAPPED_IO", MappedEeprom = "MAPPED_EEPROM", Eeprom = "EEPROM",
                  Registers = "REGISTERS", Vga = "VGA";
}

namespace ShortMemoryNames {
const std::string Prog = "prog", Data = "data", Eeprom = "eeprom", Io = "io", Ram = "ram", Regs = "regs";
}

namespace ProcessContextKeys {
const std::string ID = "ID", ParentID = "ParentID", Attached = "Attached", CanTerminate = "CanTerminate",
                  Name = "Name", StdInID = "StdInID", StdOutID = "StdOutID", StdErrID = "StdErrID",
                  RunControlId = "RunControlId", TraceID = "TraceID", Signature = "Signature",
                  MemoryType = "MemoryType", LoadAddress = "LoadAddress", UseSymbols = "UseSymbols";
}

namespace RegisterKeys {
const std::string ID = "ID", ParentID = "ParentID", ProcessID = "ProcessID", Name = "Name",
                  Description = "Description", Readable = "Readable", ReadOnce = "ReadOnce", Writeable = "Writeable",
                  WriteOnce = "WriteOnce", SideEffects = "SideEffects", Volatile = "Volatile", Float = "Float",
                  BigEndian = "BigEndian", LeftToRight = "LeftToRight", FirstBit = "FirstBit", Bits = "Bits",
                  Values = "Values", MemoryAddress = "MemoryAddress", MemoryContext = "MemoryContext",
                  CanSearch = "CanSearch", Role = "Role", Size = "Size";
}

namespace RegisterRoles {
const std::string PC = "PC", SP = "SP", FP = "FP", RET = "RET", CORE = "CORE", SREG = "SREG", ALIAS = "ALIAS",
                  CYCLECOUNTER = "CYCLECOUNTER";
}

namespace RegisterSearchKeys {
const std::string EqualValue = "EqualValue", Name = "Name";
}

namespace StackFrameKeys {
const std::string ID = "ID", ParentID = "ParentID", ProcessID = "ProcessID", Name = "Name", Level = "Level",
                  FP = "FP", RP = "RP", IP = "IP", ArgsCnt = "ArgsCnt", ArgsAddr = "ArgsAddr", Func = "Func",
                  File = "File", Line = "Line";
}

namespace SymbolKeys {
const std::string ID = "ID", ExeID = "ExeID", Name = "Name", Class = "Class", TypeClass = "TypeClass",
                  TypeID = "TypeID", BaseTypeID = "BaseTypeID", IndexTypeID = "IndexTypeID", Size = "Size",
                  Length = "Length", Offset = "Offset", Address = "Address", Value = "Value", Memory = "Memory",
                  MultiLocation = "MultiLocation";
}

const std::string& segmentMemorySpace(uint8_t memoryClass)
{
    switch (memoryClass) {
    case DataMemory:
        return MemorySpaceNames::Data;
    case EepromMemory:
        return MemorySpaceNames::Eeprom;
    default:
        // The image has only code, data and EEPROM; whatever else is downloaded with the code.
        return MemorySpaceNames::Prog;
    }
}

const std::string& locationMemorySpace(uint8_t memoryClass)
{
    static const std::string none;
    switch (memoryClass) {
    case CodeMemory:
        return MemorySpaceNames::Prog;
    case DataMemory:
        return MemorySpaceNames::Data;
    case EepromMemory:
        return MemorySpaceNames::Eeprom;
    case RegisterMemory:
        return MemorySpaceNames::Registers;
    default:
        // I/O and unknown memories have no space the host can read a symbol from.
        return none;
    }
}

} // namespace ubrof
