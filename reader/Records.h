// Records of the parsed-file store, as the reader appends them: files, modules, names, symbols, lines, blocks.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
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

class NameTable {
public:
    std::vector<NameRecord> records;

    /// The name text of record index: stored, borrowed from a parent, or derived ("block5");
    /// empty for -1 or an index out of range, and cut at kMaxNameLength characters.
    std::string nameText(uint32_t index) const;
    uint32_t append(NameRecord record);
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
    std::vector<SymbolRecord> symbols;
    std::vector<LocationRecord> locations;
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
