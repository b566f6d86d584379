// TypeStress: files sized by counts rather than bytes, so that a listing's cost can be related to
// the tables it walks.
#include "tools/ubrofgen/TypeStress.h"

#include "tools/ubrofgen/ProgramBuilder.h"

#include <stdexcept>
#include <string>

namespace ubrof::gen {
namespace {

constexpr uint16_t kUnsignedChar = 1;
constexpr uint8_t kPublic = 2;
constexpr uint16_t kDataSpace = 2;

WriterSymbol global(const std::string& name, uint32_t address, uint16_t type)
{
    return WriterSymbol{name, kPublic, kDataSpace, address, type, {}};
}

} // namespace

UbrofWriter wideStructProgram(uint32_t variables, uint32_t members)
{
    constexpr uint16_t kWide = 100;
    // A structure's member count is a 16-bit field.
    if (members > 0xFFFF)
        throw std::invalid_argument("a structure holds at most 65535 members");
    ProgramBuilder b;
    b.w.begFile1(kFixedDate).version(8);
    std::vector<WriterStructMember> fields;
    for (uint32_t m = 0; m < members; ++m)
        fields.push_back({"m" + std::to_string(m), kUnsignedChar, m});
    b.structType(kWide, "wide", members, fields);
    b.w.begPgm("wide", kFixedDate);
    for (uint32_t v = 0; v < variables; ++v)
        b.symbol(global("v" + std::to_string(v), 0x100 + v * members, kWide));
    b.w.end().eof();
    return std::move(b.w);
}

UbrofWriter selfTypedefProgram(uint32_t variables)
{
    enum : uint16_t { kLoop = 100, kNode, kPing, kPong, kListPtr, kList };
    ProgramBuilder b;
    UbrofWriter& w = b.w;
    w.begFile1(kFixedDate).version(8);
    w.typeTypedef(kLoop, kLoop, b.scoped("loop_t"));
    b.structType(kNode, "node", 2, {{"self", kNode, 0}, {"value", kUnsignedChar, 1}});
    w.typeTypedef(kPing, kPong, b.scoped("ping_t"));
    w.typeTypedef(kPong, kPing, b.scoped("pong_t"));
    // The ordinary way for a structure to reach itself, for contrast.
    w.typePointer(kListPtr, 15, kList);
    b.structType(kList, "list", 3, {{"value", kUnsignedChar, 0}, {"next", kListPtr, 1}});
    w.begPgm("loops", kFixedDate);
    for (uint32_t v = 0; v < variables; ++v)
        b.symbol(global("v" + std::to_string(v), 0x100 + v, kLoop));
    b.symbol(global("node", 0x100 + variables, kNode));
    b.symbol(global("ping", 0x102 + variables, kPing));
    b.symbol(global("list", 0x103 + variables, kList));
    w.end().eof();
    return std::move(b.w);
}

} // namespace ubrof::gen
