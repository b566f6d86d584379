// TypeShapes: every store type resolved once, in an order where what a type is made of comes
// first, with the records that refer to themselves found in the same pass over the graph.
#include "model/TypeShapes.h"

#include "model/BuildContext.h"
#include "parser/Vocabulary.h"
#include "reader/TypeTable.h"

#include <algorithm>

namespace ubrof::model::detail {
namespace {

using Kind = Type::Kind;

constexpr uint32_t kVariadicMarker = 13;      // the built-in "..." record
constexpr uint32_t kNearPointer = 24;         // the built-in record data pointers default to
constexpr uint32_t kNearFunctionPointer = 31; // and the one function pointers default to
constexpr size_t kMaxDeclaration = 512;       // C texts are cut here: far beyond any real type

bool isSizedPointerKind(uint32_t kind)
{
    return (kind >= 23 && kind <= 34) || (kind >= 37 && kind <= 40);
}

bool isArrayKind(uint32_t kind)
{
    return kind == 16 || kind == 41;
}

bool isAggregateKind(uint32_t kind)
{
    return kind == 17 || kind == 18 || kind == 52;
}

bool isFunctionKind(uint32_t kind)
{
    return kind == 20 || kind == 35;
}

// The built-in pointer records 27 and 28 point into flash, 31 to 34 at functions.
MemorySpace spaceOfPointerKind(uint32_t kind)
{
    return kind == 27 || kind == 28 || (kind >= 31 && kind <= 34) ? MemorySpace::Code : MemorySpace::Data;
}

MemorySpace spaceOfMemoryClass(uint8_t memoryClass)
{
    if (memoryClass == CodeMemory)
        return MemorySpace::Code;
    if (memoryClass == EepromMemory)
        return MemorySpace::Eeprom;
    return MemorySpace::Data;
}

// Entries [first, first + count) of a table of size, as far as the table holds them.
std::pair<size_t, size_t> bounded(uint64_t first, uint64_t count, size_t size)
{
    if (first >= size)
        return {size, size};
    return {size_t(first), size_t(std::min<uint64_t>(size, first + count))};
}

// A count the reader compares as signed: one with the top bit set declares nothing.
uint32_t signedCount(uint32_t count)
{
    return static_cast<int32_t>(count) < 0 ? 0 : count;
}

void appendCut(std::string& text, const std::string& part)
{
    if (text.size() < kMaxDeclaration)
        text.append(part, 0, kMaxDeclaration - text.size());
}

// A declarator after a type name: "x", "*", "(*)(void)"; arrays stick to the name ("char[4]").
std::string joined(const std::string& type, const std::string& inner)
{
    if (inner.empty())
        return type;
    return type + (inner[0] == '[' ? "" : " ") + inner;
}

} // namespace

TypeShapes::TypeShapes(const BuildContext& context)
    : context_(context),
      table_(context.store.typeTable),
      storeCount_(table_.getCount()),
      unknown_(table_.getCount())
{
    shapes_.resize(size_t(storeCount_) + 1);
    shapes_[unknown_].resolved = unknown_;

    // A type whose C text would contain itself (a pointer to itself, say) has no shape either;
    // those are found first, so that the value pass below treats them as Unknown.
    std::vector<bool> unnameable(storeCount_, false);
    walk(false, [&](uint32_t index, bool cyclic) {
        if (cyclic)
            unnameable[index] = true;
    });
    // Post-order of what a type is made of: a typedef after its target, an array after its
    // element, a structure after its members.
    walk(true, [&](uint32_t index, bool cyclic) { shapeOf(index, cyclic || unnameable[index]); });
    for (uint32_t index = 0; index < storeCount_; ++index)
        linkTargets(index);
}

uint32_t TypeShapes::valid(uint32_t storeIndex) const
{
    return storeIndex < storeCount_ ? storeIndex : unknown_;
}

uint32_t TypeShapes::strip(uint32_t storeIndex) const
{
    const uint32_t index = valid(storeIndex);
    const Shape& shape = shapes_[index];
    return shape.alias ? shape.target : index;
}

uint32_t TypeShapes::sizeOf(uint32_t modelIndex) const
{
    return modelIndex < shapes_.size() ? shapes_[modelIndex].size : 0;
}

Type::Kind TypeShapes::kindOf(uint32_t modelIndex) const
{
    return modelIndex < shapes_.size() ? shapes_[modelIndex].kind : Kind::Unknown;
}

bool TypeShapes::isInterrupt(uint32_t storeIndex) const
{
    // The handler mark is on the function record, or on the memory qualifier that places the
    // function in code memory (bit 2 of its qualifier word).
    for (unsigned step = 0; step < kMaxDepth; ++step) {
        const TypeRecord& record = table_.getRecord(storeIndex);
        if (record.kind == 42 || record.kind == 43) {
            if (record.op3 & 4)
                return true;
            storeIndex = record.op2;
        } else if (record.kind == 21 || record.kind == 36) {
            storeIndex = record.op2;
        } else {
            return isFunctionKind(record.kind) && (record.op2 & 4) != 0;
        }
    }
    return false;
}

bool TypeShapes::isIoRegister(uint32_t storeIndex) const
{
    for (unsigned step = 0; step < kMaxDepth; ++step) {
        const TypeRecord& record = table_.getRecord(storeIndex);
        if (record.kind == 21) {
            if (((record.op1 >> 4) & 0xF) == 5)
                return true;
        } else if (record.kind == 36) {
            if (record.op1 & 0x8000)
                return true;
        } else if (record.kind == 42 || record.kind == 43) {
            if (record.op1 != 255 && record.op1 < table_.memories.size()) {
                const MemoryInfo& memory = table_.memories[record.op1];
                if (memory.memoryClass == IoMemory || (memory.attributes & 8) != 0)
                    return true;
            }
        } else {
            return false;
        }
        storeIndex = record.op2;
    }
    return false;
}

void TypeShapes::edges(uint32_t index, bool valueEdges, std::vector<uint32_t>& out) const
{
    const TypeRecord& record = table_.types[index];
    const uint32_t kind = record.kind;
    if (kind == 21 || kind == 36 || kind == 42 || kind == 43) {
        out.push_back(record.op2);
    } else if (kind == 19) {
        out.push_back(record.op3);
    } else if (isArrayKind(kind)) {
        out.push_back(record.op1);
    } else if (valueEdges) {
        // What a type is made of by value: pointers and functions are not, so a structure
        // that points at itself is sound while one that contains itself is not.
        if (kind == 49 || kind == 44 || kind == 51) {
            out.push_back(record.op1);
        } else if (isAggregateKind(kind)) {
            const uint32_t count = kind == 52 ? signedCount(record.op4) : record.op4;
            const auto [first, last] = bounded(record.op5, count, table_.members.size());
            for (size_t i = first; i < last; ++i)
                out.push_back(table_.members[i].typeIndex);
        }
    } else {
        // What a type's C text is made of: named types end the text, so only unnamed
        // constructs can run in a circle.
        if (kind == 15 || kind == 53 || isSizedPointerKind(kind)) {
            out.push_back(record.op1);
        } else if (kind == 50) {
            out.push_back(record.op1);
            out.push_back(record.op2);
        } else if (isFunctionKind(kind)) {
            out.push_back(record.op1);
            const auto [first, last] = bounded(record.op5, record.op4, table_.parameterTypes.size());
            for (size_t i = first; i < last; ++i)
                out.push_back(table_.parameterTypes[i]);
        }
    }
}

template <typename Emit>
void TypeShapes::walk(bool valueEdges, Emit emit) const
{
    // Tarjan's strongly connected components without recursion: one pass over every record and
    // reference, each record emitted after all it refers to, with whether it lies on a cycle.
    const uint32_t n = storeCount_;
    std::vector<uint32_t> order(n, kNone), low(n, 0);
    std::vector<bool> onStack(n, false), selfLoop(n, false);
    std::vector<uint32_t> stack, edgeBuffer, component;
    struct Frame {
        uint32_t node;
        size_t edgeBegin;
        size_t edgeNext;
    };
    std::vector<Frame> frames;
    uint32_t counter = 0;
    auto enter = [&](uint32_t node) {
        order[node] = low[node] = counter++;
        stack.push_back(node);
        onStack[node] = true;
        const size_t begin = edgeBuffer.size();
        edges(node, valueEdges, edgeBuffer);
        frames.push_back({node, begin, begin});
    };
    for (uint32_t root = 0; root < n; ++root) {
        if (order[root] != kNone)
            continue;
        enter(root);
        while (!frames.empty()) {
            Frame& frame = frames.back();
            if (frame.edgeNext < edgeBuffer.size()) {
                const uint32_t next = edgeBuffer[frame.edgeNext++];
                const uint32_t node = frame.node;
                if (next >= n)
                    continue;
                if (order[next] == kNone) {
                    enter(next);
                } else if (onStack[next]) {
                    low[node] = std::min(low[node], order[next]);
                    if (next == node)
                        selfLoop[node] = true;
                }
                continue;
            }
            const uint32_t node = frame.node;
            edgeBuffer.resize(frame.edgeBegin);
            frames.pop_back();
            if (!frames.empty())
                low[frames.back().node] = std::min(low[frames.back().node], low[node]);
            if (low[node] != order[node])
                continue;
            component.clear();
            uint32_t member;
            do {
                member = stack.back();
                stack.pop_back();
                onStack[member] = false;
                component.push_back(member);
            } while (member != node);
            const bool cyclic = component.size() > 1 || selfLoop[node];
            for (uint32_t each : component)
                emit(each, cyclic);
        }
    }
}

uint32_t TypeShapes::pointerSize(uint32_t index, MemorySpace& space) const
{
    const TypeRecord& record = table_.types[index];
    auto builtInSize = [this](uint32_t kind) {
        const TypeRecord& base = table_.getRecord(kind);
        return base.kind == 1 ? base.op2 : 0;
    };
    if (isSizedPointerKind(record.kind)) {
        space = spaceOfPointerKind(record.kind);
        return builtInSize(record.kind);
    }
    // A pointer's width is that of the memory its target is placed in.
    const TypeRecord& target = table_.getRecord(record.op1);
    if ((target.kind == 42 || target.kind == 43) && target.op1 < table_.memories.size() && target.op1 != 255) {
        const MemoryInfo& memory = table_.memories[target.op1];
        if (memory.addressSize != 0) {
            space = spaceOfMemoryClass(memory.memoryClass);
            return memory.addressSize;
        }
    }
    if (target.kind == 36) {
        // Attribute codes 18 to 40 name the memory of the object; other codes say nothing of it.
        const uint32_t code = (target.op1 >> 4) & 0xFF;
        if ((code >= 18 && code <= 24) || (code >= 33 && code <= 40)) {
            const uint32_t kind = TypeTable::pointerKindFromAttribute(target.op1);
            space = spaceOfPointerKind(kind);
            return builtInSize(kind);
        }
    }
    // Nothing places the target: the file's default widths of data and function pointers.
    if (table_.isFunctionType(record.op1)) {
        space = MemorySpace::Code;
        return builtInSize(kNearFunctionPointer);
    }
    space = MemorySpace::Data;
    return builtInSize(kNearPointer);
}

void TypeShapes::shapeOf(uint32_t index, bool cyclic)
{
    const TypeRecord& record = table_.types[index];
    const uint32_t kind = record.kind;
    Shape shape;
    shape.resolved = index;
    if (cyclic) {
        shapes_[index] = shape;
        return;
    }
    // Types whose parts come first in the walk's order, so their shapes are final here.
    auto transparent = [&](uint32_t target) {
        const uint32_t stripped = strip(target);
        const Shape& inner = shapes_[stripped];
        shape.kind = inner.kind;
        shape.size = inner.size;
        shape.resolved = inner.resolved;
        shape.alias = true;
        shape.target = stripped;
    };
    auto qualified = [&](uint32_t target, bool isConst, bool isVolatile) {
        if (!isConst && !isVolatile) {
            transparent(target);
            return;
        }
        const uint32_t stripped = strip(target);
        shape.kind = isConst ? Kind::Const : Kind::Volatile;
        shape.size = shapes_[stripped].size;
        shape.resolved = shapes_[stripped].resolved;
        shape.target = stripped;
        if (isConst && isVolatile) {
            Shape half = shape;
            half.kind = Kind::Volatile;
            shape.inner = shape.target = static_cast<uint32_t>(shapes_.size());
            shapes_.push_back(half);
        }
    };

    if (kind == 1) {
        shape.size = record.op2;
        switch (record.op3) {
        case SignedIntegerCategory:
        case UnsignedIntegerCategory:
        case FloatCategory:
            shape.kind = Kind::Base;
            break;
        case VoidCategory:
            shape.kind = Kind::Void;
            shape.size = 0;
            break;
        case PointerCategory:
            shape.kind = Kind::Pointer; // "address" and the built-in pointer widths: to nothing known
            break;
        default:
            shape.size = 0;
        }
    } else if (kind == 15 || kind == 53 || isSizedPointerKind(kind)) {
        MemorySpace space = MemorySpace::Data;
        shape.kind = kind == 53 ? Kind::Reference : Kind::Pointer;
        shape.size = pointerSize(index, space);
    } else if (isArrayKind(kind)) {
        shape.kind = Kind::Array;
        // An inner array is shaped already, with its innermost element as its target.
        uint32_t element = strip(record.op1);
        if (shapes_[element].kind == Kind::Array)
            element = shapes_[element].target;
        shape.target = element;
        shape.size = record.op2;
        if (shape.size == 0) {
            const uint64_t total = uint64_t(record.op3) * shapes_[valid(record.op1)].size;
            shape.size = total <= 0xFFFFFFFF ? static_cast<uint32_t>(total) : 0;
        }
    } else if (isAggregateKind(kind)) {
        const uint32_t key = record.op2;
        shape.kind = key == 2 ? Kind::Union : key == 3 ? Kind::Class : Kind::Structure;
        shape.size = record.op3;
    } else if (kind == 19) {
        transparent(record.op3);
    } else if (isFunctionKind(kind)) {
        shape.kind = Kind::Function;
    } else if (kind == 21) {
        qualified(record.op2, (record.op1 & 2) != 0, (record.op1 & 4) != 0);
    } else if (kind == 36) {
        transparent(record.op2);
    } else if (kind == 42 || kind == 43) {
        qualified(record.op2, (record.op3 & 1) != 0, (record.op3 & 2) != 0);
    } else if (kind == 44 || kind == 51) {
        shape.kind = Kind::Enumeration;
        shape.size = shapes_[strip(record.op1)].size;
        shape.target = strip(record.op1);
    } else if (kind == 49) {
        const uint32_t target = strip(record.op1);
        shape.kind = Kind::Typedef;
        shape.target = target;
        shape.size = shapes_[target].size;
        shape.resolved = shapes_[target].resolved;
    } else if (kind == 50) {
        shape.kind = Kind::MemberPointer;
        const TypeRecord& target = table_.getRecord(record.op1);
        if (target.op1 < table_.memories.size() && (target.kind == 42 || target.kind == 43))
            shape.size = table_.memories[target.op1].addressSize;
    }
    shapes_[index] = shape;
}

void TypeShapes::linkTargets(uint32_t index)
{
    // Pointers and functions refer to types that may come later in the value order; every
    // shape is final now.
    const TypeRecord& record = table_.types[index];
    Shape& shape = shapes_[index];
    if (shape.alias)
        return;
    if (shape.kind == Kind::Pointer || shape.kind == Kind::Reference || shape.kind == Kind::MemberPointer) {
        if (record.kind != 1)
            shape.target = strip(record.op1);
    } else if (shape.kind == Kind::Function && !shape.alias) {
        const uint32_t result = strip(record.op1);
        shape.target = shapes_[shapes_[result].resolved].kind == Kind::Void ? kNone : result;
    }
}

void TypeShapes::describe(uint32_t index, Type& type) const
{
    const TypeRecord& record = table_.types[index];
    const uint32_t kind = record.kind;
    if (kind == 1) {
        type.name = table_.baseName(record);
        if (type.kind == Kind::Base) {
            const bool isSigned = record.op3 == SignedIntegerCategory;
            if (record.op3 == FloatCategory)
                type.encoding = Type::Encoding::Float;
            else if (type.name == "bool")
                type.encoding = Type::Encoding::Boolean;
            else if (type.name.find("char") != std::string::npos && type.name != "wchar" && record.op2 == 1)
                type.encoding = isSigned ? Type::Encoding::SignedChar : Type::Encoding::UnsignedChar;
            else
                type.encoding = isSigned ? Type::Encoding::Signed : Type::Encoding::Unsigned;
        }
    } else if (isArrayKind(kind)) {
        uint32_t element = index;
        for (unsigned step = 0; step < kMaxDepth && element < storeCount_ && shapes_[element].kind == Kind::Array &&
                                isArrayKind(table_.types[element].kind);
             ++step) {
            type.dimensions.push_back(table_.types[element].op3);
            element = strip(table_.types[element].op1);
        }
    } else if (isAggregateKind(kind)) {
        type.name = context_.qualifiedName(record.op1);
        const uint32_t count = kind == 52 ? signedCount(record.op4) : record.op4;
        const auto [first, last] = bounded(record.op5, count, table_.members.size());
        type.members.reserve(last - first);
        for (size_t i = first; i < last; ++i) {
            const MemberRecord& source = table_.members[i];
            Type::Member member;
            member.name = context_.nameText(source.nameIndex);
            member.offset = source.offset;
            const TypeRecord& memberRecord = table_.getRecord(source.typeIndex);
            if (memberRecord.kind == 19) {
                member.type = strip(memberRecord.op3);
                member.bitSize = memberRecord.op1;
                member.bitOffset = memberRecord.op2;
            } else {
                member.type = strip(source.typeIndex);
            }
            type.members.push_back(std::move(member));
        }
    } else if (kind == 44 || kind == 51) {
        type.name = context_.qualifiedName(record.op2);
        const Type::Kind underlying = shapes_[strip(record.op1)].kind;
        const TypeRecord& base = table_.getRecord(strip(record.op1));
        const bool isSigned = underlying == Kind::Base && base.kind == 1 && base.op3 == SignedIntegerCategory;
        const auto [first, last] = bounded(record.op4, signedCount(record.op3), table_.enumConstants.size());
        type.enumerators.reserve(last - first);
        for (size_t i = first; i < last; ++i) {
            const EnumConstant& constant = table_.enumConstants[i];
            const int64_t value = isSigned ? int64_t(int32_t(constant.value)) : int64_t(constant.value);
            type.enumerators.push_back({context_.nameText(constant.nameIndex), value});
        }
    } else if (kind == 49) {
        type.name = context_.qualifiedName(record.op2);
    } else if (isFunctionKind(kind)) {
        const auto [first, last] = bounded(record.op5, record.op4, table_.parameterTypes.size());
        for (size_t i = first; i < last; ++i) {
            const uint32_t parameter = table_.parameterTypes[i];
            if (parameter == kVariadicMarker)
                type.variadic = true;
            else
                type.parameters.push_back(strip(parameter));
        }
        // f(void) lists void as its one parameter.
        if (type.parameters.size() == 1 && shapes_[shapes_[type.parameters[0]].resolved].kind == Kind::Void)
            type.parameters.clear();
    }
    if (type.kind == Kind::Pointer || type.kind == Kind::Reference) {
        if (kind != 1)
            pointerSize(index, type.pointerSpace);
        else if (type.name.find("flash") != std::string::npos || type.name.find("func") != std::string::npos)
            type.pointerSpace = MemorySpace::Code;
    }
}

std::string TypeShapes::declaration(const std::vector<Type>& types, uint32_t index, std::string inner,
                                    unsigned depth) const
{
    if (depth > kMaxDepth || index >= types.size() || inner.size() > kMaxDeclaration)
        return joined("...", inner);
    const Type& type = types[index];
    auto tagged = [&](const char* tag) {
        return joined(std::string(tag) + (type.name.empty() ? "<anonymous>" : type.name), inner);
    };
    switch (type.kind) {
    case Kind::Unknown:
        return joined("<unknown>", inner);
    case Kind::Void:
        return joined("void", inner);
    case Kind::Base:
    case Kind::Typedef:
        return joined(type.name.empty() ? "<unnamed>" : type.name, inner);
    case Kind::Structure:
        return tagged("struct ");
    case Kind::Union:
        return tagged("union ");
    case Kind::Class:
        return tagged("class ");
    case Kind::Enumeration:
        return tagged("enum ");
    case Kind::Pointer:
    case Kind::Reference: {
        const char* mark = type.kind == Kind::Pointer ? "*" : "&";
        if (type.target == kNone)
            return joined("void", mark + inner);
        const Kind target = types[type.target].kind;
        const bool bind = target == Kind::Array || target == Kind::Function;
        return declaration(types, type.target, bind ? "(" + (mark + inner) + ")" : mark + inner, depth + 1);
    }
    case Kind::Const:
    case Kind::Volatile: {
        const char* word = type.kind == Kind::Const ? "const" : "volatile";
        if (type.target >= types.size())
            return joined("<unknown>", inner);
        const Type& target = types[type.target];
        // A qualified pointer: the qualifier follows its star ("char *const").
        if (target.kind == Kind::Pointer) {
            std::string declarator = std::string("*") + word + (inner.empty() ? "" : " " + inner);
            if (target.target == kNone)
                return joined("void", declarator);
            const Kind pointee = types[target.target].kind;
            if (pointee == Kind::Array || pointee == Kind::Function)
                declarator = "(" + declarator + ")";
            return declaration(types, target.target, declarator, depth + 1);
        }
        return std::string(word) + " " + declaration(types, type.target, inner, depth + 1);
    }
    case Kind::Array: {
        std::string suffix;
        for (uint32_t count : type.dimensions)
            suffix += "[" + std::to_string(count) + "]";
        return declaration(types, type.target, inner + suffix, depth + 1);
    }
    case Kind::Function: {
        std::string parameters;
        for (uint32_t parameter : type.parameters) {
            if (!parameters.empty())
                parameters += ", ";
            appendCut(parameters, declaration(types, parameter, "", depth + 1));
        }
        if (type.variadic)
            parameters += parameters.empty() ? "..." : ", ...";
        if (parameters.empty())
            parameters = "void";
        const std::string declarator = inner + "(" + parameters + ")";
        if (type.target == kNone)
            return joined("void", declarator);
        return declaration(types, type.target, declarator, depth + 1);
    }
    case Kind::MemberPointer: {
        const TypeRecord& record = table_.getRecord(index);
        const uint32_t owner = strip(record.op2);
        const std::string ownerName = owner < types.size() ? types[owner].name : std::string();
        return declaration(types, type.target, ownerName + "::*" + inner, depth + 1);
    }
    }
    return joined("<unknown>", inner);
}

std::vector<Type> TypeShapes::records() const
{
    std::vector<Type> types(shapes_.size());
    for (uint32_t index = 0; index < shapes_.size(); ++index) {
        const Shape& shape = shapes_[index];
        Type& type = types[index];
        type.kind = shape.kind;
        type.size = shape.size;
        type.target = shape.target;
        type.resolved = shape.resolved;
        if (index < storeCount_ && !shape.alias && shape.kind != Kind::Unknown)
            describe(index, type);
    }
    // The C text of a type reads its parts' records, so it comes once all are described.
    for (uint32_t index = 0; index < types.size(); ++index)
        if (!shapes_[index].alias) {
            std::string text = declaration(types, index, "", 0);
            if (text.size() > kMaxDeclaration)
                text.resize(kMaxDeclaration);
            types[index].cName = std::move(text);
        }
    // A qualifier C does not see reads as the type it stands for.
    for (uint32_t index = 0; index < types.size(); ++index)
        if (shapes_[index].alias) {
            types[index] = types[shapes_[index].target];
        }
    return types;
}

} // namespace ubrof::model::detail
