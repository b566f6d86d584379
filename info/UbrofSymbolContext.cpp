// UbrofSymbolContext: classification, navigation, sizes, location and properties of one context number.
#include "info/UbrofSymbolContext.h"

#include "host/CoreException.h"
#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

#include <boost/json/array.hpp>
#include <boost/make_shared.hpp>
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <sstream>

namespace ubrof {
namespace {

// Tags of the type records the host counts as types.
bool isTypeTag(int32_t tag)
{
    switch (tag) {
    case 0x01: case 0x02: case 0x03: case 0x04: case 0x0F: case 0x10: case 0x12: case 0x13:
    case 0x15: case 0x16: case 0x17: case 0x1F: case 0x20: case 0x21: case 0x24: case 0x29:
    case 0x2D: case 0x2F: case 0x31: case 0x37: case 0x38: case 0x3B:
        return true;
    default:
        return false;
    }
}

bool isAnyOf(const std::string& text, std::initializer_list<const char*> words)
{
    return std::any_of(words.begin(), words.end(), [&](const char* word) { return text == word; });
}

bool startsWithAnyOf(const std::string& text, std::initializer_list<const char*> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](const char* word) { return text.compare(0, std::strlen(word), word) == 0; });
}

bool containsAnyOf(const std::string& text, std::initializer_list<const char*> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](const char* word) { return text.find(word) != std::string::npos; });
}

// A register variable spans at most the register file; a hostile type size must not become
// millions of pieces.
constexpr int32_t kMaxRegisterPieces = 256;

} // namespace

UbrofSymbolContext::UbrofSymbolContext(boost::shared_ptr<TarnUbrofParser> store, uint64_t contextNumber)
    : store(std::move(store)), contextId(static_cast<uint32_t>(contextNumber))
{
}

tarn::ISymbolContext::Ptr UbrofSymbolContext::createContext(boost::shared_ptr<TarnUbrofParser> store,
                                                            uint64_t contextNumber)
{
    return boost::make_shared<UbrofSymbolContext>(std::move(store), contextNumber);
}

tarn::ISymbolContext::Ptr UbrofSymbolContext::createContext(uint32_t contextNumber) const
{
    return createContext(store, contextNumber);
}

int32_t UbrofSymbolContext::tag() const
{
    int32_t code = -1;
    store->getSymbolClass(contextId, &code);
    return code;
}

int32_t UbrofSymbolContext::decodedIndex(uint32_t& kind) const
{
    kind = 0;
    return store->decodeContextId(contextId, &kind);
}

// ---- identity and naming

std::string UbrofSymbolContext::getId() const
{
    std::ostringstream text;
    text << static_cast<int32_t>(contextId);
    return text.str();
}

std::string UbrofSymbolContext::getName() const
{
    if (contextId == 0)
        return "Root Context";
    std::string text;
    store->getContextName(contextId, text);
    return text;
}

boost::shared_ptr<tarn::IContextBase> UbrofSymbolContext::getParent() const { return {}; }

tarn::ISymbolContext::Ptr UbrofSymbolContext::lookupChild(SymbolClass, const std::string&) const { return {}; }

// ---- classification

tarn::ISymbolContext::SymbolClass UbrofSymbolContext::getSymbolClass() const
{
    const int32_t code = tag();
    if (code == DwTagCompileUnit || code == DwTagVariable)
        return DataSymbol;
    if (code == DwTagSubprogram || code == DwTagLexicalBlock)
        return CodeSymbol;
    return isTypeTag(code) ? TypeSymbol : OtherSymbol;
}

tarn::ISymbolContext::StorageClass UbrofSymbolContext::getStorageClass() const
{
    return tag() == DwTagMember ? MemberStorage : NoStorage;
}

tarn::ISymbolContext::TypeClass UbrofSymbolContext::getTypeClass() const { return getTypeClassFromDie(contextId); }

tarn::ISymbolContext::TypeClass UbrofSymbolContext::getTypeClassFromDie(uint32_t contextNumber) const
{
    int32_t code = -1;
    store->getSymbolClass(contextNumber, &code);
    switch (code) {
    case DwTagArrayType:
        return ArrayType;
    case 0x02:
    case DwTagStructureType:
    case DwTagUnionType:
        return CompositeType;
    case DwTagPointerType:
        return PointerType;
    case DwTagLexicalBlock:
    case DwTagSubprogram:
        return FunctionType;
    case DwTagVariable:
        return GetTypeClassFromTypeName(store->getContextTypeName(contextNumber));
    default:
        break;
    }
    if (!isTypeTag(code))
        return NoType;
    const TypeClass byName = GetTypeClassFromTypeName(store->getContextTypeName(contextNumber));
    if (byName == NoType && store->isFunctionTypeContext(contextNumber))
        return FunctionType;
    return byName;
}

tarn::ISymbolContext::TypeClass UbrofSymbolContext::GetTypeClassFromTypeName(const std::string& typeName)
{
    // The texts are the type table's renderings; the first matching rule decides, so plain
    // names are settled before the qualified ones ("unsigned int const") are searched.
    if (isAnyOf(typeName, {"short", "int", "long", "long long", "char", "wchar"}))
        return SignedType;
    if (startsWithAnyOf(typeName, {"enum"}))
        return UnsignedType;
    if (isAnyOf(typeName, {"unsigned char", "unsigned short", "unsigned int", "unsigned long",
                           "unsigned long long", "bool"}))
        return UnsignedType;
    if (isAnyOf(typeName, {"float", "double", "long double"}))
        return FloatType;
    if (containsAnyOf(typeName, {"["}))
        return ArrayType;
    if (containsAnyOf(typeName, {"*"}))
        return PointerType;
    if (startsWithAnyOf(typeName, {"struct", "class", "union"}))
        return CompositeType;
    if (!containsAnyOf(typeName, {"register", "const", "volatile", "restrict", "writeonly"}))
        return NoType;
    if (containsAnyOf(typeName, {"unsigned int", "unsigned char", "unsigned short", "unsigned long",
                                 "unsigned long long", "bool"}))
        return UnsignedType;
    if (containsAnyOf(typeName, {"short", "int", "long", "long long", "char", "wchar"}))
        return SignedType;
    if (containsAnyOf(typeName, {"float", "double", "long double"}))
        return FloatType;
    return NoType;
}

// ---- the tree

std::vector<tarn::ISymbolContext::Ptr> UbrofSymbolContext::getChildren(SymbolClass symbolClass) const
{
    int32_t childTag = 0;
    switch (symbolClass) {
    case OtherSymbol:
        if (getTypeClass() == CompositeType)
            return getStructMembers();
        childTag = DwTagCompileUnit;
        break;
    case LabelSymbol:
        childTag = 0x27;
        break;
    case DataSymbol:
        childTag = DwTagVariable;
        break;
    case CodeSymbol:
        childTag = DwTagSubprogram;
        break;
    default:
        return {};
    }
    std::vector<uint32_t> numbers;
    store->getChildren(contextId, childTag, numbers);
    std::vector<Ptr> children;
    children.reserve(numbers.size());
    for (uint32_t number : numbers)
        children.push_back(createContext(number));
    return children;
}

std::vector<tarn::ISymbolContext::Ptr> UbrofSymbolContext::getStructMembers() const
{
    uint32_t kind = 0;
    const int32_t index = decodedIndex(kind);
    int32_t type = -1;
    if (kind == TypeContext)
        type = index;
    else if (kind == SymbolContext)
        type = store->getSymbolTypeIndex(index);
    if (type < 0)
        return {};

    std::string text;
    int32_t memberType = -1;
    uint32_t offset = 0;
    int32_t symbol = -1;
    uint32_t count = 0;
    store->getStructMember(type, text, 0, &memberType, &offset, &symbol, &count);
    // The count comes from the file; a structure cannot have more members than the table holds.
    count = static_cast<uint32_t>(std::min<size_t>(count, store->typeTable.members.size()));

    std::vector<Ptr> members;
    for (uint32_t position = 0; position < count; ++position) {
        text.clear();
        if (store->getStructMember(type, text, static_cast<int32_t>(position), &memberType, &offset, &symbol,
                                   &count) != StoreOk)
            break;
        members.push_back(createContext(store->encodeContextId(SymbolContext, symbol)));
    }
    return members;
}

// ---- related types

tarn::ISymbolContext::Ptr UbrofSymbolContext::getTypeContext() const
{
    uint32_t kind = 0;
    const int32_t index = decodedIndex(kind);
    switch (getSymbolClass()) {
    case CodeSymbol:
        // A code scope is its own type: the host reads its size and type class from it.
        return boost::const_pointer_cast<UbrofSymbolContext>(shared_from_this());
    case TypeSymbol: {
        if (tag() != DwTagTypedef)
            return boost::const_pointer_cast<UbrofSymbolContext>(shared_from_this());
        int32_t target = -1;
        uint32_t mode = 0;
        if (store->getTypeTarget(index, &target, &mode) != StoreOk || target < 0)
            return {};
        return createContext(store->encodeContextId(TypeContext, target));
    }
    default:
        break;
    }
    // Only symbols carry a type index; a module would pass its scope index where a symbol index
    // is expected and answer some unrelated symbol's type.
    if (kind != SymbolContext)
        return {};
    const int32_t type = store->getSymbolTypeIndex(index);
    if (type == -1)
        return {};
    return createContext(store->encodeContextId(TypeContext, type));
}

tarn::ISymbolContext::Ptr UbrofSymbolContext::getBaseTypeContext() const
{
    uint32_t kind = 0;
    const int32_t index = decodedIndex(kind);
    int32_t type = 0;
    switch (tag()) {
    case DwTagArrayType:
    case DwTagPointerType: {
        uint32_t target = 0;
        if (store->getReferencedTypeOf(index, &target))
            type = static_cast<int32_t>(target);
        break;
    }
    case DwTagSubprogram: {
        std::string name;
        store->getContextName(contextId, name);
        type = store->getTypeOfSymbolNamed(name);
        break;
    }
    case DwTagVariable:
        type = store->getSymbolTypeIndex(index);
        break;
    default:
        break;
    }
    if (type == 0 || type == -1)
        return {};
    return createContext(store->encodeContextId(TypeContext, type));
}

tarn::ISymbolContext::Ptr UbrofSymbolContext::getIndexTypeContext() const
{
    if (getTypeClassFromDie(contextId) != ArrayType)
        return {};
    // An array type context has no symbol index to pass; its element type is reached through
    // getBaseTypeContext, so it answers no index type rather than an unrelated symbol's type.
    if (tag() != DwTagVariable)
        return {};
    uint32_t kind = 0;
    const int32_t type = store->getSymbolTypeIndex(decodedIndex(kind));
    if (type == -1)
        return {};
    return createContext(store->encodeContextId(TypeContext, type));
}

// ---- sizes

int32_t UbrofSymbolContext::getSize() const { return store->getContextSize(contextId); }

int32_t UbrofSymbolContext::getLength() const { return store->getContextLength(contextId); }

int32_t UbrofSymbolContext::getOffset() const { return store->getSymbolOffset(contextId); }

bool UbrofSymbolContext::isBitField() const { return store->isBitFieldContext(contextId); }

int32_t UbrofSymbolContext::getBitSize() const
{
    uint32_t width = 0;
    uint32_t position = 0;
    uint32_t storageSize = 0;
    store->getBitFieldInfo(contextId, &width, &position, &storageSize);
    return static_cast<int32_t>(width);
}

int32_t UbrofSymbolContext::getBitOffset() const
{
    uint32_t width = 0;
    uint32_t position = 0;
    uint32_t storageSize = 0;
    store->getBitFieldInfo(contextId, &width, &position, &storageSize);
    // The file counts bit positions from the least significant end, the host from the other.
    return static_cast<int32_t>(int64_t(storageSize) * 8 - position - width);
}

std::vector<int32_t> UbrofSymbolContext::getArrayDimensions() const
{
    std::vector<int32_t> counts;
    store->getArrayDimensions(contextId, counts);
    return counts;
}

// ---- location and value

boost::shared_ptr<tarn::ILocation>
UbrofSymbolContext::getLocation(boost::shared_ptr<tarn::IStackTraceContext> frame) const
{
    if (!frame) {
        // Locations change along the code, so there is no answer without a program counter. The
        // host's code for a call that lacks what a symbol lookup needs is the closest it knows.
        throw tarn::CoreException(boost::make_shared<tarn::Status>(
            tarn::Severity::Critical, tarn::ErrorCode::EmptySymbolName,
            "Empty stack frame passed to UbrofSymbolContext::getLocation."));
    }
    SymbolLocation location;
    if (store->getSymbolLocation(contextId, static_cast<uint32_t>(frame->getProgramCounter()), &location) !=
        StoreOk)
        location = SymbolLocation();

    tarn::ILocation::AddressingMode mode = tarn::ILocation::Unknown;
    uint64_t address = 0;
    int32_t offset = 0;
    uint32_t memoryClass = location.memoryClass;
    switch (location.kind) {
    case 1:
        mode = tarn::ILocation::Memory;
        address = location.value;
        break;
    case 2:
        mode = tarn::ILocation::FrameOffset;
        offset = static_cast<int32_t>(location.value);
        memoryClass = DataMemory;
        break;
    case 3:
        mode = tarn::ILocation::Value;
        break;
    case 4:
        mode = tarn::ILocation::Computed;
        break;
    default:
        break;
    }

    const Ptr type = getTypeContext();
    const int32_t size = type ? type->getSize() : 4;

    static const std::string noSpace;
    const std::string& space = memoryClass <= 0xFF ? locationMemorySpace(static_cast<uint8_t>(memoryClass)) : noSpace;
    uint32_t registerNumber = 0;
    if (memoryClass == RegisterMemory) {
        registerNumber = location.value;
        mode = size == 1 ? tarn::ILocation::Register : tarn::ILocation::RegisterPieces;
    }

    tarn::MemoryPiece piece;
    piece.address = address;
    piece.offset = offset;
    piece.memorySpace = space;
    piece.registerNumber = registerNumber;
    std::vector<tarn::MemoryPiece> pieces;
    if (mode == tarn::ILocation::RegisterPieces) {
        const int32_t count = std::min(size, kMaxRegisterPieces);
        for (int32_t i = 0; i < count; ++i) {
            piece.registerNumber = registerNumber + static_cast<uint32_t>(i);
            piece.size = 1;
            pieces.push_back(piece);
        }
    } else {
        piece.size = static_cast<uint32_t>(size);
        pieces.push_back(piece);
    }
    return boost::make_shared<tarn::MemoryLocation>(frame, mode, std::move(pieces));
}

uint64_t UbrofSymbolContext::getAddress() const
{
    return tag() == DwTagSubprogram ? store->getContextAddress(contextId) : 0;
}

std::vector<uint8_t> UbrofSymbolContext::getValue() const
{
    if (getSymbolClass() != CodeSymbol)
        return {};
    const uint32_t address = store->getContextAddress(contextId);
    return {uint8_t(address), uint8_t(address >> 8), uint8_t(address >> 16), uint8_t(address >> 24)};
}

// ---- properties and bookkeeping

tarn::PropertyList UbrofSymbolContext::getProperties() const
{
    tarn::PropertyList properties;
    properties[SymbolKeys::ID] = getId();
    if (const auto parent = getParent())
        properties[SymbolKeys::ExeID] = parent->getId();
    properties[SymbolKeys::Name] = getName();
    properties[SymbolKeys::Class] = static_cast<int64_t>(getSymbolClass());
    properties[SymbolKeys::TypeClass] = static_cast<int64_t>(getTypeClass());
    if (const Ptr type = getTypeContext())
        properties[SymbolKeys::TypeID] = type->getId();
    if (const Ptr base = getBaseTypeContext())
        properties[SymbolKeys::BaseTypeID] = base->getId();
    if (const Ptr index = getIndexTypeContext())
        properties[SymbolKeys::IndexTypeID] = index->getId();
    properties[SymbolKeys::Size] = static_cast<int64_t>(getSize());
    properties[SymbolKeys::Length] = static_cast<int64_t>(getLength());
    properties[SymbolKeys::Offset] = static_cast<int64_t>(getOffset());
    properties[SymbolKeys::Address] = static_cast<uint64_t>(getAddress());
    boost::json::array value;
    for (uint8_t byte : getValue())
        value.emplace_back(static_cast<int64_t>(byte));
    properties[SymbolKeys::Value] = std::move(value);
    return properties;
}

void UbrofSymbolContext::setProperties(const tarn::PropertyList&) {}

boost::signals2::connection UbrofSymbolContext::addContextChangedHandler(const ContextChangedSlot&)
{
    return boost::signals2::connection();
}

int32_t UbrofSymbolContext::getOwner() const { return owner; }

void UbrofSymbolContext::setOwner(int32_t owner) { this->owner = owner; }

bool UbrofSymbolContext::isEquivalent(Ptr other) const
{
    const auto* context = dynamic_cast<const UbrofSymbolContext*>(other.get());
    return context && context->contextId == contextId;
}

} // namespace ubrof
