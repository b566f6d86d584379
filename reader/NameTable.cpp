// Name texts: stored, borrowed from the record a function name refers to, or derived for blocks.
#include "reader/Records.h"

namespace ubrof {

uint32_t NameTable::append(NameRecord record)
{
    records.push_back(std::move(record));
    return static_cast<uint32_t>(records.size() - 1);
}

std::string NameTable::nameText(uint32_t index) const
{
    // A chain of function names that borrow from each other could loop; no real file
    // nests references this deep.
    for (int step = 0; step < 64 && index < records.size(); ++step) {
        const NameRecord& record = records[index];
        if (record.nameKind != 3 || record.text) {
            if (!record.text)
                return std::string();
            return record.text->substr(0, kMaxNameLength);
        }
        if (record.scopeKind == 2) {
            index = static_cast<uint32_t>(record.parent);
            continue;
        }
        if (record.scopeKind == 3)
            return "block" + std::to_string(record.number);
        return std::string();
    }
    return std::string();
}

} // namespace ubrof
