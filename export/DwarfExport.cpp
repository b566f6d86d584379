// DWARF 4 for a Program through libdwarf's producer: units, types, locations, lines and aranges.
#include "export/DwarfExport.h"

#include "export/ExportError.h"

#include <elf.h>
#include <libdwarf/dwarf.h>
#include <libdwarf/libdwarf.h>

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <unordered_map>

namespace ubrof::exporter {

using model::Block;
using model::Function;
using model::kNone;
using model::LineRow;
using model::Location;
using model::LocationRange;
using model::MemorySpace;
using model::Program;
using model::Type;
using model::Variable;

namespace {

// A value spread over more registers than a processor has is not a real location; refusing it keeps
// a broken model from making an expression of unbounded length.
constexpr uint32_t kMaxRegisterPieces = 32;

[[noreturn]] void fail(const std::string& what, Dwarf_Error error)
{
    std::string message = "DWARF producer: " + what;
    if (error != nullptr)
        message += std::string(": ") + dwarf_errmsg(error);
    throw ExportError(message);
}

void check(int result, Dwarf_Error error, const std::string& what)
{
    if (result != DW_DLV_OK)
        fail(what, error);
}

/// Paths as POSIX readers of DWARF split them: a file named "C:\src\main.c" is then found by
/// "main.c", as gdb's `break main.c:12` asks.
std::string slashed(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

template <typename T>
bool valid(uint32_t index, const std::vector<T>& table)
{
    return index != kNone && index < table.size();
}

/// A relocation one producer left against one of its own sections.
struct SectionReloc {
    std::string section; ///< the section whose bytes it patches
    uint64_t offset = 0;
    std::string target; ///< the section whose start it adds
};

struct UnitOutput {
    std::map<std::string, std::string> sections;
    std::vector<SectionReloc> relocations;
};

/// What one compile unit holds.
struct UnitContent {
    std::string name;
    uint32_t file = kNone;
    std::vector<uint32_t> functions;
    std::vector<uint32_t> variables; ///< of module scope
    std::vector<uint32_t> rows;      ///< line rows, by address
};

int sectionCallback(const char* name, int, Dwarf_Unsigned, Dwarf_Unsigned, Dwarf_Unsigned, Dwarf_Unsigned,
                    Dwarf_Unsigned* symbol, void* user, int* error)
{
    auto* names = static_cast<std::vector<std::string>*>(user);
    names->emplace_back(name);
    // A section's id doubles as its symbol, so that each relocation names the section it points
    // into; 0 stays free for absolute addresses, which an executable does not relocate.
    *symbol = names->size();
    *error = 0;
    return static_cast<int>(names->size());
}

/// One location of a variable over [low, high) of code.
struct LocationPiece {
    uint32_t low = 0;
    uint32_t high = 0;
    Location location;
};

/// The pieces a variable's location list holds within its scope [low, high): its ranges, and its
/// default location wherever no range says otherwise. Overlapping ranges are cut so that the first
/// one wins, as the model's address order implies.
std::vector<LocationPiece> locationPieces(const Variable& variable, uint32_t low, uint32_t high)
{
    std::vector<LocationRange> ranges = variable.ranges;
    std::stable_sort(ranges.begin(), ranges.end(),
                     [](const LocationRange& a, const LocationRange& b) { return a.low < b.low; });
    const bool scoped = low < high;
    std::vector<LocationPiece> pieces;
    uint32_t at = low;
    for (const LocationRange& range : ranges) {
        uint32_t from = range.low, to = range.high;
        if (scoped) {
            from = std::max(from, low);
            to = std::min(to, high);
        }
        if (!pieces.empty())
            from = std::max(from, pieces.back().high);
        if (from >= to)
            continue;
        if (scoped && at < from)
            pieces.push_back({at, from, variable.location});
        pieces.push_back({from, to, range.location});
        at = to;
    }
    if (scoped && at < high)
        pieces.push_back({at, high, variable.location});
    pieces.erase(std::remove_if(pieces.begin(), pieces.end(),
                                [](const LocationPiece& p) {
                                    return p.location.kind == Location::Kind::None ||
                                           p.location.kind == Location::Kind::Computed;
                                }),
                 pieces.end());
    return pieces;
}

/// Writes one module's compile unit with a producer of its own.
class UnitWriter {
public:
    UnitWriter(const Program& program, const ElfTarget& target, bool cplusplus, std::string& debugLoc)
        : program_(program), target_(target), cplusplus_(cplusplus), debugLoc_(debugLoc)
    {
        Dwarf_Error error = nullptr;
        // The isa only numbers the producer's relocation records, which are applied here; any
        // 32-bit one does. The line header constants are the ones GNU tools write.
        check(dwarf_producer_init(DW_DLC_WRITE | DW_DLC_POINTER32 | DW_DLC_OFFSET32 | DW_DLC_SYMBOLIC_RELOCATIONS |
                                      DW_DLC_TARGET_LITTLEENDIAN,
                                  sectionCallback, nullptr, nullptr, &sectionNames_, "x86", "V4",
                                  "default_is_stmt=1,line_base=-5,line_range=14,opcode_base=13", &dbg_, &error),
              error, "cannot start");
    }
    ~UnitWriter()
    {
        Dwarf_Error error = nullptr;
        dwarf_producer_finish_a(dbg_, &error);
    }
    UnitWriter(const UnitWriter&) = delete;
    UnitWriter& operator=(const UnitWriter&) = delete;

    UnitOutput write(const UnitContent& content);

private:
    Dwarf_P_Die newDie(Dwarf_Tag tag, Dwarf_P_Die parent);
    char* keep(const std::string& text);
    void name(Dwarf_P_Die die, const std::string& text);
    void string(Dwarf_P_Die die, Dwarf_Half attribute, const std::string& text);
    void linkageName(Dwarf_P_Die die, const std::string& plain, const std::string& qualified);
    void unsignedValue(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_Unsigned value);
    void flag(Dwarf_P_Die die, Dwarf_Half attribute);
    void address(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_Unsigned value);
    void reference(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_P_Die target);
    void typeOf(Dwarf_P_Die die, uint32_t type);
    void declaration(Dwarf_P_Die die, uint32_t file, uint32_t line);

    Dwarf_Unsigned fileNumber(uint32_t file);
    uint32_t codeAddress(uint64_t address, const char* what) const
    {
        return target_.address(MemorySpace::Code, address, what);
    }

    Dwarf_P_Die typeDie(uint32_t type);
    void completeTypes();
    void completeType(uint32_t index, Dwarf_P_Die die);

    Dwarf_P_Expr newExpression();
    bool describe(Dwarf_P_Expr expression, const Location& location, const std::string& owner);
    void location(Dwarf_P_Die die, const Variable& variable, uint32_t low, uint32_t high);

    void subprogram(uint32_t function);
    void variable(Dwarf_P_Die parent, uint32_t index, uint32_t low, uint32_t high);
    void lines(const UnitContent& content);
    UnitOutput collect();

    const Program& program_;
    const ElfTarget& target_;
    bool cplusplus_;
    std::string& debugLoc_;
    Dwarf_P_Debug dbg_ = nullptr;
    std::vector<std::string> sectionNames_;
    Dwarf_P_Die cu_ = nullptr;
    std::deque<std::string> texts_;
    std::unordered_map<uint32_t, Dwarf_Unsigned> files_;
    std::unordered_map<uint32_t, Dwarf_P_Die> types_;
    std::deque<uint32_t> incompleteTypes_;
};

Dwarf_P_Die UnitWriter::newDie(Dwarf_Tag tag, Dwarf_P_Die parent)
{
    Dwarf_P_Die die = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_new_die_a(dbg_, tag, parent, nullptr, nullptr, nullptr, &die, &error), error, "cannot make a DIE");
    return die;
}

// libdwarf takes texts as char*; they stay alive, unchanged, until the unit is written.
char* UnitWriter::keep(const std::string& text)
{
    texts_.push_back(text);
    return texts_.back().data();
}

void UnitWriter::name(Dwarf_P_Die die, const std::string& text)
{
    if (text.empty())
        return;
    Dwarf_P_Attribute attribute = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_add_AT_name_a(die, keep(text), &attribute, &error), error, "cannot name " + text);
}

void UnitWriter::string(Dwarf_P_Die die, Dwarf_Half attribute, const std::string& text)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_add_AT_string_a(dbg_, die, attribute, keep(text), &added, &error), error, "cannot add " + text);
}

// The qualified name is the ELF symbol's name, and C++ readers take the linkage name as the name to
// show. A C reader would do the same and so lose the plain name (a static local's "main::calls"
// would no longer answer to "calls"), so C units leave it out.
void UnitWriter::linkageName(Dwarf_P_Die die, const std::string& plain, const std::string& qualified)
{
    if (cplusplus_ && !plain.empty() && !qualified.empty() && qualified != plain)
        string(die, DW_AT_linkage_name, qualified);
}

void UnitWriter::unsignedValue(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_Unsigned value)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    // The uleb form takes every attribute, where the fixed-size one knows only DWARF 2's.
    check(dwarf_add_AT_any_value_uleb_a(die, attribute, value, &added, &error), error, "cannot add a number");
}

void UnitWriter::flag(Dwarf_P_Die die, Dwarf_Half attribute)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_add_AT_flag_a(dbg_, die, attribute, 1, &added, &error), error, "cannot add a flag");
}

void UnitWriter::address(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_Unsigned value)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_add_AT_targ_address_c(dbg_, die, attribute, value, 0, &added, &error), error,
          "cannot add an address");
}

void UnitWriter::reference(Dwarf_P_Die die, Dwarf_Half attribute, Dwarf_P_Die target)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_add_AT_reference_c(dbg_, die, attribute, target, &added, &error), error, "cannot add a reference");
}

void UnitWriter::typeOf(Dwarf_P_Die die, uint32_t type)
{
    if (Dwarf_P_Die target = typeDie(type))
        reference(die, DW_AT_type, target);
}

void UnitWriter::declaration(Dwarf_P_Die die, uint32_t file, uint32_t line)
{
    if (!valid(file, program_.files))
        return;
    unsignedValue(die, DW_AT_decl_file, fileNumber(file));
    if (line != 0)
        unsignedValue(die, DW_AT_decl_line, line);
}

Dwarf_P_Die UnitWriter::typeDie(uint32_t index)
{
    if (!valid(index, program_.types))
        return nullptr;
    if (const auto known = types_.find(index); known != types_.end())
        return known->second;
    const Type& type = program_.types[index];
    Dwarf_Tag tag = DW_TAG_unspecified_type;
    switch (type.kind) {
    case Type::Kind::Void:
        types_[index] = nullptr; // DWARF says void by saying no type at all
        return nullptr;
    case Type::Kind::Base:
        tag = DW_TAG_base_type;
        break;
    case Type::Kind::Pointer:
        tag = DW_TAG_pointer_type;
        break;
    case Type::Kind::Reference:
        tag = DW_TAG_reference_type;
        break;
    case Type::Kind::Structure:
        tag = DW_TAG_structure_type;
        break;
    case Type::Kind::Union:
        tag = DW_TAG_union_type;
        break;
    case Type::Kind::Class:
        tag = DW_TAG_class_type;
        break;
    case Type::Kind::Array:
        tag = DW_TAG_array_type;
        break;
    case Type::Kind::Enumeration:
        tag = DW_TAG_enumeration_type;
        break;
    case Type::Kind::Typedef:
        tag = DW_TAG_typedef;
        break;
    case Type::Kind::Const:
        tag = DW_TAG_const_type;
        break;
    case Type::Kind::Volatile:
        tag = DW_TAG_volatile_type;
        break;
    case Type::Kind::Function:
        tag = DW_TAG_subroutine_type;
        break;
    case Type::Kind::MemberPointer:
        tag = DW_TAG_ptr_to_member_type;
        break;
    case Type::Kind::Unknown:
        break;
    }
    // Attributes come later, from a work list: types refer to each other in cycles (a structure
    // holding a pointer to itself) and in chains too long to follow by recursion.
    Dwarf_P_Die die = newDie(tag, cu_);
    types_[index] = die;
    incompleteTypes_.push_back(index);
    return die;
}

void UnitWriter::completeTypes()
{
    while (!incompleteTypes_.empty()) {
        const uint32_t index = incompleteTypes_.front();
        incompleteTypes_.pop_front();
        completeType(index, types_.at(index));
    }
}

Dwarf_Unsigned encodingOf(Type::Encoding encoding)
{
    switch (encoding) {
    case Type::Encoding::Signed:
        return DW_ATE_signed;
    case Type::Encoding::SignedChar:
        return DW_ATE_signed_char;
    case Type::Encoding::UnsignedChar:
        return DW_ATE_unsigned_char;
    case Type::Encoding::Boolean:
        return DW_ATE_boolean;
    case Type::Encoding::Float:
        return DW_ATE_float;
    case Type::Encoding::Unsigned:
    case Type::Encoding::None:
        break;
    }
    return DW_ATE_unsigned;
}

void UnitWriter::completeType(uint32_t index, Dwarf_P_Die die)
{
    const Type& type = program_.types[index];
    switch (type.kind) {
    case Type::Kind::Base:
        name(die, type.name.empty() ? type.cName : type.name);
        unsignedValue(die, DW_AT_encoding, encodingOf(type.encoding));
        unsignedValue(die, DW_AT_byte_size, type.size);
        break;
    case Type::Kind::Pointer:
    case Type::Kind::Reference:
        if (type.size != 0)
            unsignedValue(die, DW_AT_byte_size, type.size);
        typeOf(die, type.target);
        if (type.kind == Type::Kind::Pointer && type.pointerSpace == MemorySpace::Code &&
            target_.machine == EM_AVR) {
            // Data in program memory: gdb's AVR support reads through such a pointer from flash when
            // its address class is 1. Pointers to functions point into code anyway.
            const bool toFunction = valid(type.target, program_.types) &&
                                    valid(program_.types[type.target].resolved, program_.types) &&
                                    program_.types[program_.types[type.target].resolved].kind == Type::Kind::Function;
            if (!toFunction)
                unsignedValue(die, DW_AT_address_class, 1);
        }
        break;
    case Type::Kind::Structure:
    case Type::Kind::Union:
    case Type::Kind::Class:
        name(die, type.name);
        unsignedValue(die, DW_AT_byte_size, type.size);
        for (const Type::Member& member : type.members) {
            Dwarf_P_Die child = newDie(DW_TAG_member, die);
            name(child, member.name);
            typeOf(child, member.type);
            if (member.bitSize != 0) {
                unsignedValue(child, DW_AT_bit_size, member.bitSize);
                unsignedValue(child, DW_AT_data_bit_offset, uint64_t(member.offset) * 8 + member.bitOffset);
            } else {
                unsignedValue(child, DW_AT_data_member_location, member.offset);
            }
        }
        break;
    case Type::Kind::Array:
        typeOf(die, type.target);
        if (type.size != 0)
            unsignedValue(die, DW_AT_byte_size, type.size);
        for (const uint32_t count : type.dimensions) {
            Dwarf_P_Die subrange = newDie(DW_TAG_subrange_type, die);
            // An unknown count (0) leaves the bound out, as C's `int a[]` does.
            if (count != 0)
                unsignedValue(subrange, DW_AT_upper_bound, count - 1);
        }
        break;
    case Type::Kind::Enumeration:
        name(die, type.name);
        unsignedValue(die, DW_AT_byte_size, type.size);
        for (const Type::Enumerator& enumerator : type.enumerators) {
            Dwarf_P_Die child = newDie(DW_TAG_enumerator, die);
            name(child, enumerator.name);
            Dwarf_P_Attribute added = nullptr;
            Dwarf_Error error = nullptr;
            check(dwarf_add_AT_const_value_signedint_a(child, enumerator.value, &added, &error), error,
                  "cannot add enumerator " + enumerator.name);
        }
        break;
    case Type::Kind::Typedef:
        name(die, type.name);
        typeOf(die, type.target);
        break;
    case Type::Kind::Const:
    case Type::Kind::Volatile:
    case Type::Kind::MemberPointer:
        typeOf(die, type.target);
        break;
    case Type::Kind::Function:
        flag(die, DW_AT_prototyped);
        typeOf(die, type.target);
        for (const uint32_t parameter : type.parameters)
            typeOf(newDie(DW_TAG_formal_parameter, die), parameter);
        if (type.variadic)
            newDie(DW_TAG_unspecified_parameters, die);
        break;
    case Type::Kind::Unknown:
        name(die, type.cName.empty() ? type.name : type.cName);
        break;
    case Type::Kind::Void:
        break;
    }
}

// A file the model does not have (kNone included) becomes one placeholder entry, so that a line
// row of no known file still points at an entry the line table declares.
Dwarf_Unsigned UnitWriter::fileNumber(uint32_t file)
{
    if (!valid(file, program_.files))
        file = kNone;
    if (const auto known = files_.find(file); known != files_.end())
        return known->second;
    Dwarf_Unsigned count = 0;
    Dwarf_Error error = nullptr;
    const std::string path = file == kNone ? std::string() : program_.files[file].path;
    check(dwarf_add_file_decl_a(dbg_, keep(slashed(path.empty() ? "?" : path)), 0, 0, 0, &count, &error), error,
          "cannot declare file " + path);
    files_[file] = count;
    return count;
}

Dwarf_P_Expr UnitWriter::newExpression()
{
    Dwarf_P_Expr expression = nullptr;
    Dwarf_Error error = nullptr;
    check(dwarf_new_expr_a(dbg_, &expression, &error), error, "cannot make an expression");
    return expression;
}

/// Adds the operations that say where `location` is; false when DWARF cannot say it here.
bool UnitWriter::describe(Dwarf_P_Expr expression, const Location& location, const std::string& owner)
{
    Dwarf_Unsigned offset = 0;
    Dwarf_Error error = nullptr;
    auto op = [&](Dwarf_Small code, Dwarf_Unsigned first = 0, Dwarf_Unsigned second = 0) {
        check(dwarf_add_expr_gen_a(expression, code, first, second, &offset, &error), error,
              "cannot build an expression");
    };
    switch (location.kind) {
    case Location::Kind::Address:
        check(dwarf_add_expr_addr_c(expression, target_.address(location.space, location.address, owner.c_str()), 0,
                                    &offset, &error),
              error, "cannot build an address");
        return true;
    case Location::Kind::Register: {
        if (location.registerCount == 0 || location.registerCount > kMaxRegisterPieces)
            return false;
        for (uint32_t i = 0; i < location.registerCount; ++i) {
            const uint64_t number = uint64_t(location.firstRegister) + i;
            if (number < 32)
                op(static_cast<Dwarf_Small>(DW_OP_reg0 + number));
            else
                op(DW_OP_regx, number);
            if (location.registerCount > 1)
                op(DW_OP_piece, target_.registerBytes);
        }
        return true;
    }
    case Location::Kind::FrameOffset:
        if (!target_.frameBaseRegister)
            return false;
        op(DW_OP_fbreg, static_cast<Dwarf_Unsigned>(static_cast<Dwarf_Signed>(location.offset)));
        return true;
    case Location::Kind::Constant:
        // The value itself; the caller ends it with DW_OP_stack_value, which this libdwarf's
        // expression builder does not know.
        op(DW_OP_constu, location.address);
        return true;
    case Location::Kind::None:
    case Location::Kind::Computed:
        break;
    }
    return false;
}

void UnitWriter::location(Dwarf_P_Die die, const Variable& variable, uint32_t low, uint32_t high)
{
    Dwarf_P_Attribute added = nullptr;
    Dwarf_Error error = nullptr;
    const std::vector<LocationPiece> pieces = locationPieces(variable, low, high);
    const bool throughout = variable.ranges.empty() ||
                            (pieces.size() == 1 && low < high && pieces[0].low == low && pieces[0].high == high);
    if (throughout) {
        const Location& where = variable.ranges.empty() ? variable.location : pieces.front().location;
        if (where.kind == Location::Kind::Constant) {
            check(dwarf_add_AT_const_value_unsignedint_a(die, where.address, &added, &error), error,
                  "cannot add the value of " + variable.name);
            return;
        }
        Dwarf_P_Expr expression = newExpression();
        if (describe(expression, where, variable.name))
            check(dwarf_add_AT_location_expr_a(dbg_, die, DW_AT_location, expression, &added, &error), error,
                  "cannot add the location of " + variable.name);
        return;
    }
    // A .debug_loc list, its addresses relative to the unit's base address 0.
    std::string list;
    auto put = [&list](uint64_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i)
            list += static_cast<char>(value >> (8 * i));
    };
    for (const LocationPiece& piece : pieces) {
        Dwarf_P_Expr expression = newExpression();
        if (!describe(expression, piece.location, variable.name))
            continue;
        Dwarf_Unsigned length = 0;
        Dwarf_Small* bytes = nullptr;
        check(dwarf_expr_into_block_a(expression, &length, &bytes, &error), error, "cannot read an expression");
        if (length >= 0xFFFF)
            continue;
        put(codeAddress(piece.low, variable.name.c_str()), 4);
        put(codeAddress(piece.high, variable.name.c_str()), 4);
        const bool value = piece.location.kind == Location::Kind::Constant;
        put(length + (value ? 1 : 0), 2);
        list.append(reinterpret_cast<const char*>(bytes), length);
        if (value)
            list += static_cast<char>(DW_OP_stack_value);
    }
    if (list.empty())
        return;
    const uint64_t offset = debugLoc_.size();
    if (offset > 0xFFFFFFFF)
        throw ExportError("DWARF: location lists pass the 4 GiB a 32-bit DWARF section can hold");
    debugLoc_ += list;
    debugLoc_.append(8, '\0');
    check(dwarf_add_AT_dataref_a(dbg_, die, DW_AT_location, offset, 0, &added, &error), error,
          "cannot add the location list of " + variable.name);
}

void UnitWriter::variable(Dwarf_P_Die parent, uint32_t index, uint32_t low, uint32_t high)
{
    if (!valid(index, program_.variables))
        return;
    const Variable& var = program_.variables[index];
    Dwarf_P_Die die = newDie(var.isParameter ? DW_TAG_formal_parameter : DW_TAG_variable, parent);
    name(die, var.name);
    linkageName(die, var.name, var.qualifiedName);
    declaration(die, var.file, var.line);
    typeOf(die, var.type);
    if (var.isExternal && var.function == kNone)
        flag(die, DW_AT_external);
    location(die, var, low, high);
}

void UnitWriter::subprogram(uint32_t index)
{
    const Function& function = program_.functions[index];
    Dwarf_P_Die die = newDie(DW_TAG_subprogram, cu_);
    name(die, function.name.empty() ? function.qualifiedName : function.name);
    linkageName(die, function.name, function.qualifiedName);
    if (function.isExternal)
        flag(die, DW_AT_external);
    declaration(die, function.file, function.line);
    if (valid(function.type, program_.types)) {
        uint32_t resolved = program_.types[function.type].resolved;
        if (!valid(resolved, program_.types))
            resolved = function.type;
        if (program_.types[resolved].kind == Type::Kind::Function) {
            flag(die, DW_AT_prototyped);
            typeOf(die, program_.types[resolved].target);
        }
    }
    const bool hasCode = function.entry < function.end;
    if (hasCode) {
        address(die, DW_AT_low_pc, codeAddress(function.entry, function.name.c_str()));
        address(die, DW_AT_high_pc, codeAddress(function.end, function.name.c_str()));
        if (target_.frameBaseRegister) {
            Dwarf_P_Expr base = newExpression();
            Dwarf_Unsigned offset = 0;
            Dwarf_P_Attribute added = nullptr;
            Dwarf_Error error = nullptr;
            check(dwarf_add_expr_gen_a(base, static_cast<Dwarf_Small>(DW_OP_breg0 + *target_.frameBaseRegister), 0, 0,
                                       &offset, &error),
                  error, "cannot build a frame base");
            check(dwarf_add_AT_location_expr_a(dbg_, die, DW_AT_frame_base, base, &added, &error), error,
                  "cannot add a frame base");
        }
    }
    const uint32_t low = hasCode ? function.entry : 0, high = hasCode ? function.end : 0;
    for (const uint32_t var : function.variables)
        variable(die, var, low, high);

    // Blocks nest; a work list instead of recursion, and each block once, whatever the model says.
    std::vector<std::pair<uint32_t, Dwarf_P_Die>> pending;
    for (auto it = function.blocks.rbegin(); it != function.blocks.rend(); ++it)
        pending.emplace_back(*it, die);
    std::set<uint32_t> seen;
    while (!pending.empty()) {
        const auto [blockIndex, parent] = pending.back();
        pending.pop_back();
        if (!valid(blockIndex, program_.blocks) || !seen.insert(blockIndex).second)
            continue;
        const Block& block = program_.blocks[blockIndex];
        Dwarf_P_Die blockDie = newDie(DW_TAG_lexical_block, parent);
        if (block.low < block.high) {
            address(blockDie, DW_AT_low_pc, codeAddress(block.low, "block"));
            address(blockDie, DW_AT_high_pc, codeAddress(block.high, "block"));
        }
        for (const uint32_t var : block.variables)
            variable(blockDie, var, block.low, block.high);
        for (auto it = block.blocks.rbegin(); it != block.blocks.rend(); ++it)
            pending.emplace_back(*it, blockDie);
    }
}

void UnitWriter::lines(const UnitContent& content)
{
    Dwarf_Error error = nullptr;
    bool open = false;
    uint32_t end = 0;
    for (const uint32_t rowIndex : content.rows) {
        const LineRow& row = program_.lines[rowIndex];
        if (row.address >= row.end)
            continue;
        if (open && row.address != end) {
            check(dwarf_lne_end_sequence_a(dbg_, codeAddress(end, "line row"), &error), error, "cannot end a sequence");
            open = false;
        }
        const uint32_t address = codeAddress(row.address, "line row");
        if (!open) {
            check(dwarf_lne_set_address_a(dbg_, address, 0, &error), error, "cannot start a sequence");
            open = true;
        }
        // A row of no known file keeps the unit's own file, at line 0: code that belongs to no line.
        const bool known = valid(row.file, program_.files);
        const Dwarf_Unsigned fileIndex = fileNumber(known ? row.file : content.file);
        const Dwarf_Unsigned line = known ? row.line : 0;
        check(dwarf_add_line_entry_c(dbg_, fileIndex, address, line, row.column, row.isStatement, 0, 0, 0, 0, 0,
                                     &error),
              error, "cannot add a line row");
        end = row.end;
    }
    if (open)
        check(dwarf_lne_end_sequence_a(dbg_, codeAddress(end, "line row"), &error), error, "cannot end a sequence");
}

UnitOutput UnitWriter::write(const UnitContent& content)
{
    Dwarf_Error error = nullptr;
    cu_ = newDie(DW_TAG_compile_unit, nullptr);
    // The unit's file comes first in its line table, so that it is file 1 as compilers make it.
    if (valid(content.file, program_.files))
        fileNumber(content.file);
    name(cu_, content.name);
    if (!program_.producer.empty()) {
        Dwarf_P_Attribute added = nullptr;
        check(dwarf_add_AT_producer_a(cu_, keep(program_.producer), &added, &error), error, "cannot add the producer");
    }
    unsignedValue(cu_, DW_AT_language, cplusplus_ ? DW_LANG_C_plus_plus : DW_LANG_C99);
    // Base address 0 and no range of its own: a module's functions need not be adjacent, and its
    // exact ranges are in .debug_aranges, from which readers find the unit of an address.
    address(cu_, DW_AT_low_pc, 0);

    for (const uint32_t var : content.variables)
        variable(cu_, var, 0, 0);
    for (const uint32_t function : content.functions) {
        subprogram(function);
        const Function& f = program_.functions[function];
        if (f.entry < f.end)
            check(dwarf_add_arange_c(dbg_, codeAddress(f.entry, f.name.c_str()), f.end - f.entry, 0, 0, 0, &error),
                  error, "cannot add an address range");
    }
    completeTypes();
    lines(content);
    check(dwarf_add_die_to_debug_a(dbg_, cu_, &error), error, "cannot add the compile unit");
    return collect();
}

UnitOutput UnitWriter::collect()
{
    Dwarf_Error error = nullptr;
    Dwarf_Signed buffers = 0;
    check(dwarf_transform_to_disk_form_a(dbg_, &buffers, &error), error, "cannot lay out the sections");
    auto sectionName = [this](Dwarf_Signed id) -> const std::string& {
        if (id < 1 || static_cast<size_t>(id) > sectionNames_.size())
            fail("a section it never announced", nullptr);
        return sectionNames_[static_cast<size_t>(id) - 1];
    };
    UnitOutput output;
    for (Dwarf_Signed i = 0; i < buffers; ++i) {
        Dwarf_Signed section = 0;
        Dwarf_Unsigned length = 0;
        Dwarf_Ptr bytes = nullptr;
        check(dwarf_get_section_bytes_a(dbg_, i, &section, &length, &bytes, &error), error, "cannot read a section");
        output.sections[sectionName(section)].append(static_cast<const char*>(bytes), length);
    }
    Dwarf_Unsigned relocationSections = 0;
    int version = 0;
    check(dwarf_get_relocation_info_count(dbg_, &relocationSections, &version, &error), error,
          "cannot count relocations");
    for (Dwarf_Unsigned i = 0; i < relocationSections; ++i) {
        Dwarf_Signed own = 0, patched = 0;
        Dwarf_Unsigned count = 0;
        Dwarf_Relocation_Data data = nullptr;
        check(dwarf_get_relocation_info(dbg_, &own, &patched, &count, &data, &error), error, "cannot read relocations");
        for (Dwarf_Unsigned r = 0; r < count; ++r) {
            if (data[r].drd_symbol_index == 0)
                continue;
            if (data[r].drd_length != 4)
                fail("a relocation of other than 4 bytes", nullptr);
            output.relocations.push_back({sectionName(patched), data[r].drd_offset,
                                          sectionName(static_cast<Dwarf_Signed>(data[r].drd_symbol_index))});
        }
    }
    return output;
}

/// Units per module, each with its functions, module-scope variables and line rows. Records of no
/// module (or of one the model does not have) go to the first unit, so that nothing is dropped.
std::vector<UnitContent> unitContents(const Program& program)
{
    std::vector<UnitContent> units;
    for (const model::Module& module : program.modules) {
        UnitContent unit;
        unit.file = module.file;
        unit.name = valid(module.file, program.files) ? slashed(program.files[module.file].path) : module.name;
        if (unit.name.empty())
            unit.name = module.name;
        units.push_back(std::move(unit));
    }
    auto unitOf = [&](uint32_t module) -> UnitContent& {
        if (units.empty()) {
            UnitContent unit;
            const size_t slash = program.path.find_last_of("/\\");
            unit.name = slash == std::string::npos ? program.path : program.path.substr(slash + 1);
            units.push_back(std::move(unit));
        }
        return units[module < units.size() ? module : 0];
    };
    for (uint32_t f = 0; f < program.functions.size(); ++f)
        unitOf(program.functions[f].module).functions.push_back(f);
    for (uint32_t v = 0; v < program.variables.size(); ++v)
        if (program.variables[v].function == kNone)
            unitOf(program.variables[v].module).variables.push_back(v);
    for (uint32_t r = 0; r < program.lines.size(); ++r) {
        const LineRow& row = program.lines[r];
        uint32_t module = kNone;
        if (valid(row.function, program.functions)) {
            module = program.functions[row.function].module;
        } else if (const uint32_t owner = program.functionAt(row.address); owner != kNone) {
            module = program.functions[owner].module;
        } else {
            for (uint32_t m = 0; m < program.modules.size() && module == kNone; ++m) {
                const auto& files = program.modules[m].files;
                if (std::find(files.begin(), files.end(), row.file) != files.end())
                    module = m;
            }
        }
        unitOf(module).rows.push_back(r);
    }
    // A line table must run forward within each sequence.
    for (UnitContent& unit : units)
        std::sort(unit.rows.begin(), unit.rows.end(),
                  [&](uint32_t a, uint32_t b) { return program.lines[a].address < program.lines[b].address; });
    return units;
}

bool looksLikeCplusplus(const Program& program)
{
    for (const Type& type : program.types)
        if (type.kind == Type::Kind::Class || type.kind == Type::Kind::Reference ||
            type.kind == Type::Kind::MemberPointer)
            return true;
    for (const Function& function : program.functions)
        if (function.qualifiedName.find("::") != std::string::npos)
            return true;
    return false;
}

void patch(std::string& bytes, uint64_t offset, uint64_t addend, const std::string& where)
{
    if (offset > bytes.size() || bytes.size() - offset < 4)
        fail("a relocation outside " + where, nullptr);
    uint64_t value = 0;
    for (unsigned i = 0; i < 4; ++i)
        value |= uint64_t(static_cast<uint8_t>(bytes[offset + i])) << (8 * i);
    value += addend;
    if (value > 0xFFFFFFFF)
        throw ExportError("DWARF: " + where + " passes the 4 GiB a 32-bit DWARF section can hold");
    for (unsigned i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<char>(value >> (8 * i));
}

} // namespace

std::vector<DebugSection> buildDwarf(const Program& program, const ElfTarget& target)
{
    const bool cplusplus = looksLikeCplusplus(program);
    std::string debugLoc;
    std::vector<UnitOutput> outputs;
    for (const UnitContent& content : unitContents(program)) {
        UnitWriter writer(program, target, cplusplus, debugLoc);
        outputs.push_back(writer.write(content));
    }

    // Join the units' sections in unit order, then point each unit's cross-section offsets at where
    // its pieces landed.
    std::vector<DebugSection> sections;
    std::map<std::string, size_t> sectionIndex;
    std::vector<std::map<std::string, uint64_t>> bases(outputs.size());
    for (size_t u = 0; u < outputs.size(); ++u) {
        for (const auto& [name, bytes] : outputs[u].sections) {
            auto [where, added] = sectionIndex.emplace(name, sections.size());
            if (added)
                sections.push_back({name, {}});
            bases[u][name] = sections[where->second].bytes.size();
            sections[where->second].bytes += bytes;
        }
    }
    for (size_t u = 0; u < outputs.size(); ++u) {
        for (const SectionReloc& reloc : outputs[u].relocations) {
            const auto section = bases[u].find(reloc.section), target = bases[u].find(reloc.target);
            if (section == bases[u].end() || target == bases[u].end())
                fail("a relocation between sections it never wrote", nullptr);
            patch(sections[sectionIndex.at(reloc.section)].bytes, section->second + reloc.offset, target->second,
                  reloc.section);
        }
    }
    if (!debugLoc.empty())
        sections.push_back({".debug_loc", std::move(debugLoc)});
    return sections;
}

} // namespace ubrof::exporter
