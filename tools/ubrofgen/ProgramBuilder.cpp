// ProgramBuilder: counts name records as the reader will append them, so that tags that refer to
// names by index (typedefs, t_symbol_def2, t_block_begin3) point at the right one.
#include "tools/ubrofgen/ProgramBuilder.h"

namespace ubrof::gen {

uint32_t ProgramBuilder::scoped(const std::string& text, uint32_t parent)
{
    w.scopedName(text, parent);
    return names_++;
}

uint32_t ProgramBuilder::scopedBlock(uint32_t reference, uint32_t number)
{
    w.scopedBlockName(reference, number);
    return names_++;
}

uint32_t ProgramBuilder::symbol(const WriterSymbol& symbol)
{
    w.symbolDef1(symbol);
    return names_++;
}

void ProgramBuilder::ioRegister(const std::string& name, uint32_t address, uint16_t ioType)
{
    const uint32_t prefixed = scoped("_A_" + name);
    w.symbolDef2(prefixed, 1, 2, address, ioType);
    w.subDefObjAttr(1);
    ++names_; // the twin's name
}

uint32_t ProgramBuilder::structType(uint16_t index, const std::string& name, uint32_t size,
                                    const std::vector<WriterStructMember>& members)
{
    w.typeStruct(index, name, size, members);
    const uint32_t first = names_;
    names_ += 1 + static_cast<uint32_t>(members.size());
    return first;
}

uint32_t ProgramBuilder::unionType(uint16_t index, const std::string& name, uint32_t size,
                                   const std::vector<WriterStructMember>& members)
{
    w.typeUnion(index, name, size, members);
    const uint32_t first = names_;
    names_ += 1 + static_cast<uint32_t>(members.size());
    return first;
}

uint32_t ProgramBuilder::enumType(uint16_t index, uint16_t underlying, const std::string& name,
                                  const std::vector<WriterEnumValue>& constants)
{
    w.typeEnum(index, underlying, name, constants);
    const uint32_t first = names_;
    names_ += 1 + static_cast<uint32_t>(constants.size());
    return first;
}

uint32_t ProgramBuilder::function(const std::string& name, const std::vector<WriterSymbol>& locals)
{
    w.funcBegin1(name, locals);
    const uint32_t first = names_;
    names_ += 1 + static_cast<uint32_t>(locals.size());
    return first;
}

uint32_t ProgramBuilder::block(const std::vector<WriterSymbol>& locals)
{
    w.blockBegin1(locals);
    const uint32_t first = names_;
    names_ += 1 + static_cast<uint32_t>(locals.size());
    return first;
}

void ProgramBuilder::blockEnd()
{
    w.blockEnd();
}

void ProgramBuilder::codeAt(uint32_t address)
{
    w.org(0, address);
    codeAddress_ = address;
}

uint32_t ProgramBuilder::statement(uint16_t firstLine, uint16_t lastLine, size_t bytes, uint8_t kind)
{
    const uint32_t address = codeAddress_;
    w.srcStat(firstLine, lastLine, kind, 3, 40);
    // t_abs_var carries at most 255 bytes; the statement's size comes from the first tag only,
    // so long statements are kept below that.
    w.absVar(instructions(bytes, address));
    codeAddress_ += static_cast<uint32_t>(bytes);
    return address;
}

std::vector<uint8_t> ProgramBuilder::instructions(size_t count, uint32_t seed)
{
    // A few common two-byte opcodes (ldi, mov, add, st, ld, rjmp), low byte first.
    static const uint8_t kOpcodes[][2] = {{0x81, 0xE0}, {0x08, 0x2F}, {0x80, 0x0F}, {0x8C, 0x93},
                                          {0x8D, 0x91}, {0x00, 0xC0}, {0x0F, 0x92}, {0x0F, 0x90}};
    std::vector<uint8_t> bytes;
    bytes.reserve(count);
    uint32_t state = seed * 2654435761u + 1;
    while (bytes.size() < count) {
        state = state * 1103515245u + 12345u;
        const uint8_t* opcode = kOpcodes[(state >> 16) % 8];
        bytes.push_back(static_cast<uint8_t>(opcode[0] ^ ((state >> 8) & 0x07)));
        if (bytes.size() < count)
            bytes.push_back(opcode[1]);
    }
    return bytes;
}

} // namespace ubrof::gen
