// UbrofWriter: one method per tag; each writes the tag code and then its fields, big-endian.
#include "writer/UbrofWriter.h"

#include "reader/TagCodes.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace ubrof {

UbrofWriter& UbrofWriter::raw(std::initializer_list<uint8_t> bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

UbrofWriter& UbrofWriter::raw(const std::vector<uint8_t>& bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

UbrofWriter& UbrofWriter::u8(uint32_t value)
{
    bytes_.push_back(static_cast<uint8_t>(value));
    return *this;
}

UbrofWriter& UbrofWriter::u16(uint32_t value)
{
    return u8(value >> 8).u8(value);
}

UbrofWriter& UbrofWriter::u32(uint32_t value)
{
    return u16(value >> 16).u16(value);
}

UbrofWriter& UbrofWriter::text8(const std::string& text)
{
    if (text.size() > 0xFF)
        throw std::invalid_argument("a one-byte counted text holds at most 255 bytes");
    u8(static_cast<uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
}

UbrofWriter& UbrofWriter::tag(uint8_t code)
{
    return u8(code);
}

std::vector<uint8_t> UbrofWriter::prefix(size_t n) const
{
    return std::vector<uint8_t>(bytes_.begin(), bytes_.begin() + std::min(n, bytes_.size()));
}

void UbrofWriter::save(const std::string& path) const
{
    save(path, bytes_);
}

void UbrofWriter::save(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        throw std::runtime_error("cannot write " + path);
    const size_t written = std::fwrite(bytes.data(), 1, bytes.size(), file);
    const bool closed = std::fclose(file) == 0;
    if (written != bytes.size() || !closed)
        throw std::runtime_error("cannot write " + path);
}

void UbrofWriter::date6(const Date& date)
{
    u8(date.second).u8(date.minute).u8(date.hour).u8(date.day).u8(date.month).u8(date.year - 1900);
}

// ---- File, module, group, segment and origin tags.

UbrofWriter& UbrofWriter::begFile()
{
    return tag(uint8_t(Tag::t_beg_file));
}

UbrofWriter& UbrofWriter::begFile1(const Date& date)
{
    tag(uint8_t(Tag::t_beg_file1));
    date6(date);
    return *this;
}

UbrofWriter& UbrofWriter::version(uint8_t format, uint8_t second, uint8_t third,
                                  const std::vector<std::pair<uint8_t, uint8_t>>& skipInfo)
{
    tag(uint8_t(Tag::t_version)).u8(format).u8(second).u8(third);
    if (format >= 9)
        return *this;
    u8(static_cast<uint32_t>(skipInfo.size()));
    for (const auto& [code, skip] : skipInfo)
        u8(code).u8(skip);
    return *this;
}

UbrofWriter& UbrofWriter::eof()
{
    return tag(uint8_t(Tag::t_ubrof_eof));
}

UbrofWriter& UbrofWriter::segInfo(const std::vector<SegmentInfo>& segments)
{
    tag(uint8_t(Tag::t_seg_info)).u32(0).u16(static_cast<uint32_t>(segments.size()));
    for (const SegmentInfo& segment : segments) {
        raw({0, 0, 0, 0, 0}).text8(segment.name).u16(segment.rangeCount);
        bytes_.insert(bytes_.end(), size_t(segment.rangeCount) * 8, 0);
    }
    return *this;
}

UbrofWriter& UbrofWriter::grp(uint16_t group)
{
    return tag(uint8_t(Tag::t_grp)).u32(0).u16(group);
}

UbrofWriter& UbrofWriter::grpRef(uint16_t group)
{
    return tag(uint8_t(Tag::t_grp_ref)).u16(group);
}

UbrofWriter& UbrofWriter::keyValue(const std::string& key, const std::string& value)
{
    tag(uint8_t(Tag::t_key_value)).u32(0).u32(static_cast<uint32_t>(key.size()));
    bytes_.insert(bytes_.end(), key.begin(), key.end());
    u32(static_cast<uint32_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    return *this;
}

UbrofWriter& UbrofWriter::moduleBegin(uint8_t code, const std::string& name, const Date& date,
                                      std::array<uint8_t, 3> attributes)
{
    tag(code).u8(attributes[0]).u8(attributes[1]).u8(attributes[2]);
    u8(date.day).u8(date.month).u8(date.year - 1900);
    return text8(name);
}

UbrofWriter& UbrofWriter::begLib(const std::string& name, const Date& date, std::array<uint8_t, 3> attributes)
{
    return moduleBegin(uint8_t(Tag::t_beg_lib), name, date, attributes);
}

UbrofWriter& UbrofWriter::begPgm(const std::string& name, const Date& date, std::array<uint8_t, 3> attributes)
{
    return moduleBegin(uint8_t(Tag::t_beg_pgm), name, date, attributes);
}

UbrofWriter& UbrofWriter::end()
{
    return tag(uint8_t(Tag::t_end)).u16(0);
}

UbrofWriter& UbrofWriter::endAbs()
{
    return tag(uint8_t(Tag::t_end_abs)).u32(0).u32(0);
}

UbrofWriter& UbrofWriter::debug(uint8_t debugByte)
{
    return tag(uint8_t(Tag::t_debug)).u8(debugByte);
}

UbrofWriter& UbrofWriter::aux(uint16_t auxWord)
{
    return tag(uint8_t(Tag::t_aux)).u16(auxWord);
}

UbrofWriter& UbrofWriter::aux1(const std::string& versionText, uint16_t versionCode)
{
    return tag(uint8_t(Tag::t_aux_1)).u16(versionCode).text8(versionText);
}

UbrofWriter& UbrofWriter::org(uint8_t segmentType, uint32_t address)
{
    return tag(uint8_t(Tag::t_org)).u8(segmentType).u32(address);
}

UbrofWriter& UbrofWriter::absVar(const std::vector<uint8_t>& data)
{
    if (data.size() > 0xFF)
        throw std::invalid_argument("t_abs_var carries at most 255 bytes");
    tag(uint8_t(Tag::t_abs_var)).u8(static_cast<uint32_t>(data.size()));
    return raw(data);
}

// ---- Source-file and line tags.

UbrofWriter& UbrofWriter::fileRef(uint16_t reference, const std::string& name, const Date& date)
{
    tag(uint8_t(Tag::t_file_ref)).u16(reference).u16(static_cast<uint32_t>(name.size()));
    bytes_.insert(bytes_.end(), name.begin(), name.end());
    date6(date);
    return *this;
}

UbrofWriter& UbrofWriter::newFile(uint16_t reference)
{
    return tag(uint8_t(Tag::t_new_file)).u16(reference);
}

UbrofWriter& UbrofWriter::file(const std::string& name, const std::vector<std::string>& lines)
{
    tag(uint8_t(Tag::t_file)).u16(static_cast<uint32_t>(lines.size())).text8(name);
    for (const std::string& line : lines) {
        u16(static_cast<uint32_t>(line.size()));
        bytes_.insert(bytes_.end(), line.begin(), line.end());
    }
    return *this;
}

UbrofWriter& UbrofWriter::srcStat(uint16_t firstLine, uint16_t lastLine, uint8_t kind,
                                  uint16_t firstColumn, uint16_t lastColumn)
{
    return tag(uint8_t(Tag::t_src_stat)).u16(firstLine).u16(firstColumn).u16(lastLine).u16(lastColumn).u8(kind);
}

UbrofWriter& UbrofWriter::sourceRange()
{
    tag(uint8_t(Tag::t_source_range));
    bytes_.insert(bytes_.end(), 14, 0);
    return *this;
}

UbrofWriter& UbrofWriter::sourceRange(uint16_t fileReference, uint32_t firstLine, uint16_t firstColumn,
                                      uint32_t lastLine, uint16_t lastColumn)
{
    tag(uint8_t(Tag::t_source_range)).u16(fileReference).u32(firstLine).u16(firstColumn);
    return u32(lastLine != 0 ? lastLine : firstLine).u16(lastColumn);
}

// ---- Symbol and scope tags.

UbrofWriter& UbrofWriter::scopedName(const std::string& text, uint32_t parent)
{
    tag(uint8_t(Tag::t_scoped_name)).u32(0).u8(1).u32(static_cast<uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return u32(parent);
}

UbrofWriter& UbrofWriter::scopedFunctionName(uint32_t reference, uint16_t number)
{
    return tag(uint8_t(Tag::t_scoped_name)).u32(0).u8(2).u32(reference).u16(number);
}

UbrofWriter& UbrofWriter::scopedBlockName(uint32_t reference, uint32_t number)
{
    return tag(uint8_t(Tag::t_scoped_name)).u32(0).u8(3).u32(reference).u32(number);
}

UbrofWriter& UbrofWriter::scopedNameOfForm(uint8_t form)
{
    return tag(uint8_t(Tag::t_scoped_name)).u32(0).u8(form);
}

void UbrofWriter::locations(const std::vector<Location>& entries)
{
    for (const Location& entry : entries)
        u8(0).u8(0).u32(entry.startAddress).u8(entry.kind).u16(entry.addressSpace).u32(entry.value);
}

void UbrofWriter::symbolEntry(const Symbol& symbol)
{
    u8(symbol.kind).u16(symbol.addressSpace).u32(symbol.value).text8(symbol.name).u16(symbol.typeIndex);
}

UbrofWriter& UbrofWriter::symbolDef(const Symbol& symbol)
{
    tag(uint8_t(Tag::t_symbol_def));
    symbolEntry(symbol);
    return u8(0);
}

UbrofWriter& UbrofWriter::symbolDef1(const Symbol& symbol)
{
    tag(uint8_t(Tag::t_symbol_def1));
    symbolEntry(symbol);
    u16(static_cast<uint32_t>(symbol.locations.size()));
    locations(symbol.locations);
    return u8(0);
}

UbrofWriter& UbrofWriter::symbolDef2(uint32_t nameIndex, uint8_t kind, uint16_t addressSpace,
                                     uint32_t value, uint16_t typeIndex,
                                     const std::vector<Location>& entries)
{
    tag(uint8_t(Tag::t_symbol_def2)).u32(0).u8(kind).u16(addressSpace).u32(value).u32(nameIndex).u16(typeIndex);
    u16(static_cast<uint32_t>(entries.size()));
    locations(entries);
    return u8(0);
}

UbrofWriter& UbrofWriter::subDefObjAttr(uint32_t attributeWord)
{
    return tag(uint8_t(Tag::t_sub_def_obj_attr)).u16(0).u32(attributeWord).u8(0);
}

UbrofWriter& UbrofWriter::macro(const std::string& name, const std::string& body)
{
    tag(uint8_t(Tag::t_macro)).text8(name).u16(static_cast<uint32_t>(body.size()));
    bytes_.insert(bytes_.end(), body.begin(), body.end());
    return *this;
}

UbrofWriter& UbrofWriter::funcBegin()
{
    return tag(uint8_t(Tag::t_func_begin));
}

UbrofWriter& UbrofWriter::funcBegin1(const std::string& name, const std::vector<Symbol>& locals)
{
    tag(uint8_t(Tag::t_func_begin1)).text8(name).u32(0).u32(0).u16(static_cast<uint32_t>(locals.size()));
    for (const Symbol& local : locals) {
        symbolEntry(local);
        u16(static_cast<uint32_t>(local.locations.size()));
        locations(local.locations);
    }
    return *this;
}

UbrofWriter& UbrofWriter::blockBegin()
{
    return tag(uint8_t(Tag::t_block_begin));
}

UbrofWriter& UbrofWriter::blockBegin1(const std::vector<Symbol>& locals)
{
    tag(uint8_t(Tag::t_block_begin1)).u16(static_cast<uint32_t>(locals.size()));
    for (const Symbol& local : locals) {
        symbolEntry(local);
        u16(static_cast<uint32_t>(local.locations.size()));
        locations(local.locations);
    }
    return *this;
}

UbrofWriter& UbrofWriter::blockBegin3(uint32_t nameIndex)
{
    return tag(uint8_t(Tag::t_block_begin3)).u32(nameIndex);
}

UbrofWriter& UbrofWriter::blockEnd()
{
    return tag(uint8_t(Tag::t_block_end));
}

// ---- Type tags.

UbrofWriter& UbrofWriter::defPtrTypes()
{
    tag(uint8_t(Tag::t_def_ptr_types));
    bytes_.insert(bytes_.end(), 5, 0);
    return *this;
}

UbrofWriter& UbrofWriter::sizeType(uint8_t typeIndex, uint8_t size)
{
    return tag(uint8_t(Tag::t_size_type)).u8(typeIndex).u8(size);
}

UbrofWriter& UbrofWriter::memInfo(uint8_t memory, const std::string& name, uint8_t addressSize,
                                  uint32_t attributes, uint8_t attribute2)
{
    return tag(uint8_t(Tag::t_mem_info)).u16(0).u8(memory).u8(addressSize).u8(attribute2).u32(attributes).text8(name);
}

void UbrofWriter::typeHeader(uint16_t index, uint8_t kind)
{
    tag(uint8_t(Tag::t_type)).u16(index).u8(kind);
}

UbrofWriter& UbrofWriter::typePointer(uint16_t index, uint8_t kind, uint16_t target)
{
    typeHeader(index, kind);
    return u16(target);
}

UbrofWriter& UbrofWriter::typeArray(uint16_t index, uint16_t element, uint32_t size, uint32_t count, uint8_t kind)
{
    typeHeader(index, kind);
    u16(element).u32(size);
    return kind == 41 ? u32(count) : u16(count);
}

UbrofWriter& UbrofWriter::typeStruct(uint16_t index, const std::string& name, uint32_t size,
                                     const std::vector<StructMember>& members)
{
    typeHeader(index, 17);
    text8(name).u32(size).u16(static_cast<uint32_t>(members.size()));
    for (const StructMember& member : members)
        u32(member.offset).text8(member.name).u16(member.typeIndex);
    return *this;
}

UbrofWriter& UbrofWriter::typeUnion(uint16_t index, const std::string& name, uint32_t size,
                                    const std::vector<StructMember>& members)
{
    typeHeader(index, 18);
    text8(name).u32(size).u16(static_cast<uint32_t>(members.size()));
    for (const StructMember& member : members)
        text8(member.name).u16(member.typeIndex);
    return *this;
}

UbrofWriter& UbrofWriter::typeClass(uint16_t index, uint32_t nameIndex, uint32_t classKey, uint32_t size,
                                    const std::vector<ClassMember>& members)
{
    typeHeader(index, 52);
    u32(nameIndex).u32(classKey).u32(size).u32(static_cast<uint32_t>(members.size()));
    for (const ClassMember& member : members)
        u32(member.offset).u32(member.nameIndex).u16(member.typeIndex).u32(member.attribute);
    return *this;
}

UbrofWriter& UbrofWriter::typeBitField(uint16_t index, uint8_t width, uint8_t position, uint16_t storage)
{
    typeHeader(index, 19);
    return u8(width).u8(position).u16(storage);
}

UbrofWriter& UbrofWriter::typeFunction(uint16_t index, uint16_t result, uint8_t flags,
                                       const std::vector<uint16_t>& parameters)
{
    typeHeader(index, 20);
    u16(result).u8(flags).u8(static_cast<uint32_t>(parameters.size()));
    for (uint16_t parameter : parameters)
        u16(parameter);
    return *this;
}

UbrofWriter& UbrofWriter::typeFunction35(uint16_t index, uint16_t result, uint8_t flags, uint32_t extra,
                                         const std::vector<uint16_t>& parameters)
{
    typeHeader(index, 35);
    u16(result).u8(flags).u32(extra).u8(static_cast<uint32_t>(parameters.size()));
    for (uint16_t parameter : parameters)
        u16(parameter);
    return *this;
}

UbrofWriter& UbrofWriter::typeQualified(uint16_t index, uint8_t flags, uint16_t type)
{
    typeHeader(index, 21);
    return u8(flags).u16(type);
}

UbrofWriter& UbrofWriter::typeAttributed(uint16_t index, uint32_t attributeWord, uint16_t type)
{
    typeHeader(index, 36);
    return u32(attributeWord).u16(type);
}

UbrofWriter& UbrofWriter::typeInMemory(uint16_t index, uint8_t kind, uint8_t memory, uint16_t type,
                                       uint32_t qualifiers, const std::vector<uint8_t>& extra)
{
    typeHeader(index, kind);
    u8(memory).u16(type).u32(qualifiers).u8(static_cast<uint32_t>(extra.size()));
    return raw(extra);
}

UbrofWriter& UbrofWriter::typeEnum(uint16_t index, uint16_t underlying, const std::string& name,
                                   const std::vector<EnumValue>& constants)
{
    typeHeader(index, 44);
    u16(underlying).text8(name).u32(static_cast<uint32_t>(constants.size()));
    for (const EnumValue& constant : constants)
        text8(constant.name).u32(constant.value);
    return *this;
}

UbrofWriter& UbrofWriter::typeEnum51(uint16_t index, uint16_t underlying, uint32_t nameIndex,
                                     const std::vector<IndexedEnumValue>& constants)
{
    typeHeader(index, 51);
    u16(underlying).u32(nameIndex).u32(static_cast<uint32_t>(constants.size()));
    for (const IndexedEnumValue& constant : constants)
        u32(constant.nameIndex).u32(constant.value);
    return *this;
}

UbrofWriter& UbrofWriter::typeTypedef(uint16_t index, uint16_t aliased, uint32_t nameIndex)
{
    typeHeader(index, 49);
    return u16(aliased).u32(nameIndex);
}

UbrofWriter& UbrofWriter::typeMemberPointer(uint16_t index, uint16_t target, uint16_t classType)
{
    typeHeader(index, 50);
    return u16(target).u16(classType).u16(0);
}

UbrofWriter& UbrofWriter::typeBare(uint16_t index, uint8_t kind)
{
    typeHeader(index, kind);
    return *this;
}

} // namespace ubrof
