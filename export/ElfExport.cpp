// The ELF executable: loaded sections per memory, the symbol table, DWARF, written through libelf.
#include "export/ElfExport.h"

#include "export/DwarfExport.h"
#include "export/ElfTarget.h"
#include "export/ExportError.h"
#include "export/ImageExport.h"
#include "export/OutputFile.h"

#include <gelf.h>
#include <libelf.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <ostream>
#include <sstream>

namespace ubrof::exporter {

using model::kNone;
using model::MemorySpace;
using model::Program;

namespace {

/// A memory's bytes as one section, from its lowest written address to its last.
struct LoadedSection {
    std::string name;
    uint32_t address = 0;
    std::string bytes;
    uint32_t sectionFlags = 0;
    uint32_t segmentFlags = 0;
    uint32_t align = 1;
};

struct Symbol {
    std::string name;
    uint32_t value = 0;
    uint32_t size = 0;
    unsigned char type = STT_NOTYPE;
    unsigned char binding = STB_LOCAL;
    uint32_t module = kNone;
};

std::string hex(uint64_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

/// One section per memory, gaps filled as the memory reads when nothing was written there: 0xFF for
/// flash and EEPROM, 0 for RAM. One section from the lowest address is what loaders of these
/// processors expect (simavr takes .text as the flash image from its start), and the windows
/// bound its size.
std::vector<LoadedSection> loadedSections(const Program& program, const ElfTarget& target)
{
    struct Kind {
        MemorySpace space;
        const char* name;
        uint32_t sectionFlags, segmentFlags;
        char fill;
    };
    const Kind kinds[] = {
        {MemorySpace::Code, ".text", SHF_ALLOC | SHF_EXECINSTR, PF_R | PF_X, '\xFF'},
        {MemorySpace::Data, ".data", SHF_ALLOC | SHF_WRITE, PF_R | PF_W, '\0'},
        {MemorySpace::Eeprom, ".eeprom", SHF_ALLOC | SHF_WRITE, PF_R | PF_W, '\xFF'},
        {MemorySpace::External, ".xdata", SHF_ALLOC | SHF_WRITE, PF_R | PF_W, '\0'},
    };
    std::vector<LoadedSection> sections;
    for (const Kind& kind : kinds) {
        const model::MemoryImage* image = program.memory(kind.space);
        if (image == nullptr || image->empty())
            continue;
        exportableImage(program, kind.space);
        const std::string what = std::string(memoryName(kind.space)) + " memory";
        LoadedSection section;
        section.name = kind.name;
        section.address = target.address(kind.space, image->lowAddress(), what.c_str());
        target.address(kind.space, image->endAddress(), what.c_str());
        section.bytes.assign(image->endAddress() - image->lowAddress(), kind.fill);
        for (const model::ByteRun& run : image->runs)
            std::copy(run.bytes.begin(), run.bytes.end(), section.bytes.begin() + (run.address - image->lowAddress()));
        section.sectionFlags = kind.sectionFlags;
        section.segmentFlags = kind.segmentFlags;
        // AVR and MSP430 instructions are 16-bit words, as GNU aligns their code.
        const bool wordCode = kind.space == MemorySpace::Code && (target.machine == EM_AVR || target.machine == EM_MSP430);
        section.align = wordCode && section.address % 2 == 0 ? 2 : 1;
        sections.push_back(std::move(section));
    }
    std::sort(sections.begin(), sections.end(),
              [](const LoadedSection& a, const LoadedSection& b) { return a.address < b.address; });
    for (size_t i = 1; i < sections.size(); ++i) {
        if (uint64_t(sections[i - 1].address) + sections[i - 1].bytes.size() > sections[i].address)
            throw ExportError(sections[i - 1].name + " and " + sections[i].name + " overlap at " +
                              hex(sections[i].address) + " of this processor's one address space");
    }
    return sections;
}

std::vector<Symbol> symbols(const Program& program, const ElfTarget& target)
{
    std::vector<Symbol> list;
    for (const model::Function& function : program.functions) {
        Symbol symbol;
        symbol.name = function.qualifiedName.empty() ? function.name : function.qualifiedName;
        if (symbol.name.empty())
            continue;
        symbol.value = target.address(MemorySpace::Code, function.entry, symbol.name.c_str());
        symbol.size = function.entry < function.end ? function.end - function.entry : 0;
        symbol.type = STT_FUNC;
        symbol.binding = function.isExternal ? STB_GLOBAL : STB_LOCAL;
        symbol.module = function.module;
        list.push_back(std::move(symbol));
    }
    for (const model::Variable& variable : program.variables) {
        if (variable.isParameter || variable.location.kind != model::Location::Kind::Address)
            continue;
        Symbol symbol;
        symbol.name = variable.qualifiedName.empty() ? variable.name : variable.qualifiedName;
        if (symbol.name.empty())
            continue;
        symbol.value = target.address(variable.location.space, variable.location.address, symbol.name.c_str());
        symbol.size = variable.size;
        symbol.type = STT_OBJECT;
        symbol.binding = variable.isExternal && variable.function == kNone ? STB_GLOBAL : STB_LOCAL;
        symbol.module = variable.module;
        list.push_back(std::move(symbol));
    }
    // ELF wants the locals first. Each module's locals follow a file symbol naming it, as linkers
    // order them; locals of no module come before the first.
    std::stable_sort(list.begin(), list.end(), [](const Symbol& a, const Symbol& b) {
        if (a.binding != b.binding)
            return a.binding == STB_LOCAL;
        return a.binding == STB_LOCAL && a.module + 1 < b.module + 1; // kNone + 1 == 0 sorts first
    });
    std::vector<Symbol> ordered;
    uint32_t currentModule = kNone;
    for (Symbol& symbol : list) {
        if (symbol.binding == STB_LOCAL && symbol.module != currentModule && symbol.module < program.modules.size()) {
            currentModule = symbol.module;
            const model::Module& module = program.modules[currentModule];
            Symbol file;
            file.name = module.file < program.files.size() ? program.files[module.file].path : module.name;
            file.name = file.name.substr(file.name.find_last_of("/\\") + 1);
            file.type = STT_FILE;
            ordered.push_back(std::move(file));
        }
        ordered.push_back(std::move(symbol));
    }
    return ordered;
}

/// libelf's handle and the descriptor under it, released however the writing ends.
class ElfFile {
public:
    ElfFile()
    {
        if (elf_version(EV_CURRENT) == EV_NONE)
            throw ExportError(std::string("libelf: ") + elf_errmsg(-1));
        fd_ = memfd_create("ubrof-export-elf", MFD_CLOEXEC);
        if (fd_ < 0)
            throw ExportError(std::string("cannot make a memory file for the ELF image: ") + std::strerror(errno));
        elf_ = elf_begin(fd_, ELF_C_WRITE, nullptr);
        if (elf_ == nullptr)
            fail("elf_begin");
    }
    ~ElfFile()
    {
        if (elf_ != nullptr)
            elf_end(elf_);
        close(fd_);
    }
    ElfFile(const ElfFile&) = delete;
    ElfFile& operator=(const ElfFile&) = delete;

    Elf* get() const { return elf_; }
    [[noreturn]] static void fail(const char* what)
    {
        throw ExportError(std::string("libelf: ") + what + ": " + elf_errmsg(-1));
    }

    /// Adds a section holding bytes (kept alive here until the file is written).
    Elf_Scn* addSection(uint32_t name, uint32_t type, uint32_t flags, uint32_t address, std::string bytes,
                        uint32_t align, Elf_Type dataType = ELF_T_BYTE)
    {
        Elf_Scn* section = elf_newscn(elf_);
        Elf_Data* data = section != nullptr ? elf_newdata(section) : nullptr;
        Elf32_Shdr* header = section != nullptr ? elf32_getshdr(section) : nullptr;
        if (data == nullptr || header == nullptr)
            fail("cannot add a section");
        buffers_.push_back(std::move(bytes));
        data->d_buf = buffers_.back().data();
        data->d_size = buffers_.back().size();
        data->d_type = dataType;
        data->d_align = align;
        data->d_version = EV_CURRENT;
        header->sh_name = name;
        header->sh_type = type;
        header->sh_flags = flags;
        header->sh_addr = address;
        header->sh_addralign = align;
        return section;
    }

    /// The finished file's bytes.
    std::string bytes()
    {
        if (elf_update(elf_, ELF_C_WRITE) < 0)
            fail("cannot write the file");
        elf_end(elf_);
        elf_ = nullptr;
        const off_t size = lseek(fd_, 0, SEEK_END);
        std::string contents(static_cast<size_t>(size), '\0');
        if (size < 0 || pread(fd_, contents.data(), contents.size(), 0) != size)
            throw ExportError(std::string("cannot read back the ELF image: ") + std::strerror(errno));
        return contents;
    }

private:
    int fd_ = -1;
    Elf* elf_ = nullptr;
    std::deque<std::string> buffers_;
};

class StringTable {
public:
    StringTable() : text_(1, '\0') {}
    uint32_t add(const std::string& text)
    {
        const size_t at = text_.size();
        text_ += text;
        text_ += '\0';
        return static_cast<uint32_t>(at);
    }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

template <typename T>
std::string asBytes(const std::vector<T>& records)
{
    return std::string(reinterpret_cast<const char*>(records.data()), records.size() * sizeof(T));
}

std::string elfImage(const Program& program)
{
    const ElfTarget target = elfTargetFor(program);
    const std::vector<LoadedSection> loaded = loadedSections(program, target);
    const std::vector<Symbol> symbolList = symbols(program, target);
    const std::vector<DebugSection> debug = buildDwarf(program, target);

    ElfFile file;
    Elf32_Ehdr* header = elf32_newehdr(file.get());
    if (header == nullptr)
        ElfFile::fail("cannot make the ELF header");
    // Every processor here stores multi-byte values least significant byte first.
    header->e_ident[EI_DATA] = ELFDATA2LSB;
    header->e_ident[EI_OSABI] = ELFOSABI_NONE;
    header->e_type = ET_EXEC;
    header->e_machine = target.machine;
    header->e_version = EV_CURRENT;
    header->e_flags = target.flags;
    header->e_entry = program.entryPoint ? target.address(MemorySpace::Code, *program.entryPoint, "entry point") : 0;
    Elf32_Phdr* segments = nullptr;
    if (!loaded.empty() && (segments = elf32_newphdr(file.get(), loaded.size())) == nullptr)
        ElfFile::fail("cannot make the program headers");

    StringTable sectionNames;
    std::vector<std::pair<const LoadedSection*, Elf_Scn*>> placed;
    for (const LoadedSection& section : loaded)
        placed.emplace_back(&section, file.addSection(sectionNames.add(section.name), SHT_PROGBITS,
                                                      section.sectionFlags, section.address, section.bytes,
                                                      section.align));
    if (!target.device.empty()) {
        // simavr takes the processor to simulate from a .mmcu section of tag, length, value records,
        // tag 1 naming the device; not loaded, as it is no part of the program.
        const std::string name = target.device.substr(0, 63);
        std::string mmcu{'\x01', static_cast<char>(name.size() + 1)};
        mmcu += name;
        mmcu += '\0';
        file.addSection(sectionNames.add(".mmcu"), SHT_PROGBITS, 0, 0, mmcu, 1);
    }
    for (const DebugSection& section : debug)
        file.addSection(sectionNames.add(section.name), SHT_PROGBITS, 0, 0, section.bytes, 1);

    StringTable names;
    std::vector<Elf32_Sym> table(1, Elf32_Sym{});
    uint32_t firstGlobal = 0;
    for (const Symbol& symbol : symbolList) {
        Elf32_Sym entry{};
        entry.st_name = names.add(symbol.name);
        entry.st_value = symbol.value;
        entry.st_size = symbol.size;
        entry.st_info = ELF32_ST_INFO(symbol.binding, symbol.type);
        entry.st_shndx = SHN_ABS;
        if (symbol.type != STT_FILE) {
            for (const auto& [section, scn] : placed) {
                const uint64_t offset = uint64_t(symbol.value) - section->address;
                if (symbol.value >= section->address && offset < section->bytes.size())
                    entry.st_shndx = static_cast<Elf32_Half>(elf_ndxscn(scn));
            }
        }
        if (symbol.binding != STB_LOCAL && firstGlobal == 0)
            firstGlobal = static_cast<uint32_t>(table.size());
        table.push_back(entry);
    }
    if (firstGlobal == 0)
        firstGlobal = static_cast<uint32_t>(table.size());
    Elf_Scn* symtab = file.addSection(sectionNames.add(".symtab"), SHT_SYMTAB, 0, 0, asBytes(table), 4, ELF_T_SYM);
    Elf_Scn* strtab = file.addSection(sectionNames.add(".strtab"), SHT_STRTAB, 0, 0, names.text(), 1);
    Elf32_Shdr* symtabHeader = elf32_getshdr(symtab);
    symtabHeader->sh_entsize = sizeof(Elf32_Sym);
    symtabHeader->sh_link = static_cast<uint32_t>(elf_ndxscn(strtab));
    symtabHeader->sh_info = firstGlobal;
    const uint32_t shstrtabName = sectionNames.add(".shstrtab");
    Elf_Scn* shstrtab = file.addSection(shstrtabName, SHT_STRTAB, 0, 0, sectionNames.text(), 1);
    header->e_shstrndx = static_cast<Elf32_Half>(elf_ndxscn(shstrtab));

    // Let libelf place the sections, then describe the loaded ones as segments where they landed.
    if (elf_update(file.get(), ELF_C_NULL) < 0)
        ElfFile::fail("cannot lay out the file");
    for (size_t i = 0; i < placed.size(); ++i) {
        const Elf32_Shdr* section = elf32_getshdr(placed[i].second);
        Elf32_Phdr& segment = segments[i];
        segment.p_type = PT_LOAD;
        segment.p_offset = section->sh_offset;
        segment.p_vaddr = segment.p_paddr = section->sh_addr;
        segment.p_filesz = segment.p_memsz = section->sh_size;
        segment.p_flags = placed[i].first->segmentFlags;
        segment.p_align = placed[i].first->align;
    }
    elf_flagphdr(file.get(), ELF_C_SET, ELF_F_DIRTY);
    return file.bytes();
}

} // namespace

void writeElf(const Program& program, std::ostream& out)
{
    const std::string bytes = elfImage(program);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void writeElf(const Program& program, const std::string& path)
{
    saveFile(path, elfImage(program));
}

} // namespace ubrof::exporter
