// Type tags: type records, base-type sizes and memory descriptions.
#include "reader/CParser.h"

#include "reader/MemoryClass.h"

namespace ubrof {

int CParser::handleDefPtrTypes()
{
    // The default pointer types are implied by the memory descriptions; nothing here is used.
    skipBytes(5);
    return 0;
}

int CParser::handleType()
{
    const uint32_t index = readTypeIndex();
    TypeRecord record;
    record.kind = readByte();

    // Every entry is appended only after its bytes were read, so a count that lies
    // costs no more memory than the file itself holds.
    auto readName = [this] {
        const uint32_t length = readByte();
        NameRecord name;
        name.text = readString(length);
        name.number = kNoIndex;
        name.parent = -1;
        return nameTable_.append(std::move(name));
    };
    auto readParameters = [this, &record](uint32_t count) {
        record.op4 = count;
        record.op5 = static_cast<uint32_t>(typeTable_.parameterTypes.size());
        for (uint32_t i = 0; i < count; ++i)
            typeTable_.parameterTypes.push_back(readTypeIndex());
    };

    const uint32_t kind = record.kind;
    if (kind == 15 || (kind >= 23 && kind <= 34) || (kind >= 37 && kind <= 40) || kind == 53) {
        record.op1 = readTypeIndex();
    } else if (kind == 16 || kind == 41) {
        record.op1 = readTypeIndex();
        record.op2 = readWord32();
        record.op3 = kind == 16 ? readWord16() : readWord32();
    } else if (kind == 17 || kind == 18) {
        record.op1 = readName();
        record.op2 = kind == 17 ? 1 : 2;
        record.op3 = readWord32();
        record.op4 = readWord16();
        record.op5 = static_cast<uint32_t>(typeTable_.members.size());
        for (uint32_t i = 0; i < record.op4; ++i) {
            MemberRecord member;
            if (kind == 17)
                member.offset = readWord32();
            member.nameIndex = readName();
            member.typeIndex = readTypeIndex();
            typeTable_.members.push_back(member);
        }
    } else if (kind == 52) {
        record.op1 = readWord32();
        record.op2 = readWord32();
        record.op3 = readWord32();
        record.op4 = readWord32();
        record.op5 = static_cast<uint32_t>(typeTable_.members.size());
        // Compared as signed: a count with the top bit set declares no members.
        for (int32_t i = 0; i < static_cast<int32_t>(record.op4); ++i) {
            MemberRecord member;
            member.offset = readWord32();
            member.nameIndex = readWord32();
            member.typeIndex = readTypeIndex();
            member.attribute = readWord32();
            typeTable_.members.push_back(member);
        }
    } else if (kind == 19) {
        record.op1 = readByte();
        record.op2 = readByte();
        record.op3 = readTypeIndex();
    } else if (kind == 20) {
        record.op1 = readTypeIndex();
        record.op2 = readByte();
        readParameters(readByte());
    } else if (kind == 35) {
        record.op1 = readTypeIndex();
        record.op2 = readByte();
        record.op3 = readWord32();
        readParameters(readByte());
    } else if (kind == 21) {
        record.op1 = readByte();
        record.op2 = readTypeIndex();
    } else if (kind == 36) {
        record.op1 = readWord32();
        record.op2 = readTypeIndex();
    } else if (kind == 42 || kind == 43) {
        record.op1 = readByte();
        record.op2 = readTypeIndex();
        record.op3 = readWord32();
        skipBytes(static_cast<int32_t>(readByte()));
    } else if (kind == 44 || kind == 51) {
        record.op1 = readTypeIndex();
        record.op2 = kind == 44 ? readName() : readWord32();
        record.op3 = readWord32();
        record.op4 = static_cast<uint32_t>(typeTable_.enumConstants.size());
        for (int32_t i = 0; i < static_cast<int32_t>(record.op3); ++i) {
            EnumConstant constant;
            constant.nameIndex = kind == 44 ? readName() : readWord32();
            constant.value = readWord32();
            typeTable_.enumConstants.push_back(constant);
        }
    } else if (kind == 49) {
        record.op1 = readTypeIndex();
        record.op2 = readWord32();
    } else if (kind == 50) {
        record.op1 = readTypeIndex();
        record.op2 = readTypeIndex();
        skipBytes(2);
    }
    // Other kinds carry no operands; a cut-short record never gets here, so it is never stored.
    typeTable_.storeType(index, record);
    return 0;
}

int CParser::handleSizeType()
{
    const uint32_t index = readByte();
    const uint32_t size = readByte();
    typeTable_.setTypeSize(index, size);
    return 0;
}

int CParser::handleMemInfo()
{
    skipBytes(2);
    const uint32_t number = readByte();
    std::vector<MemoryInfo>& memories = typeTable_.memories;
    while (memories.size() <= number)
        memories.emplace_back();
    MemoryInfo memory;
    memory.addressSize = static_cast<uint8_t>(readByte());
    memory.attribute2 = readByte();
    memory.attributes = readWord32();
    memory.name = readString(readByte());
    memory.memoryClass = memoryClassOfName(memory.name);
    memories[number] = std::move(memory);
    return 0;
}

} // namespace ubrof
