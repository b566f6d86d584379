// TypeTable: the built-in base types and the type records read from the file.
#include "reader/TypeTable.h"

namespace ubrof {

TypeTable::TypeTable(const NameTable& names) : types(100), names_(names) {}

void TypeTable::storeType(uint32_t index, const TypeRecord& record)
{
    if (types.size() <= index)
        types.resize(size_t(index) + 1);
    types[index] = record;
}

void TypeTable::setTypeSize(uint32_t index, uint32_t size)
{
    if (index < types.size())
        types[index].op2 = size;
}

const TypeRecord& TypeTable::getRecord(uint32_t index) const
{
    static const TypeRecord undefined;
    return index < types.size() ? types[index] : undefined;
}

// Type naming and structure arrive with the type tags.
std::string TypeTable::renderTypeName(uint32_t) const { return std::string(); }
void TypeTable::getTypeInfo(uint32_t, TypeInfo&) const {}
bool TypeTable::getDwarfTag(uint32_t, int32_t&) const { return false; }
bool TypeTable::getReferencedType(uint32_t, uint32_t&) const { return false; }
void TypeTable::collectArrayDimensions(uint32_t, std::vector<int32_t>&) const {}
void TypeTable::getBitFieldLayout(uint32_t, uint32_t& width, uint32_t& position, uint32_t& storageSize) const
{
    width = position = storageSize = 0;
}
bool TypeTable::isBitFieldType(uint32_t) const { return false; }
bool TypeTable::isFunctionType(uint32_t) const { return false; }
bool TypeTable::isIoType(uint32_t) const { return false; }
std::vector<BaseTypeRecord> TypeTable::getBaseTypeRecords() const { return {}; }
uint32_t TypeTable::pointerKindFromAttribute(uint32_t) { return 23; }

const std::string& TypeTable::baseName(const TypeRecord& record) const
{
    static const std::string none;
    return record.kind == 1 && record.op1 < baseNames_.size() ? baseNames_[record.op1] : none;
}

} // namespace ubrof
