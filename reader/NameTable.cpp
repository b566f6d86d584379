// Name texts: stored, borrowed from the record a function name refers to, or derived for blocks.
#include "reader/Records.h"

#include <cstring>
#include <stdexcept>

namespace ubrof {

NameRecord NameRecords::operator[](size_t index) const
{
    const Row& row = rows_[index];
    if (row.textLength == kWide)
        return wide_[row.textOffset];
    NameRecord record;
    record.nameKind = row.nameKind;
    record.scopeKind = row.scopeKind;
    record.number = row.number;
    record.parent = row.parent;
    if (row.textLength != kNoText)
        record.text = std::string(text(index));
    return record;
}

NameRecord NameRecords::at(size_t index) const
{
    if (index >= size())
        throw std::out_of_range("NameRecords::at");
    return (*this)[index];
}

uint32_t NameRecords::storeText(std::string_view text)
{
    const auto length = static_cast<uint32_t>(text.size());
    // A text never straddles two blocks; the rest of a block that cannot hold it is left.
    if (textUsed_ + length > (1u << kBlockBits)) {
        if (textBlocks_.size() >= (size_t(1) << (32 - kBlockBits)))
            throw std::length_error("name texts beyond 4 GiB");
        textBlocks_.emplace_back(new char[size_t(1) << kBlockBits]);
        textUsed_ = 0;
    }
    std::memcpy(textBlocks_.back().get() + textUsed_, text.data(), length);
    const uint32_t offset = static_cast<uint32_t>(textBlocks_.size() - 1) << kBlockBits | textUsed_;
    textUsed_ += length;
    return offset;
}

void NameRecords::pushText(uint32_t nameKind, uint32_t scopeKind, std::string_view text, uint32_t number,
                           int32_t parent)
{
    if (nameKind > 0xFF || scopeKind > 0xFF || text.size() >= kWide) {
        push_back(NameRecord{nameKind, scopeKind, std::string(text), number, parent});
        return;
    }
    Row row{};
    row.number = number;
    row.parent = parent;
    row.nameKind = static_cast<uint8_t>(nameKind);
    row.scopeKind = static_cast<uint8_t>(scopeKind);
    row.textLength = static_cast<uint16_t>(text.size());
    row.textOffset = text.empty() ? 0 : storeText(text);
    rows_.push_back(row);
}

void NameRecords::push_back(const NameRecord& record)
{
    const bool fits = record.nameKind <= 0xFF && record.scopeKind <= 0xFF &&
                      (!record.text || record.text->size() < kWide);
    if (fits && record.text) {
        pushText(record.nameKind, record.scopeKind, *record.text, record.number, record.parent);
        return;
    }
    Row row{};
    row.number = record.number;
    row.parent = record.parent;
    row.nameKind = static_cast<uint8_t>(record.nameKind);
    row.scopeKind = static_cast<uint8_t>(record.scopeKind);
    if (!fits) {
        row.textLength = kWide;
        row.textOffset = static_cast<uint32_t>(wide_.size());
        wide_.push_back(record);
    } else {
        row.textLength = kNoText;
    }
    rows_.push_back(row);
}

uint32_t NameRecords::nameKind(size_t index) const
{
    const Row& row = rows_[index];
    return row.textLength == kWide ? wide_[row.textOffset].nameKind : row.nameKind;
}

uint32_t NameRecords::scopeKind(size_t index) const
{
    const Row& row = rows_[index];
    return row.textLength == kWide ? wide_[row.textOffset].scopeKind : row.scopeKind;
}

uint32_t NameRecords::number(size_t index) const
{
    return rows_[index].number;
}

int32_t NameRecords::parent(size_t index) const
{
    return rows_[index].parent;
}

bool NameRecords::hasText(size_t index) const
{
    const Row& row = rows_[index];
    return row.textLength == kWide ? wide_[row.textOffset].text.has_value() : row.textLength != kNoText;
}

std::string_view NameRecords::text(size_t index) const
{
    const Row& row = rows_[index];
    if (row.textLength == kWide) {
        const std::optional<std::string>& text = wide_[row.textOffset].text;
        return text ? std::string_view(*text) : std::string_view();
    }
    if (row.textLength == kNoText || row.textLength == 0)
        return {};
    return std::string_view(textBlocks_[row.textOffset >> kBlockBits].get() + (row.textOffset & ((1u << kBlockBits) - 1)),
                            row.textLength);
}

uint32_t NameTable::append(NameRecord record)
{
    records.push_back(record);
    return static_cast<uint32_t>(records.size() - 1);
}

uint32_t NameTable::textSource(uint32_t index, bool& derived) const
{
    derived = false;
    // A chain of function names that borrow from each other could loop; no real file
    // nests references this deep.
    for (int step = 0; step < 64 && index < records.size(); ++step) {
        if (records.nameKind(index) != 3 || records.hasText(index))
            return index;
        if (records.scopeKind(index) == 2) {
            index = static_cast<uint32_t>(records.parent(index));
            continue;
        }
        derived = records.scopeKind(index) == 3;
        return derived ? index : kNoIndex;
    }
    return kNoIndex;
}

std::string NameTable::nameText(uint32_t index) const
{
    bool derived = false;
    const uint32_t source = textSource(index, derived);
    if (source == kNoIndex)
        return std::string();
    if (derived)
        return "block" + std::to_string(records.number(source));
    return std::string(records.text(source).substr(0, kMaxNameLength));
}

std::string_view NameTable::nameView(uint32_t index, std::string& scratch) const
{
    bool derived = false;
    const uint32_t source = textSource(index, derived);
    if (source == kNoIndex)
        return {};
    if (derived) {
        scratch = "block" + std::to_string(records.number(source));
        return scratch;
    }
    return records.text(source).substr(0, kMaxNameLength);
}

bool NameTable::nameIs(uint32_t index, std::string_view name) const
{
    bool derived = false;
    const uint32_t source = textSource(index, derived);
    if (source == kNoIndex || derived)
        return nameText(index) == name;
    return records.text(source).substr(0, kMaxNameLength) == name;
}

bool NameTable::nameStartsWith(uint32_t index, std::string_view prefix) const
{
    bool derived = false;
    const uint32_t source = textSource(index, derived);
    if (source == kNoIndex || derived)
        return nameText(index).compare(0, prefix.size(), prefix) == 0;
    return records.text(source).substr(0, kMaxNameLength).substr(0, prefix.size()) == prefix;
}

} // namespace ubrof
