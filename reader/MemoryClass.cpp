// The class of a memory by the keywords of its name.
#include "reader/MemoryClass.h"

namespace ubrof {

uint8_t memoryClassOfName(const std::string& memoryName)
{
    // Order decides names holding two keywords: "flashio" is code, "regio" is I/O.
    static const struct {
        const char* keyword;
        uint8_t memoryClass;
    } rules[] = {{"flash", CodeMemory}, {"func", CodeMemory},       {"io", IoMemory},
                 {"eeprom", EepromMemory}, {"reg", RegisterMemory}};
    for (const auto& rule : rules)
        if (memoryName.find(rule.keyword) != std::string::npos)
            return rule.memoryClass;
    return DataMemory;
}

} // namespace ubrof
