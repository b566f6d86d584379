// The types of a store resolved to what they are at bottom: kind, size, target and the record
// typedefs and qualifiers lead to, with cycles cut. Internal to model/.
#pragma once

#include "model/Program.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof {
class TypeTable;
}

namespace ubrof::model::detail {

struct BuildContext;

/// Model type indices are the store's type indices, followed by a few types the store has no
/// record for: one Unknown type that stands for every index the file leaves dangling, and the
/// inner half of each record that is both const and volatile.
class TypeShapes {
public:
    explicit TypeShapes(const BuildContext& context);

    /// The type an index of the store refers to, past memory and attribute qualifiers that C
    /// does not see; a dangling index gives the Unknown type.
    uint32_t strip(uint32_t storeIndex) const;
    uint32_t sizeOf(uint32_t modelIndex) const;
    Type::Kind kindOf(uint32_t modelIndex) const;
    /// True when the store's type is a function type marked as an interrupt handler.
    bool isInterrupt(uint32_t storeIndex) const;
    /// True when the store's type places its object in I/O memory: a register of the device,
    /// not storage of the program.
    bool isIoRegister(uint32_t storeIndex) const;
    uint32_t count() const { return static_cast<uint32_t>(shapes_.size()); }

    /// Every model type with its names, members and C syntax.
    std::vector<Type> records() const;

private:
    struct Shape {
        Type::Kind kind = Type::Kind::Unknown;
        bool alias = false;      ///< a qualifier C does not see: the type is aliasOf
        uint32_t size = 0;
        uint32_t target = kNone; ///< as in Type; for an alias the type it stands for
        uint32_t resolved = kNone;
        uint32_t inner = kNone;  ///< const volatile records: the synthetic volatile half
    };

    uint32_t valid(uint32_t storeIndex) const;
    /// Calls emit(index, onCycle) for every store type, each after the types it refers to.
    template <typename Emit>
    void walk(bool valueEdges, Emit emit) const;
    void edges(uint32_t index, bool valueEdges, std::vector<uint32_t>& out) const;
    void shapeOf(uint32_t index, bool cyclic);
    void linkTargets(uint32_t index);
    uint32_t pointerSize(uint32_t index, MemorySpace& space) const;
    std::string declaration(const std::vector<Type>& types, uint32_t index, std::string inner,
                            unsigned depth) const;
    void describe(uint32_t index, Type& type) const;

    const BuildContext& context_;
    const TypeTable& table_;
    uint32_t storeCount_;
    uint32_t unknown_; ///< the Unknown type
    std::vector<Shape> shapes_;
};

} // namespace ubrof::model::detail
