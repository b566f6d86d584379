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

void appendVarNumber(std::vector<uint8_t>& out, uint32_t value)
{
    while (value >= 0x80) {
        out.push_back(static_cast<uint8_t>((value & 0x7F) | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<uint8_t>(value));
}

void appendSignedVarNumber(std::vector<uint8_t>& out, int32_t value)
{
    // The sign travels in bit 0x40 of the last byte, so a byte ends the number only when the
    // rest of the value is all sign and that bit agrees with it.
    int64_t rest = value;
    for (;;) {
        const uint8_t low = static_cast<uint8_t>(rest & 0x7F);
        rest >>= 7;
        if ((rest == 0 && (low & 0x40) == 0) || (rest == -1 && (low & 0x40) != 0)) {
            out.push_back(low);
            return;
        }
        out.push_back(static_cast<uint8_t>(low | 0x80));
    }
}

UbrofWriter& UbrofWriter::vnum(uint32_t value)
{
    appendVarNumber(bytes_, value);
    return *this;
}

UbrofWriter& UbrofWriter::svnum(int32_t value)
{
    appendSignedVarNumber(bytes_, value);
    return *this;
}

size_t UbrofWriter::lengthField(size_t width)
{
    const size_t at = bytes_.size();
    bytes_.insert(bytes_.end(), width, 0);
    return at;
}

UbrofWriter& UbrofWriter::fillLength(size_t at, size_t width)
{
    // Versions up to 8 are written with zeros there, as the reader has always ignored them.
    if (format_ < 10)
        return *this;
    const uint64_t length = bytes_.size() - at - width;
    for (size_t i = 0; i < width; ++i)
        bytes_[at + i] = static_cast<uint8_t>(length >> (8 * (width - 1 - i)));
    return *this;
}

UbrofWriter& UbrofWriter::typeIndex(uint32_t index)
{
    return format_ >= 10 ? vnum(index) : u16(index);
}

UbrofWriter& UbrofWriter::counted(uint8_t code, const std::vector<uint8_t>& body)
{
    tag(code).vnum(static_cast<uint32_t>(body.size()));
    return raw(body);
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
    // An empty vector's data() may be null, which fwrite must not be given even for no bytes.
    const size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), file);
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
    format_ = format;
    // Version 9 and those after 11 are refused right after these bytes; nothing more is written.
    if (format == 9 || format > 11)
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
    tag(uint8_t(Tag::t_seg_info));
    const size_t length = lengthField(4);
    u16(static_cast<uint32_t>(segments.size()));
    for (const SegmentInfo& segment : segments) {
        raw({segment.memoryType, 0, 0, 0, 0}).text8(segment.name);
        const uint32_t count = segment.ranges.empty() ? segment.rangeCount : uint32_t(segment.ranges.size());
        if (format_ >= 10)
            vnum(count);
        else
            u16(count);
        if (segment.ranges.empty())
            bytes_.insert(bytes_.end(), size_t(segment.rangeCount) * 8, 0);
        for (const auto& [address, size] : segment.ranges)
            u32(address).u32(size);
    }
    return fillLength(length, 4);
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
    tag(uint8_t(Tag::t_key_value));
    const size_t length = lengthField(4);
    u32(static_cast<uint32_t>(key.size()));
    bytes_.insert(bytes_.end(), key.begin(), key.end());
    u32(static_cast<uint32_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    return fillLength(length, 4);
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

// ---- Tags of versions 10 and 11.

std::vector<std::pair<uint8_t, uint8_t>> UbrofWriter::newerSkipInfo(uint8_t format)
{
    std::vector<std::pair<uint8_t, uint8_t>> pairs{
        {0xBA, 0x02}, {0xBE, 0xFF}, {0xBF, 0x02}, {0xC0, 0xFF}, {0xC1, 0x05}, {0xC3, 0xFE}, {0xC6, 0xFE},
        {0xC9, 0xFF}, {0xCD, 0xFF}, {0xCE, 0xFF}, {0xCF, 0x0E}, {0xD0, 0x04}, {0xD3, 0xFE}, {0xD4, 0xFC},
        {0xD5, 0xFC}, {0xD6, 0xFC}, {0xD7, 0xFC}, {0xD8, 0xFC}, {0xB0, 0x0C}, {0xD9, 0xFC}, {0xDE, 0x01}};
    if (format >= 11)
        pairs.emplace_back(0xE1, 0xFC);
    return pairs;
}

UbrofWriter& UbrofWriter::stackUseCount(uint32_t count)
{
    return tag(uint8_t(NewerTag::t_stack_use_count)).u32(count);
}

UbrofWriter& UbrofWriter::symbolPosition(uint32_t file, uint16_t line, std::array<uint8_t, 6> flags)
{
    tag(uint8_t(NewerTag::t_symbol_position)).u32(file).u16(line);
    bytes_.insert(bytes_.end(), flags.begin(), flags.end());
    return *this;
}

UbrofWriter& UbrofWriter::functionSize(uint32_t bytes, uint32_t nameIndex)
{
    std::vector<uint8_t> body{3, 1};
    appendVarNumber(body, bytes);
    appendVarNumber(body, nameIndex + 1);
    return counted(uint8_t(NewerTag::t_function_info), body);
}

UbrofWriter& UbrofWriter::lineProgramHeader(uint8_t unit, uint32_t index)
{
    // The parameters every known file declares: line range 5, start columns -8 + 17,
    // end columns -20 + 41, opcode base 14.
    std::vector<uint8_t> body{1};
    appendVarNumber(body, index);
    const std::vector<uint8_t> parameters{1, unit, 0x00, 0x05, 0x78, 0x11, 0x6C, 0x29, 0x0E,
                                          0, 0, 1, 1, 1, 1, 1, 0, 1, 0, 1, 1, 1, 1};
    body.insert(body.end(), parameters.begin(), parameters.end());
    return counted(uint8_t(NewerTag::t_line_program), body);
}

UbrofWriter& UbrofWriter::lineProgram(const WriterFunctionLines& function)
{
    std::vector<uint8_t> body{2};
    for (uint32_t value : {function.header, function.units, function.nameIndex + 1, function.form, function.order,
                           function.line, function.column, function.extraLines, function.lastColumn})
        appendVarNumber(body, value);
    body.insert(body.end(), function.program.begin(), function.program.end());
    return counted(uint8_t(NewerTag::t_line_program), body);
}

UbrofWriter& UbrofWriter::sourceFiles(const WriterSourceFiles& sources)
{
    std::vector<uint8_t> body;
    appendVarNumber(body, static_cast<uint32_t>(sources.directories.size()));
    for (const std::string& directory : sources.directories) {
        appendVarNumber(body, static_cast<uint32_t>(directory.size()));
        body.insert(body.end(), directory.begin(), directory.end());
    }
    appendVarNumber(body, static_cast<uint32_t>(sources.files.size()));
    for (const WriterSourceFile& file : sources.files) {
        body.push_back(0);
        appendVarNumber(body, static_cast<uint32_t>(file.name.size()));
        body.insert(body.end(), file.name.begin(), file.name.end());
        appendVarNumber(body, file.directory);
        const WriterDate& date = file.date;
        body.insert(body.end(), {uint8_t(date.second), uint8_t(date.minute), uint8_t(date.hour), uint8_t(date.day),
                                 uint8_t(date.month), uint8_t(date.year - 1900)});
        appendVarNumber(body, file.lines);
    }
    body.insert(body.end(), sources.tree.begin(), sources.tree.end());
    return counted(uint8_t(NewerTag::t_source_files), body);
}

UbrofWriter& UbrofWriter::sourcePosition(uint32_t line, uint32_t column, uint32_t extraLines, uint32_t lastColumn)
{
    std::vector<uint8_t> body;
    for (uint32_t value : {line, column, extraLines, lastColumn})
        appendVarNumber(body, value);
    return counted(uint8_t(NewerTag::t_source_position), body);
}

UbrofWriter& UbrofWriter::stackUse(uint32_t segment, uint32_t bytes)
{
    std::vector<uint8_t> body;
    for (uint32_t value : {segment, bytes, 0u})
        appendVarNumber(body, value);
    return counted(uint8_t(NewerTag::t_stack_use), body);
}

WriterLineProgram& WriterLineProgram::row(uint32_t units, int32_t lines, int32_t startColumn, int32_t endColumn)
{
    // The two-byte form: (units * 3485 + line + 5 * (start + 8) + 85 * (end + 20)), from opcode 14 on.
    const bool fits = lines >= 0 && lines < 5 && startColumn >= -8 && startColumn < 9 && endColumn >= -20 &&
                      endColumn < 21 && units <= 16;
    if (!fits) {
        if (units != 0)
            advance(units);
        if (lines != 0)
            line(lines);
        if (startColumn != 0)
            this->startColumn(startColumn);
        if (endColumn != 0)
            this->endColumn(endColumn);
        units = 0;
        lines = startColumn = endColumn = 0;
    }
    const uint32_t value = units * 3485 + uint32_t(lines) + 5 * uint32_t(startColumn + 8) + 85 * uint32_t(endColumn + 20);
    bytes.push_back(static_cast<uint8_t>(14 + value / 256));
    bytes.push_back(static_cast<uint8_t>(value % 256));
    return *this;
}

WriterLineProgram& WriterLineProgram::advance(uint32_t units)
{
    bytes.push_back(2);
    appendVarNumber(bytes, units);
    return *this;
}

WriterLineProgram& WriterLineProgram::line(int32_t delta)
{
    bytes.push_back(3);
    appendSignedVarNumber(bytes, delta);
    return *this;
}

WriterLineProgram& WriterLineProgram::spans(uint32_t extraLines)
{
    bytes.push_back(4);
    appendVarNumber(bytes, extraLines);
    return *this;
}

WriterLineProgram& WriterLineProgram::startColumn(int32_t delta)
{
    bytes.push_back(5);
    appendSignedVarNumber(bytes, delta);
    return *this;
}

WriterLineProgram& WriterLineProgram::endColumn(int32_t delta)
{
    bytes.push_back(6);
    appendSignedVarNumber(bytes, delta);
    return *this;
}

WriterLineProgram& WriterLineProgram::longAdvance()
{
    bytes.push_back(7);
    return *this;
}

WriterLineProgram& WriterLineProgram::kind(uint32_t code)
{
    bytes.push_back(8);
    appendVarNumber(bytes, code);
    return *this;
}

WriterLineProgram& WriterLineProgram::noFallThrough()
{
    bytes.push_back(9);
    return *this;
}

WriterLineProgram& WriterLineProgram::branch(int32_t rows)
{
    bytes.push_back(10);
    appendSignedVarNumber(bytes, rows);
    return *this;
}

WriterLineProgram& WriterLineProgram::calls(uint32_t nameIndex)
{
    bytes.push_back(13);
    appendVarNumber(bytes, nameIndex);
    return *this;
}

WriterLineProgram& WriterLineProgram::extended(const std::vector<uint8_t>& block)
{
    bytes.push_back(0);
    appendVarNumber(bytes, static_cast<uint32_t>(block.size()));
    bytes.insert(bytes.end(), block.begin(), block.end());
    return *this;
}

WriterLineProgram& WriterLineProgram::byte(uint8_t value)
{
    bytes.push_back(value);
    return *this;
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
    tag(uint8_t(Tag::t_scoped_name));
    const size_t length = lengthField(4);
    u8(1).u32(static_cast<uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return u32(parent).fillLength(length, 4);
}

UbrofWriter& UbrofWriter::scopedFunctionName(uint32_t reference, uint16_t number)
{
    tag(uint8_t(Tag::t_scoped_name));
    const size_t length = lengthField(4);
    return u8(2).u32(reference).u16(number).fillLength(length, 4);
}

UbrofWriter& UbrofWriter::scopedBlockName(uint32_t reference, uint32_t number)
{
    tag(uint8_t(Tag::t_scoped_name));
    const size_t length = lengthField(4);
    return u8(3).u32(reference).u32(number).fillLength(length, 4);
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
    tag(uint8_t(Tag::t_symbol_def2));
    const size_t length = lengthField(4);
    u8(kind).u16(addressSpace).u32(value).u32(nameIndex);
    this->typeIndex(typeIndex);
    u16(static_cast<uint32_t>(entries.size()));
    locations(entries);
    return u8(0).fillLength(length, 4);
}

UbrofWriter& UbrofWriter::subDefObjAttr(uint32_t attributeWord)
{
    tag(uint8_t(Tag::t_sub_def_obj_attr));
    const size_t length = lengthField(2);
    return u32(attributeWord).u8(0).fillLength(length, 2);
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
    tag(uint8_t(Tag::t_mem_info));
    const size_t length = lengthField(2);
    return u8(memory).u8(addressSize).u8(attribute2).u32(attributes).text8(name).fillLength(length, 2);
}

void UbrofWriter::typeHeader(uint16_t index, uint8_t kind)
{
    tag(uint8_t(Tag::t_type));
    typeIndex(index).u8(kind);
}

UbrofWriter& UbrofWriter::typePointer(uint16_t index, uint8_t kind, uint16_t target)
{
    typeHeader(index, kind);
    return typeIndex(target);
}

UbrofWriter& UbrofWriter::typeArray(uint16_t index, uint16_t element, uint32_t size, uint32_t count, uint8_t kind)
{
    typeHeader(index, kind);
    typeIndex(element).u32(size);
    return kind == 41 ? u32(count) : u16(count);
}

UbrofWriter& UbrofWriter::typeStruct(uint16_t index, const std::string& name, uint32_t size,
                                     const std::vector<StructMember>& members)
{
    typeHeader(index, 17);
    text8(name).u32(size).u16(static_cast<uint32_t>(members.size()));
    for (const StructMember& member : members)
        u32(member.offset).text8(member.name).typeIndex(member.typeIndex);
    return *this;
}

UbrofWriter& UbrofWriter::typeUnion(uint16_t index, const std::string& name, uint32_t size,
                                    const std::vector<StructMember>& members)
{
    typeHeader(index, 18);
    text8(name).u32(size).u16(static_cast<uint32_t>(members.size()));
    for (const StructMember& member : members)
        text8(member.name).typeIndex(member.typeIndex);
    return *this;
}

UbrofWriter& UbrofWriter::typeClass(uint16_t index, uint32_t nameIndex, uint32_t classKey, uint32_t size,
                                    const std::vector<ClassMember>& members)
{
    typeHeader(index, 52);
    u32(nameIndex).u32(classKey).u32(size).u32(static_cast<uint32_t>(members.size()));
    for (const ClassMember& member : members)
        u32(member.offset).u32(member.nameIndex).typeIndex(member.typeIndex).u32(member.attribute);
    return *this;
}

UbrofWriter& UbrofWriter::typeBitField(uint16_t index, uint8_t width, uint8_t position, uint16_t storage)
{
    typeHeader(index, 19);
    return u8(width).u8(position).typeIndex(storage);
}

UbrofWriter& UbrofWriter::typeFunction(uint16_t index, uint16_t result, uint8_t flags,
                                       const std::vector<uint16_t>& parameters)
{
    typeHeader(index, 20);
    typeIndex(result).u8(flags).u8(static_cast<uint32_t>(parameters.size()));
    for (uint16_t parameter : parameters)
        typeIndex(parameter);
    return *this;
}

UbrofWriter& UbrofWriter::typeFunction35(uint16_t index, uint16_t result, uint8_t flags, uint32_t extra,
                                         const std::vector<uint16_t>& parameters)
{
    typeHeader(index, 35);
    typeIndex(result).u8(flags).u32(extra).u8(static_cast<uint32_t>(parameters.size()));
    for (uint16_t parameter : parameters)
        typeIndex(parameter);
    return *this;
}

UbrofWriter& UbrofWriter::typeQualified(uint16_t index, uint8_t flags, uint16_t type)
{
    typeHeader(index, 21);
    return u8(flags).typeIndex(type);
}

UbrofWriter& UbrofWriter::typeAttributed(uint16_t index, uint32_t attributeWord, uint16_t type)
{
    typeHeader(index, 36);
    return u32(attributeWord).typeIndex(type);
}

UbrofWriter& UbrofWriter::typeInMemory(uint16_t index, uint8_t kind, uint8_t memory, uint16_t type,
                                       uint32_t qualifiers, const std::vector<uint8_t>& extra)
{
    typeHeader(index, kind);
    u8(memory).typeIndex(type).u32(qualifiers).u8(static_cast<uint32_t>(extra.size()));
    return raw(extra);
}

UbrofWriter& UbrofWriter::typeEnum(uint16_t index, uint16_t underlying, const std::string& name,
                                   const std::vector<EnumValue>& constants)
{
    typeHeader(index, 44);
    typeIndex(underlying).text8(name).u32(static_cast<uint32_t>(constants.size()));
    for (const EnumValue& constant : constants)
        text8(constant.name).u32(constant.value);
    return *this;
}

UbrofWriter& UbrofWriter::typeEnum51(uint16_t index, uint16_t underlying, uint32_t nameIndex,
                                     const std::vector<IndexedEnumValue>& constants)
{
    typeHeader(index, 51);
    typeIndex(underlying).u32(nameIndex).u32(static_cast<uint32_t>(constants.size()));
    for (const IndexedEnumValue& constant : constants)
        u32(constant.nameIndex).u32(constant.value);
    return *this;
}

UbrofWriter& UbrofWriter::typeTypedef(uint16_t index, uint16_t aliased, uint32_t nameIndex)
{
    typeHeader(index, 49);
    return typeIndex(aliased).u32(nameIndex);
}

UbrofWriter& UbrofWriter::typeMemberPointer(uint16_t index, uint16_t target, uint16_t classType)
{
    typeHeader(index, 50);
    return typeIndex(target).typeIndex(classType).u16(0);
}

UbrofWriter& UbrofWriter::typeBare(uint16_t index, uint8_t kind)
{
    typeHeader(index, kind);
    return *this;
}

} // namespace ubrof
