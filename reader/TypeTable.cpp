// TypeTable: the built-in base types, the type records read from the file, and the texts and facts derived from them.
#include "reader/TypeTable.h"

#include <algorithm>
#include <cstdio>

namespace ubrof {

namespace {

struct BuiltInBase {
    uint32_t index;
    const char* name;
    uint32_t size;
    uint32_t category;
};

// The pointer entries share their index with the pointer kinds of t_type, which take their size from here.
const BuiltInBase kBuiltInBases[] = {
    {1, "unsigned char", 1, UnsignedIntegerCategory},
    {2, "char", 1, SignedIntegerCategory},
    {3, "unsigned short", 2, UnsignedIntegerCategory},
    {4, "short", 2, SignedIntegerCategory},
    {5, "unsigned int", 2, UnsignedIntegerCategory},
    {6, "int", 2, SignedIntegerCategory},
    {7, "unsigned long", 4, UnsignedIntegerCategory},
    {8, "long", 4, SignedIntegerCategory},
    {9, "float", 4, FloatCategory},
    {10, "double", 4, FloatCategory},
    {11, "long double", 4, FloatCategory},
    {12, "void", 0, VoidCategory},
    {13, "...", 0, VoidCategory},
    {14, "address", 0, PointerCategory},
    {45, "unsigned long long", 8, UnsignedIntegerCategory},
    {46, "long long", 8, SignedIntegerCategory},
    {47, "bool", 1, UnsignedIntegerCategory},
    {48, "wchar", 2, SignedIntegerCategory},
    {54, "char", 1, SignedIntegerCategory},
    {23, "tiny *", 1, PointerCategory},
    {24, "near *", 2, PointerCategory},
    {25, "far *", 4, PointerCategory},
    {26, "huge *", 4, PointerCategory},
    {27, "flash *", 3, PointerCategory},
    {28, "farflash *", 3, PointerCategory},
    {31, "near func *", 2, PointerCategory},
    {32, "far func *", 3, PointerCategory},
};

constexpr uint32_t kVoidIndex = 12;

// What an index that names no type reads as; also what a walk reads where a cycle closes.
const TypeRecord kUndefined;
constexpr uint32_t kNoMemory = 255;

bool isPointerKind(uint32_t kind)
{
    return (kind >= 23 && kind <= 34) || (kind >= 37 && kind <= 40);
}

bool isQualifierKind(uint32_t kind)
{
    return kind == 21 || kind == 36 || kind == 42 || kind == 43;
}

bool isArrayKind(uint32_t kind)
{
    return kind == 16 || kind == 41;
}

// Texts never grow past what the callers' fixed buffers could hold.
void appendCut(std::string& text, const std::string& part)
{
    if (text.size() < kMaxNameLength)
        text.append(part, 0, kMaxNameLength - text.size());
}

} // namespace

TypeTable::TypeTable(const NameTable& names) : types(100), names_(names), baseNames_(1)
{
    for (const BuiltInBase& base : kBuiltInBases) {
        baseNames_.emplace_back(base.name);
        TypeRecord& record = types[base.index];
        record.kind = 1;
        record.op1 = static_cast<uint32_t>(baseNames_.size() - 1);
        record.op2 = base.size;
        record.op3 = base.category;
    }
}

void TypeTable::storeType(uint32_t index, const TypeRecord& record)
{
    if (types.size() <= index)
        types.resize(size_t(index) + 1);
    types[index] = record;
}

void TypeTable::setTypeSize(uint32_t index, uint32_t size)
{
    // The reader's index is one byte and the table starts with 100 records, so only a
    // caller outside the reader can miss; such a call changes nothing.
    if (index < types.size())
        types[index].op2 = size;
}

const TypeRecord& TypeTable::getRecord(uint32_t index) const
{
    // A dangling type index reads as an undefined type rather than as memory past the table.
    return index < types.size() ? types[index] : kUndefined;
}

bool TypeTable::WalkPath::holds(uint32_t index) const
{
    return std::find(indices, indices + depth, index) != indices + depth;
}

const TypeRecord& TypeTable::recordOnPath(uint32_t index, const WalkPath& path) const
{
    return path.holds(index) ? kUndefined : getRecord(index);
}

namespace {

/// Puts an index on a walk's path for as long as the walk is below it.
template <typename Path>
class OnPath {
public:
    OnPath(Path& path, uint32_t index) : path_(path), depth_(path.depth) { path.indices[path.depth++] = index; }
    ~OnPath() { path_.depth = depth_; }
    OnPath(const OnPath&) = delete;
    OnPath& operator=(const OnPath&) = delete;

private:
    Path& path_;
    unsigned depth_;
};

} // namespace

const MemoryInfo* TypeTable::memoryAt(uint32_t number) const
{
    // 255 means "no memory" in a type record even when a memory description used that number.
    if (number == kNoMemory || number >= memories.size())
        return nullptr;
    return &memories[number];
}

const TypeRecord* TypeTable::skipQualifiers(uint32_t index) const
{
    TypeChain chain(index);
    for (;;) {
        const TypeRecord& record = getRecord(index);
        if (!isQualifierKind(record.kind))
            return &record;
        index = record.op2;
        if (!chain.step(index))
            return &kUndefined;
    }
}

std::string TypeTable::renderTypeName(uint32_t index) const
{
    std::string text;
    WalkPath path;
    renderInto(index, text, path);
    return text;
}

void TypeTable::renderInto(uint32_t index, std::string& text, WalkPath& path) const
{
    // Once the text is full nothing more can show, and stopping here also bounds the
    // work of function types whose parameters fan out into more function types.
    if (path.depth > kMaxTypeDepth || text.size() >= kMaxNameLength)
        return;
    const TypeRecord& record = recordOnPath(index, path);
    const OnPath<WalkPath> below(path, index);
    const uint32_t kind = record.kind;
    if (kind == 0) {
        appendCut(text, "undefined_type");
    } else if (kind == 1) {
        appendCut(text, baseName(record));
    } else if (kind == 15 || isPointerKind(kind)) {
        renderInto(record.op1, text, path);
        appendCut(text, " *");
    } else if (kind == 53) {
        renderInto(record.op1, text, path);
        appendCut(text, " &");
    } else if (isArrayKind(kind)) {
        std::string suffix;
        const TypeRecord* element = &record;
        uint32_t elementIndex = index;
        const unsigned depth = path.depth;
        while (isArrayKind(element->kind)) {
            if (path.depth > kMaxTypeDepth) {
                path.depth = depth;
                return;
            }
            char count[16];
            std::snprintf(count, sizeof count, "[%d]", static_cast<int32_t>(element->op3));
            appendCut(suffix, count);
            if (elementIndex != index)
                path.indices[path.depth++] = elementIndex;
            elementIndex = element->op1;
            element = &recordOnPath(elementIndex, path);
        }
        renderInto(elementIndex, text, path);
        path.depth = depth;
        appendCut(text, suffix);
    } else if (kind == 17 || kind == 18 || kind == 52) {
        if (record.op2 == 1)
            appendCut(text, "struct ");
        else if (record.op2 == 2)
            appendCut(text, "union ");
        else if (record.op2 == 3)
            appendCut(text, "class ");
        appendCut(text, names_.nameText(record.op1));
    } else if (kind == 44 || kind == 51) {
        appendCut(text, "enum ");
        appendCut(text, names_.nameText(record.op2));
    } else if (kind == 49) {
        appendCut(text, names_.nameText(record.op2));
    } else if (kind == 19) {
        renderInto(record.op3, text, path);
    } else if (kind == 43) {
        renderInto(record.op2, text, path);
    } else if (kind == 21 || kind == 36) {
        renderInto(record.op2, text, path);
        if (record.op1 & 1)
            appendCut(text, " register");
        if (record.op1 & 2)
            appendCut(text, " const");
        if (record.op1 & 4)
            appendCut(text, " volatile");
    } else if (kind == 42) {
        renderInto(record.op2, text, path);
        if (record.op3 & 1)
            appendCut(text, " const");
        if (record.op3 & 2)
            appendCut(text, " volatile");
        if (record.op3 & 4)
            appendCut(text, " restrict");
        if (record.op3 & 8)
            appendCut(text, " writeonly");
    } else if (kind == 20 || kind == 35) {
        if (record.op2 & 4)
            appendCut(text, "[interrupt] ");
        appendCut(text, "(");
        renderInto(record.op1, text, path);
        appendCut(text, ") (");
        // A record built outside the reader may claim more parameters than were stored.
        const size_t first = record.op5;
        const size_t available = first <= parameterTypes.size() ? parameterTypes.size() - first : 0;
        for (size_t i = 0; i < record.op4 && i < available; ++i) {
            if (i != 0)
                appendCut(text, ", ");
            renderInto(parameterTypes[first + i], text, path);
        }
        appendCut(text, ")");
    } else if (kind == 50) {
        renderInto(record.op2, text, path);
        appendCut(text, "::");
        renderInto(record.op1, text, path);
        appendCut(text, " *");
    }
}

void TypeTable::getTypeInfo(uint32_t index, TypeInfo& info) const
{
    WalkPath path;
    typeInfoAt(index, info, path);
}

void TypeTable::typeInfoAt(uint32_t index, TypeInfo& info, WalkPath& path) const
{
    // Too deep a chain answers nothing, as for a kind without facts.
    if (path.depth > kMaxTypeDepth)
        return;
    const TypeRecord& record = recordOnPath(index, path);
    const OnPath<WalkPath> below(path, index);
    const uint32_t kind = record.kind;
    auto set = [&info](uint32_t category, uint32_t size, uint32_t count) {
        info.category = category;
        info.size = size;
        info.count = count;
        info.memoryClass = 2;
        info.extra = 0;
    };
    // A pointer whose memory is unknown (none, or never described) has no size the reader
    // could vouch for; 0 lets the caller see that instead of a guessed width. A built-in base
    // record's op1 is its name, which here is a small slot number that must not pass for a memory.
    auto addressSizeOf = [this](const TypeRecord& target) -> uint32_t {
        if (target.kind == 1 && target.op1 != 0)
            return 0;
        const MemoryInfo* memory = memoryAt(target.op1);
        return memory ? memory->addressSize : 0;
    };

    if (kind == 0) {
        set(UndefinedCategory, 0, 0);
    } else if (kind == 1) {
        set(record.op3, record.op2, 0);
    } else if (kind == 15) {
        const TypeRecord& target = getRecord(record.op1);
        const bool toNothing = target.op2 == kVoidIndex || target.kind == 43;
        set(PointerCategory, addressSizeOf(target), toNothing ? 0 : 1);
    } else if (isPointerKind(kind)) {
        set(PointerCategory, getRecord(kind).op2, 1);
    } else if (isArrayKind(kind)) {
        set(ArrayCategory, record.op2, record.op3);
    } else if (kind == 17 || kind == 18 || kind == 52) {
        set(CompositeCategory, record.op3, record.op4);
    } else if (kind == 50) {
        set(UnsignedIntegerCategory, addressSizeOf(getRecord(record.op1)), 0);
    } else if (kind == 19) {
        info.category = BitFieldCategory;
        info.size = record.op1;
        info.count = 0;
        info.memoryClass = 2;
        info.extra = record.op2;
    } else if (kind == 20 || kind == 35) {
        info.category = FunctionCategory;
        info.size = 0;
        info.count = 0;
        info.memoryClass = 1;
        info.extra = 0;
    } else if (kind == 21) {
        typeInfoAt(record.op2, info, path);
        info.memoryClass = 2;
    } else if (kind == 36) {
        typeInfoAt(record.op2, info, path);
        const uint32_t pointerKind = pointerKindFromAttribute(record.op1);
        info.extra = getRecord(pointerKind).op2;
        info.memoryClass = pointerKind < 27 ? 2 : 1;
    } else if (kind == 42 || kind == 43) {
        typeInfoAt(record.op2, info, path);
        // A memory number nobody described qualifies nothing, like 255.
        if (const MemoryInfo* memory = memoryAt(record.op1)) {
            info.memoryClass = memory->memoryClass;
            info.extra = memory->addressSize;
        }
    } else if (kind == 44 || kind == 49 || kind == 51 || kind == 53) {
        typeInfoAt(record.op1, info, path);
    }
}

bool TypeTable::getDwarfTag(uint32_t index, int32_t& tag) const
{
    TypeChain chain(index);
    for (bool cycle = false;;) {
        const TypeRecord& record = cycle ? kUndefined : getRecord(index);
        const uint32_t kind = record.kind;
        if (kind == 19 || isQualifierKind(kind)) {
            index = kind == 19 ? record.op3 : record.op2;
            cycle = !chain.step(index);
            continue;
        }
        if (kind == 0)
            tag = 0x3B;
        else if (kind == 1)
            tag = 0x24;
        else if (kind == 15)
            tag = 0x0F;
        else if (isPointerKind(kind) || kind == 50)
            tag = 0x1F;
        else if (kind == 53)
            tag = 0x10;
        else if (isArrayKind(kind))
            tag = 0x01;
        else if (kind == 17 || kind == 52)
            tag = 0x13;
        else if (kind == 18)
            tag = 0x17;
        else if (kind == 44 || kind == 51)
            tag = 0x04;
        else if (kind == 49)
            tag = 0x16;
        else if (kind == 20 || kind == 35)
            // A subroutine type keeps a function a type of its own; taking the result type's tag
            // would make a function look like the value it returns. op2 holds flags, not a type.
            tag = 0x15;
        else
            return false;
        return true;
    }
    return false;
}

bool TypeTable::getReferencedType(uint32_t index, uint32_t& target) const
{
    const TypeRecord* record = skipQualifiers(index);
    if (!record)
        return false;
    const uint32_t kind = record->kind;
    if (kind == 15 || isArrayKind(kind) || isPointerKind(kind) || kind == 49 || kind == 50 || kind == 53) {
        target = record->op1;
        return true;
    }
    return false;
}

void TypeTable::collectArrayDimensions(uint32_t index, std::vector<int32_t>& counts) const
{
    TypeChain chain(index);
    for (;;) {
        const TypeRecord& record = getRecord(index);
        if (isQualifierKind(record.kind)) {
            index = record.op2;
        } else if (isArrayKind(record.kind)) {
            counts.push_back(static_cast<int32_t>(record.op3));
            index = record.op1;
        } else {
            return;
        }
        if (!chain.step(index))
            return;
    }
}

void TypeTable::getBitFieldLayout(uint32_t index, uint32_t& width, uint32_t& position, uint32_t& storageSize) const
{
    width = position = storageSize = 0;
    const TypeRecord& record = getRecord(index);
    if (record.kind != 19)
        return;
    width = record.op1;
    position = record.op2;
    TypeInfo storage;
    WalkPath path;
    path.indices[path.depth++] = index;
    typeInfoAt(record.op3, storage, path);
    storageSize = storage.size;
}

bool TypeTable::isBitFieldType(uint32_t index) const
{
    return getRecord(index).kind == 19;
}

bool TypeTable::isFunctionType(uint32_t index) const
{
    const TypeRecord* record = skipQualifiers(index);
    return record && (record->kind == 20 || record->kind == 35);
}

bool TypeTable::isIoType(uint32_t index) const
{
    const TypeRecord& record = getRecord(index);
    switch (record.kind) {
    case 21:
        return ((record.op1 >> 4) & 0xF) == 5;
    case 36:
        return (record.op1 & 0x8000) != 0;
    case 42:
    case 43: {
        const MemoryInfo* memory = memoryAt(record.op1);
        return memory && (memory->attributes & 8) != 0;
    }
    default:
        return false;
    }
}

std::vector<BaseTypeRecord> TypeTable::getBaseTypeRecords() const
{
    std::vector<BaseTypeRecord> bases;
    for (size_t index = 0; index < types.size(); ++index) {
        const TypeRecord& record = types[index];
        if (record.kind == 1)
            bases.push_back({static_cast<uint32_t>(index), baseName(record), record.op2, record.op3});
    }
    return bases;
}

uint32_t TypeTable::pointerKindFromAttribute(uint32_t word)
{
    const uint32_t code = (word >> 4) & 0xFF;
    switch (code) {
    case 18: return 24;
    case 19: return 25;
    case 20: return 26;
    case 21: return 27;
    case 22: return 28;
    case 23: return 29;
    case 24: return 30;
    case 33: return 31;
    case 34: return 32;
    case 35: return 33;
    case 36: return 34;
    case 37:
    case 38:
    case 39:
    case 40: return code;
    default: return 23;
    }
}

const std::string& TypeTable::baseName(const TypeRecord& record) const
{
    // A kind-1 record read from the file carries no operands, so its op1 is 0: the unnamed slot.
    static const std::string none;
    return record.kind == 1 && record.op1 < baseNames_.size() ? baseNames_[record.op1] : none;
}

} // namespace ubrof
