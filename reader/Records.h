// Records of the parsed-file store, as the reader appends them: files, modules, names, symbols, lines, blocks.
#pragma once

#include "reader/ChunkedVector.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ubrof {

/// "No record" in every index field.
inline constexpr uint32_t kNoIndex = 0xFFFFFFFF;

/// Name and block texts are built in buffers of this size, so a text holds at most kMaxNameLength characters.
inline constexpr size_t kNameBufferSize = 1000;
inline constexpr size_t kMaxNameLength = kNameBufferSize - 1;

struct UbrofFileHeader {
    double creationTime = 0.0; ///< OLE Automation date
    std::array<uint8_t, 3> versionBytes{}; ///< the first is the format version
};

struct ModuleRecord {
    std::array<uint8_t, 3> attributes{};
    double creationDate = 0.0;
    std::string name;
    uint16_t auxWord = 0;
    uint16_t versionCode = 0;
    std::optional<std::string> versionText;
    uint8_t debugByte = 0;
};

struct GroupRecord {
    std::vector<uint32_t> symbols;
};

struct NameRecord {
    uint32_t nameKind = 0;  ///< 0 plain scoped name, 2 symbol name, 3 function or block name
    uint32_t scopeKind = 0; ///< for nameKind 3: 2 function, 3 block
    std::optional<std::string> text; ///< none for derived names
    uint32_t number = 0;
    int32_t parent = -1;
};

/// The NameRecords of a file, 16 bytes each with their texts side by side in large blocks:
/// a file holds a million names, most of them a few characters long. Records read back as
/// they were appended; the few whose fields do not fit the packed row are kept whole.
class NameRecords {
public:
    NameRecords() = default;
    NameRecords(const NameRecords&) = delete;
    NameRecords& operator=(const NameRecords&) = delete;

    size_t size() const { return rows_.size(); }
    bool empty() const { return rows_.empty(); }
    NameRecord operator[](size_t index) const;
    NameRecord at(size_t index) const;
    void push_back(const NameRecord& record);
    /// A record with a stored text, without a NameRecord on the way.
    void pushText(uint32_t nameKind, uint32_t scopeKind, std::string_view text, uint32_t number, int32_t parent);

    // Fields without unpacking the record.
    uint32_t nameKind(size_t index) const;
    uint32_t scopeKind(size_t index) const;
    uint32_t number(size_t index) const;
    int32_t parent(size_t index) const;
    bool hasText(size_t index) const;
    /// The stored text; empty when there is none. Valid as long as the table.
    std::string_view text(size_t index) const;
    /// Asks the processor to fetch record index while a lookup goes on with other work.
    void prefetch(size_t index) const
    {
        if (index < rows_.size())
            __builtin_prefetch(&rows_[index]);
    }

private:
    static constexpr uint16_t kNoText = 0xFFFF;
    static constexpr uint16_t kWide = 0xFFFE; ///< the record is wide_[textOffset]
    static constexpr unsigned kBlockBits = 20;
    struct Row {
        uint32_t textOffset; ///< block << kBlockBits | offset within the block
        uint16_t textLength;
        uint8_t nameKind;
        uint8_t scopeKind;
        uint32_t number;
        int32_t parent;
    };
    static_assert(sizeof(Row) == 16, "a name record is 16 bytes");

    /// Copies text into the text blocks; answers where it went.
    uint32_t storeText(std::string_view text);

    ChunkedVector<Row> rows_;
    std::vector<std::unique_ptr<char[]>> textBlocks_;
    uint32_t textUsed_ = 1u << kBlockBits; ///< bytes used of the last block
    std::vector<NameRecord> wide_;
};

class NameTable {
public:
    NameRecords records;

    /// The name text of record index: stored, borrowed from a parent, or derived ("block5");
    /// empty for -1 or an index out of range, and cut at kMaxNameLength characters.
    std::string nameText(uint32_t index) const;
    /// nameText(index) as a view of the stored text; a derived text is built in scratch.
    std::string_view nameView(uint32_t index, std::string& scratch) const;
    /// nameText(index) == name, without building the text.
    bool nameIs(uint32_t index, std::string_view name) const;
    bool nameStartsWith(uint32_t index, std::string_view prefix) const;
    uint32_t append(NameRecord record);
    /// A plain scoped name (kind 0) with a text, as t_scoped_name of form 1 gives it.
    uint32_t appendText(std::string_view text, int32_t parent)
    {
        records.pushText(0, 0, text, 0, parent);
        return static_cast<uint32_t>(records.size() - 1);
    }

private:
    /// The record whose text names index after borrowing, or kNoIndex; derived is set for a
    /// block name made from its number.
    uint32_t textSource(uint32_t index, bool& derived) const;
};

struct SymbolRecord {
    uint8_t kind = 0;
    uint32_t value = 0;
    uint16_t addressSpace = 0;
    uint16_t typeIndex = 0;
    uint32_t nameIndex = kNoIndex;
    uint32_t firstLocation = 0;
    uint32_t locationCount = 0;
    uint16_t memberOffset = 0;
};

struct LocationRecord {
    uint32_t startAddress = 0;
    uint8_t kind = 0;
    uint16_t addressSpace = 0;
    uint32_t value = 0;
};

struct SymbolTable {
    ChunkedVector<SymbolRecord> symbols;
    ChunkedVector<LocationRecord> locations;
    double compilerVersion = 0.0;
};

struct SourceFileRecord {
    std::string name;
    double timestamp = 0.0;
    uint8_t isEmbedded = 0;
    std::vector<uint32_t> lineRanges;
};

/// Source files by lower-cased name.
using FileIndex = std::map<std::string, uint32_t>;

struct LineRecord {
    uint32_t address = 0;
    uint32_t size = 0;
    uint32_t line = 0;
    uint32_t lineSpan = 0;
    uint32_t column = 0;
    uint32_t endColumn = 0;
    uint8_t flags = 0;
};

struct FileLineRange {
    int32_t file = -1;
    int32_t maxLine = 0;
    uint32_t firstLineRecord = 0;
    uint32_t lineRecordCount = 0;
};

} // namespace ubrof
