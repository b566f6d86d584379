// A node of the symbol tree: root, module, function, block, variable, member or type.
#pragma once

#include "host/IContextBase.h"
#include "host/ILocation.h"
#include "host/IStackTraceContext.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn {

class ISymbolContext : public IContextBase {
public:
    enum SymbolClass {
        OtherSymbol = 0,
        LabelSymbol = 1,
        DataSymbol = 2, ///< a module or a variable
        CodeSymbol = 3, ///< a function or a block
        TypeSymbol = 4,
    };

    enum StorageClass {
        NoStorage = 0,
        AutoStorage = 1,
        StaticStorage = 2,
        MemberStorage = 3,
    };

    enum TypeClass {
        NoType = 0,
        UnsignedType = 1, ///< also enumerations and bool
        SignedType = 2,
        FloatType = 3,
        PointerType = 4,
        ArrayType = 5,
        CompositeType = 6, ///< structure, union or class
        MemberPointerType = 7,
        FunctionType = 8, ///< also a code scope
    };

    using Ptr = boost::shared_ptr<ISymbolContext>;

    virtual std::string getName() const = 0;
    virtual SymbolClass getSymbolClass() const = 0;
    virtual StorageClass getStorageClass() const = 0;
    virtual TypeClass getTypeClass() const = 0;
    virtual Ptr getTypeContext() const = 0;
    virtual Ptr getBaseTypeContext() const = 0;
    virtual Ptr getIndexTypeContext() const = 0;
    virtual int32_t getSize() const = 0;
    virtual int32_t getLength() const = 0;
    virtual int32_t getOffset() const = 0;
    virtual uint64_t getAddress() const = 0;
    virtual std::vector<uint8_t> getValue() const = 0;
    virtual bool isBitField() const = 0;
    virtual int32_t getBitSize() const = 0;
    virtual int32_t getBitOffset() const = 0;
    virtual std::vector<int32_t> getArrayDimensions() const = 0;
    virtual boost::shared_ptr<ILocation> getLocation(boost::shared_ptr<IStackTraceContext> frame) const = 0;
    virtual std::vector<Ptr> getChildren(SymbolClass symbolClass) const = 0;
    virtual Ptr lookupChild(SymbolClass symbolClass, const std::string& name) const = 0;
    virtual bool isEquivalent(Ptr other) const = 0;
};

} // namespace tarn
