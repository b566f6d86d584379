// A node of the symbol tree the host browses: a handle made of the store and a context number,
// answering every question from the store on demand.
#pragma once

#include "host/ISymbolContext.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>

namespace ubrof {

class TarnUbrofParser;

class UbrofSymbolContext : public tarn::ISymbolContext, public boost::enable_shared_from_this<UbrofSymbolContext> {
public:
    /// Keeps the low 32 bits of the number. Build contexts with createContext: function, block
    /// and type contexts hand out shared_from_this.
    UbrofSymbolContext(boost::shared_ptr<TarnUbrofParser> store, uint64_t contextNumber);
    UbrofSymbolContext(const UbrofSymbolContext&) = default;
    UbrofSymbolContext(UbrofSymbolContext&&) = default;
    UbrofSymbolContext& operator=(const UbrofSymbolContext&) = default;
    UbrofSymbolContext& operator=(UbrofSymbolContext&&) = default;
    ~UbrofSymbolContext() override = default;

    /// A new context owned by a shared pointer.
    static Ptr createContext(boost::shared_ptr<TarnUbrofParser> store, uint64_t contextNumber);

    // IContextBase.
    /// The context number in decimal; the root is "0".
    std::string getId() const override;
    /// Always empty: the tree is browsed downwards only.
    boost::shared_ptr<tarn::IContextBase> getParent() const override;
    /// ID, Name, Class, TypeClass, the related type IDs present, Size, Length, Offset, Address, Value.
    tarn::PropertyList getProperties() const override;
    /// Ignored: the file's symbols are read-only.
    void setProperties(const tarn::PropertyList& properties) override;
    /// Answers an unconnected connection; a context never changes, so the slot is never kept.
    boost::signals2::connection addContextChangedHandler(const ContextChangedSlot& slot) override;
    int32_t getOwner() const override;
    void setOwner(int32_t owner) override;

    // ISymbolContext.
    /// "Root Context" for the root.
    std::string getName() const override;
    SymbolClass getSymbolClass() const override;
    StorageClass getStorageClass() const override;
    TypeClass getTypeClass() const override;
    /// A variable's type, a typedef's aliased type, or the context itself for functions, blocks and types.
    Ptr getTypeContext() const override;
    /// The element or target type of an array or pointer, a function's type, a variable's type.
    Ptr getBaseTypeContext() const override;
    /// The array type of a variable of array type; empty for everything else.
    Ptr getIndexTypeContext() const override;
    int32_t getSize() const override;
    /// Element count.
    int32_t getLength() const override;
    /// Offset of a structure member.
    int32_t getOffset() const override;
    /// The low address of a function; 0 for everything else.
    uint64_t getAddress() const override;
    /// A function's or block's low address, four bytes, least significant first.
    std::vector<uint8_t> getValue() const override;
    bool isBitField() const override;
    int32_t getBitSize() const override;
    /// Counted from the other end of the storage unit than the file's bit position.
    int32_t getBitOffset() const override;
    std::vector<int32_t> getArrayDimensions() const override;
    /// Where the symbol lives at the frame's program counter. Throws tarn::CoreException for an
    /// empty frame.
    boost::shared_ptr<tarn::ILocation> getLocation(boost::shared_ptr<tarn::IStackTraceContext> frame) const override;
    /// Modules, module symbols or structure members (class 0), variables (2), functions (3).
    std::vector<Ptr> getChildren(SymbolClass symbolClass) const override;
    /// Always empty.
    Ptr lookupChild(SymbolClass symbolClass, const std::string& name) const override;
    /// True for another handle on the same context number; the stores are not compared.
    bool isEquivalent(Ptr other) const override;

private:
    friend struct UbrofSymbolContextProbe; // the type-class rules are tested on texts directly

    Ptr createContext(uint32_t contextNumber) const;
    /// The store's tag of this context: a DWARF tag code, -1 for the root or an unknown number.
    int32_t tag() const;
    /// The decoded scope, symbol or type index; kind gets the kind code, 0 when there is none.
    int32_t decodedIndex(uint32_t& kind) const;
    std::vector<Ptr> getStructMembers() const;
    TypeClass getTypeClassFromDie(uint32_t contextNumber) const;
    static TypeClass GetTypeClassFromTypeName(const std::string& typeName);

    int32_t owner = 0; ///< 0 until the host sets one
    boost::shared_ptr<TarnUbrofParser> store;
    uint32_t contextId = 0;
};

} // namespace ubrof
