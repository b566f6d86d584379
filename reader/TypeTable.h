// The type records of a UBROF file, with the built-in base types, and the questions the store asks of them.
#pragma once

#include "reader/Records.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof {

enum TypeCategory : uint32_t {
    UndefinedCategory = 0,
    SignedIntegerCategory = 1,
    UnsignedIntegerCategory = 2,
    FloatCategory = 3,
    CompositeCategory = 4, ///< structure, union or class
    PointerCategory = 5,
    ArrayCategory = 6,
    FunctionCategory = 7,
    VoidCategory = 8,
    BitFieldCategory = 12,
};

/// One type: kind 0 undefined, 1 base type, else the t_type kind byte; operands by kind.
struct TypeRecord {
    uint32_t kind = 0;
    uint32_t op1 = 0;
    uint32_t op2 = 0;
    uint32_t op3 = 0;
    uint32_t op4 = 0;
    uint32_t op5 = 0;
};

struct EnumConstant {
    uint32_t nameIndex = 0;
    uint32_t value = 0;
};

struct MemberRecord {
    uint32_t offset = 0;
    uint32_t nameIndex = 0;
    uint32_t typeIndex = 0;
    uint32_t attribute = 0;
    uint32_t symbolIndex = kNoIndex; ///< set by the store once members become symbols
};

struct MemoryInfo {
    uint8_t addressSize = 0;
    uint32_t attribute2 = 0;
    uint32_t attributes = 0; ///< bit 3 marks I/O memory
    std::string name;
    uint8_t memoryClass = 0;
};

/// Structural facts of a type; getTypeInfo leaves untouched what it does not answer.
struct TypeInfo {
    uint32_t category = 0;
    uint32_t size = 0;
    uint32_t count = 0;
    uint32_t memoryClass = 0;
    uint32_t extra = 0;
};

/// Follows a chain of type indices and tells when it returns to one it has passed, by Brent's
/// method: a few words however long the chain, and a cycle is seen within twice the steps that
/// lead once round it.
/// Type records refer to each other by number, so a file can make any walk go round for ever.
class TypeChain {
public:
    explicit TypeChain(uint32_t start) : saved_(start) {}
    /// Steps to next; false when next closes a cycle.
    bool step(uint32_t next)
    {
        if (next == saved_)
            return false;
        if (++length_ == power_) {
            saved_ = next;
            power_ *= 2;
            length_ = 0;
        }
        return true;
    }

private:
    uint32_t saved_;
    uint64_t power_ = 1;
    uint64_t length_ = 0;
};

/// A copy of a base-type record (kind 1) with its name.
struct BaseTypeRecord {
    uint32_t index = 0;
    std::string name;
    uint32_t size = 0;
    uint32_t category = 0;
};

class TypeTable {
public:
    explicit TypeTable(const NameTable& names);
    TypeTable(const TypeTable&) = delete;
    TypeTable& operator=(const TypeTable&) = delete;

    std::vector<TypeRecord> types;
    std::vector<EnumConstant> enumConstants;
    std::vector<MemberRecord> members;
    std::vector<uint32_t> parameterTypes;
    std::vector<MemoryInfo> memories;

    /// Stores record at index, growing the table with undefined records first.
    void storeType(uint32_t index, const TypeRecord& record);
    void setTypeSize(uint32_t index, uint32_t size);
    /// The record at index; an undefined record for an index out of range.
    const TypeRecord& getRecord(uint32_t index) const;
    uint32_t getCount() const { return static_cast<uint32_t>(types.size()); }

    /// C-like text of the type, at most kMaxNameLength characters.
    std::string renderTypeName(uint32_t index) const;
    void getTypeInfo(uint32_t index, TypeInfo& info) const;
    /// False when the type has no DWARF tag.
    bool getDwarfTag(uint32_t index, int32_t& tag) const;
    /// False when the type refers to nothing.
    bool getReferencedType(uint32_t index, uint32_t& target) const;
    void collectArrayDimensions(uint32_t index, std::vector<int32_t>& counts) const;
    void getBitFieldLayout(uint32_t index, uint32_t& width, uint32_t& position, uint32_t& storageSize) const;
    bool isBitFieldType(uint32_t index) const;
    bool isFunctionType(uint32_t index) const;
    bool isIoType(uint32_t index) const;
    std::vector<BaseTypeRecord> getBaseTypeRecords() const;
    static uint32_t pointerKindFromAttribute(uint32_t word);

    /// Name of a base-type record; empty for records without one.
    const std::string& baseName(const TypeRecord& record) const;

    /// How deep the recursive walks (texts and facts) follow references; type graphs of real
    /// files are a few records deep. Every walk also sees a cycle where it closes, and answers
    /// there as for an index that names no type (an undefined record).
    static constexpr unsigned kMaxTypeDepth = 64;

private:
    /// The indices a recursive walk has passed on its way down to the record it is at.
    struct WalkPath {
        uint32_t indices[kMaxTypeDepth + 2];
        unsigned depth = 0;
        bool holds(uint32_t index) const;
    };
    /// The record a walk reads at index: undefined where index closes a cycle of path.
    const TypeRecord& recordOnPath(uint32_t index, const WalkPath& path) const;
    void renderInto(uint32_t index, std::string& text, WalkPath& path) const;
    void typeInfoAt(uint32_t index, TypeInfo& info, WalkPath& path) const;
    /// The record after qualifier kinds 21, 36, 42 and 43, or nullptr when the chain is too deep.
    const TypeRecord* skipQualifiers(uint32_t index) const;
    const MemoryInfo* memoryAt(uint32_t number) const;

    const NameTable& names_;
    std::vector<std::string> baseNames_; ///< op1 of a built-in base record indexes this; [0] is unnamed
};

} // namespace ubrof
