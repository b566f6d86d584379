// Builds UBROF files tag by tag, byte-exact, so that a test reads like the file it describes.
//
//   UbrofWriter w;
//   w.begFile1().version(8).begLib("main").org(1, 0x100).absVar({0x0C, 0x94}).end().eof();
//   w.save(path);
//
// Counts and lengths are computed from the arguments; raw() and the u8/u16/u32 helpers
// write anything else, so a broken file is as easy to build as a good one.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace ubrof {

/// A calendar date and time as the file tags carry it; year is the full year.
struct WriterDate {
    uint32_t year = 2024;
    uint32_t month = 1;
    uint32_t day = 1;
    uint32_t hour = 0;
    uint32_t minute = 0;
    uint32_t second = 0;
};

/// Where a symbol lives from startAddress on.
struct WriterLocation {
    uint32_t startAddress = 0;
    uint8_t kind = 0;
    uint16_t addressSpace = 0;
    uint32_t value = 0;
};

/// A symbol of t_symbol_def, t_symbol_def1 or a local-symbol entry.
struct WriterSymbol {
    std::string name;
    uint8_t kind = 1;
    uint16_t addressSpace = 2;
    uint32_t value = 0;
    uint16_t typeIndex = 0;
    std::vector<WriterLocation> locations;
};

struct WriterSegmentInfo {
    /// A segment with rangeCount ranges of zeros.
    WriterSegmentInfo(std::string segmentName, uint16_t zeroRanges = 0)
        : name(std::move(segmentName)), rangeCount(zeroRanges)
    {
    }
    /// A segment with its ranges, (address, size) each, and the byte that leads its entry.
    WriterSegmentInfo(std::string segmentName, std::vector<std::pair<uint32_t, uint32_t>> segmentRanges,
                      uint8_t leadingByte = 0)
        : name(std::move(segmentName)), ranges(std::move(segmentRanges)), memoryType(leadingByte)
    {
    }

    std::string name;
    uint16_t rangeCount = 0; ///< zero-filled ranges, when `ranges` is empty
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    uint8_t memoryType = 0;
};

struct WriterStructMember {
    std::string name;
    uint16_t typeIndex = 0;
    uint32_t offset = 0; ///< not written for unions
};

struct WriterClassMember { ///< member of a kind-52 type: names by index
    uint32_t offset = 0;
    uint32_t nameIndex = 0;
    uint16_t typeIndex = 0;
    uint32_t attribute = 0;
};

struct WriterEnumValue {
    std::string name;
    uint32_t value = 0;
};

struct WriterIndexedEnumValue {
    uint32_t nameIndex = 0;
    uint32_t value = 0;
};

/// Appends a variable-length number of versions 10 and 11: seven bits a byte, the lowest first.
void appendVarNumber(std::vector<uint8_t>& out, uint32_t value);
/// Appends a signed one: bit 0x40 of the last byte is the sign.
void appendSignedVarNumber(std::vector<uint8_t>& out, int32_t value);

/// A source file of t_source_files.
struct WriterSourceFile {
    std::string name;
    uint32_t directory = 0; ///< from 1 into the directories; 0 for none
    uint32_t lines = 0;
    WriterDate date;
};

/// A module's t_source_files: its directories and files, then its include tree, step by step.
struct WriterSourceFiles {
    std::vector<std::string> directories;
    std::vector<WriterSourceFile> files;
    std::vector<uint8_t> tree;

    /// At `line` of the current file (0 for the first file), file `file` (from 0) is included.
    WriterSourceFiles& include(uint32_t line, uint32_t file)
    {
        tree.push_back(1);
        appendVarNumber(tree, line);
        appendVarNumber(tree, file);
        return *this;
    }
    /// The current file ends.
    WriterSourceFiles& end()
    {
        tree.push_back(2);
        return *this;
    }
};

/// The bytes of one function's line program, for the parameters lineProgramHeader() writes.
class WriterLineProgram {
public:
    /// A row `units` address units after the last one, `lines` below it, its columns moved:
    /// the two-byte form when the moves fit it, the single opcodes before it when they do not.
    WriterLineProgram& row(uint32_t units, int32_t lines = 0, int32_t startColumn = 0, int32_t endColumn = 0);
    WriterLineProgram& advance(uint32_t units);     ///< 0x02
    WriterLineProgram& line(int32_t delta);         ///< 0x03
    WriterLineProgram& spans(uint32_t extraLines);  ///< 0x04: the next row ends that many lines lower
    WriterLineProgram& startColumn(int32_t delta);  ///< 0x05
    WriterLineProgram& endColumn(int32_t delta);    ///< 0x06
    WriterLineProgram& longAdvance();               ///< 0x07: 17 units
    WriterLineProgram& kind(uint32_t code);         ///< 0x08: 3 entry, 4 call, 12 return point
    WriterLineProgram& noFallThrough();             ///< 0x09
    WriterLineProgram& branch(int32_t rows);        ///< 0x0A
    WriterLineProgram& calls(uint32_t nameIndex);   ///< 0x0D
    WriterLineProgram& extended(const std::vector<uint8_t>& block); ///< 0x00: counted, first byte the sub-op
    /// Any byte, for opcodes the reader must not understand.
    WriterLineProgram& byte(uint8_t value);

    std::vector<uint8_t> bytes;
};

/// One function's t_line_program record.
struct WriterFunctionLines {
    uint32_t nameIndex = 0; ///< written as the record's name number, the index plus one
    uint32_t units = 0;     ///< code size in address units
    uint32_t form = 2;
    uint32_t order = 0;
    uint32_t line = 1;      ///< the function's extent, in the module's global lines
    uint32_t column = 1;
    uint32_t extraLines = 0;
    uint32_t lastColumn = 1;
    std::vector<uint8_t> program;
    uint32_t header = 0;
};

class UbrofWriter {
public:
    using Date = WriterDate;
    using Location = WriterLocation;
    using Symbol = WriterSymbol;
    using SegmentInfo = WriterSegmentInfo;
    using StructMember = WriterStructMember;
    using ClassMember = WriterClassMember;
    using EnumValue = WriterEnumValue;
    using IndexedEnumValue = WriterIndexedEnumValue;

    // Raw escape hatches.
    UbrofWriter& raw(std::initializer_list<uint8_t> bytes);
    UbrofWriter& raw(const std::vector<uint8_t>& bytes);
    UbrofWriter& u8(uint32_t value);
    UbrofWriter& u16(uint32_t value);
    UbrofWriter& u32(uint32_t value);
    /// A text with a one-byte count.
    UbrofWriter& text8(const std::string& text);
    UbrofWriter& tag(uint8_t code);
    /// A variable-length number of versions 10 and 11, and its signed form.
    UbrofWriter& vnum(uint32_t value);
    UbrofWriter& svnum(int32_t value);
    /// A type index: 16 bits, or a variable-length number once version() said 10 or 11.
    UbrofWriter& typeIndex(uint32_t index);
    /// A tag whose body is counted by a variable-length number (skip code 0xFC).
    UbrofWriter& counted(uint8_t code, const std::vector<uint8_t>& body);

    const std::vector<uint8_t>& bytes() const { return bytes_; }
    size_t size() const { return bytes_.size(); }
    /// The file cut after its first n bytes.
    std::vector<uint8_t> prefix(size_t n) const;
    void save(const std::string& path) const;
    static void save(const std::string& path, const std::vector<uint8_t>& bytes);

    // File, module, group, segment and origin tags.
    UbrofWriter& begFile();
    UbrofWriter& begFile1(const Date& date = Date{});
    /// Format version and the skip information (tag code, skip code) it declares.
    UbrofWriter& version(uint8_t format = 8, uint8_t second = 0, uint8_t third = 0,
                         const std::vector<std::pair<uint8_t, uint8_t>>& skipInfo = {});
    UbrofWriter& eof();
    UbrofWriter& segInfo(const std::vector<SegmentInfo>& segments = {});
    UbrofWriter& grp(uint16_t group);
    UbrofWriter& grpRef(uint16_t group);
    UbrofWriter& keyValue(const std::string& key, const std::string& value);
    UbrofWriter& begLib(const std::string& name, const Date& date = Date{},
                        std::array<uint8_t, 3> attributes = {});
    UbrofWriter& begPgm(const std::string& name, const Date& date = Date{},
                        std::array<uint8_t, 3> attributes = {});
    UbrofWriter& end();
    UbrofWriter& endAbs();
    UbrofWriter& debug(uint8_t debugByte);
    UbrofWriter& aux(uint16_t auxWord);
    UbrofWriter& aux1(const std::string& versionText, uint16_t versionCode = 0x5A00);
    UbrofWriter& org(uint8_t segmentType, uint32_t address);
    UbrofWriter& absVar(const std::vector<uint8_t>& data);

    /// The skip information the files of versions 10 and 11 declare.
    static std::vector<std::pair<uint8_t, uint8_t>> newerSkipInfo(uint8_t format = 10);

    // Tags of versions 10 and 11 (skip codes as newerSkipInfo declares them).
    UbrofWriter& stackUseCount(uint32_t count);                        ///< 0xC4
    UbrofWriter& symbolPosition(uint32_t file, uint16_t line, std::array<uint8_t, 6> flags = {}); ///< 0xB0
    UbrofWriter& functionSize(uint32_t bytes, uint32_t nameIndex);     ///< 0xD4 kind 3
    UbrofWriter& lineProgramHeader(uint8_t unit = 2, uint32_t index = 0); ///< 0xD5 kind 1
    UbrofWriter& lineProgram(const WriterFunctionLines& function);     ///< 0xD5 kind 2
    UbrofWriter& sourceFiles(const WriterSourceFiles& sources);        ///< 0xD6
    UbrofWriter& sourcePosition(uint32_t line, uint32_t column, uint32_t extraLines, uint32_t lastColumn); ///< 0xD7
    UbrofWriter& stackUse(uint32_t segment, uint32_t bytes);           ///< 0xD8

    // Source-file and line tags.
    UbrofWriter& fileRef(uint16_t reference, const std::string& name, const Date& date = Date{});
    UbrofWriter& newFile(uint16_t reference);
    UbrofWriter& file(const std::string& name, const std::vector<std::string>& lines);
    UbrofWriter& srcStat(uint16_t firstLine, uint16_t lastLine, uint8_t kind = 0,
                         uint16_t firstColumn = 1, uint16_t lastColumn = 1);
    UbrofWriter& sourceRange();
    /// Where the definition before it stands: a file reference of the module, lines and columns.
    UbrofWriter& sourceRange(uint16_t fileReference, uint32_t firstLine, uint16_t firstColumn = 1,
                             uint32_t lastLine = 0, uint16_t lastColumn = 1);

    // Symbol and scope tags.
    UbrofWriter& scopedName(const std::string& text, uint32_t parent = 0xFFFFFFFF); ///< form 1
    UbrofWriter& scopedFunctionName(uint32_t reference, uint16_t number);          ///< form 2
    UbrofWriter& scopedBlockName(uint32_t reference, uint32_t number);             ///< form 3
    UbrofWriter& scopedNameOfForm(uint8_t form); ///< an unknown form, nothing after it
    UbrofWriter& symbolDef(const Symbol& symbol);
    UbrofWriter& symbolDef1(const Symbol& symbol);
    UbrofWriter& symbolDef2(uint32_t nameIndex, uint8_t kind, uint16_t addressSpace, uint32_t value,
                            uint16_t typeIndex, const std::vector<Location>& locations = {});
    UbrofWriter& subDefObjAttr(uint32_t attributeWord);
    UbrofWriter& macro(const std::string& name, const std::string& body);
    UbrofWriter& funcBegin();
    UbrofWriter& funcBegin1(const std::string& name, const std::vector<Symbol>& locals = {});
    UbrofWriter& blockBegin();
    UbrofWriter& blockBegin1(const std::vector<Symbol>& locals = {});
    UbrofWriter& blockBegin3(uint32_t nameIndex);
    UbrofWriter& blockEnd();

    // Type tags.
    UbrofWriter& defPtrTypes();
    UbrofWriter& sizeType(uint8_t typeIndex, uint8_t size);
    UbrofWriter& memInfo(uint8_t memory, const std::string& name, uint8_t addressSize = 2,
                         uint32_t attributes = 0, uint8_t attribute2 = 0);
    /// Kinds 15, 23-34, 37-40 and 53: a pointer or reference to target.
    UbrofWriter& typePointer(uint16_t index, uint8_t kind, uint16_t target);
    /// Kind 16 (16-bit count) or 41 (32-bit count).
    UbrofWriter& typeArray(uint16_t index, uint16_t element, uint32_t size, uint32_t count,
                           uint8_t kind = 16);
    UbrofWriter& typeStruct(uint16_t index, const std::string& name, uint32_t size,
                            const std::vector<StructMember>& members);
    UbrofWriter& typeUnion(uint16_t index, const std::string& name, uint32_t size,
                           const std::vector<StructMember>& members);
    UbrofWriter& typeClass(uint16_t index, uint32_t nameIndex, uint32_t classKey, uint32_t size,
                           const std::vector<ClassMember>& members);
    UbrofWriter& typeBitField(uint16_t index, uint8_t width, uint8_t position, uint16_t storage);
    UbrofWriter& typeFunction(uint16_t index, uint16_t result, uint8_t flags,
                              const std::vector<uint16_t>& parameters);
    UbrofWriter& typeFunction35(uint16_t index, uint16_t result, uint8_t flags, uint32_t extra,
                                const std::vector<uint16_t>& parameters);
    /// Kind 21: flags bit 0 register, bit 1 const, bit 2 volatile, high nibble 5 I/O.
    UbrofWriter& typeQualified(uint16_t index, uint8_t flags, uint16_t type);
    /// Kind 36: bit 15 I/O, bits 4-11 a pointer attribute code.
    UbrofWriter& typeAttributed(uint16_t index, uint32_t attributeWord, uint16_t type);
    /// Kinds 42 and 43: a type in a memory (255 none) with qualifier bits.
    UbrofWriter& typeInMemory(uint16_t index, uint8_t kind, uint8_t memory, uint16_t type,
                              uint32_t qualifiers = 0, const std::vector<uint8_t>& extra = {});
    UbrofWriter& typeEnum(uint16_t index, uint16_t underlying, const std::string& name,
                          const std::vector<EnumValue>& constants);
    UbrofWriter& typeEnum51(uint16_t index, uint16_t underlying, uint32_t nameIndex,
                            const std::vector<IndexedEnumValue>& constants);
    UbrofWriter& typeTypedef(uint16_t index, uint16_t aliased, uint32_t nameIndex);
    UbrofWriter& typeMemberPointer(uint16_t index, uint16_t target, uint16_t classType);
    /// A kind without operands (22, 45-48, below 15, above 53).
    UbrofWriter& typeBare(uint16_t index, uint8_t kind);

private:
    UbrofWriter& moduleBegin(uint8_t code, const std::string& name, const Date& date,
                             std::array<uint8_t, 3> attributes);
    void date6(const Date& date);
    void symbolEntry(const Symbol& symbol);
    void locations(const std::vector<Location>& entries);
    void typeHeader(uint16_t index, uint8_t kind);
    /// A length that leads a tag's fields, as versions 10 and 11 check it: reserved first,
    /// filled once the fields are written.
    size_t lengthField(size_t width);
    UbrofWriter& fillLength(size_t at, size_t width);

    std::vector<uint8_t> bytes_;
    uint8_t format_ = 0; ///< the format version last written by version()
};

} // namespace ubrof
