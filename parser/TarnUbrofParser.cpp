// The store's lifecycle (initialise, check, parse once) and its memory-image queries.
#include "parser/TarnUbrofParser.h"

#include "reader/CParser.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace ubrof {

TarnUbrofParser::TarnUbrofParser()
    : typeTable(nameTable),
      codeMemory(0x20000, 0xFF),
      eepromMemory(0x1000, 0xFF),
      dataMemory(0x1000, 0xFF)
{
}

bool TarnUbrofParser::initialize()
{
    stateFlags = 1;
    return true;
}

int16_t TarnUbrofParser::checkFile(const std::string& path) const
{
    if (path.empty())
        return StoreBadArgument;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file)
        return StoreCannotOpen;
    return std::fgetc(file.get()) == 0xA5 ? StoreOk : StoreNotUbrof;
}

int16_t TarnUbrofParser::parseFile(const std::string& path)
{
    if (path.empty())
        return StoreBadArgument;
    if ((stateFlags & 1) == 0)
        return StoreNotInitialised;
    if ((stateFlags & 2) != 0)
        return StoreAlreadyParsed;
    {
        CParser reader(fileHeader, nameTable, typeTable, groupTable, moduleTable, blockTree,
                       symbolTable, codeMemory, eepromMemory, dataMemory, sourceFileTable,
                       lineTable, fileIndex, fileLineRanges);
        if (keepFacts)
            reader.keepFacts(&facts);
        reader.acceptNewerVersions(readNewerVersions);
        if (reader.parse(path.c_str()) != 1) {
            parseError = reader.describeFailure();
            return StoreNotUbrof;
        }
    }
    // A store read for a light program model serves that build alone, which asks it for no code
    // area and no name: their tables would cost the parse a third of its time for nothing.
    const bool light = keepFacts && facts.light;
    if (!light)
        buildCodeAreas();
    createMemberSymbols();
    if (!light)
        indexNames();
    filePath = path;
    stateFlags |= 2;
    return StoreOk;
}

int32_t TarnUbrofParser::imageFor(uint8_t memoryClass, const DMemory** image) const
{
    if (!isParsed())
        return StoreNotParsed;
    switch (memoryClass) {
    case 1:
    case 0x40:
        *image = &codeMemory;
        return StoreOk;
    case 2:
        *image = &dataMemory;
        return StoreOk;
    case 4:
        *image = &eepromMemory;
        return StoreOk;
    default:
        return StoreUnknownMemoryClass;
    }
}

int32_t TarnUbrofParser::getMemoryRange(uint8_t memoryClass, uint32_t* low, uint32_t* high,
                                        uint32_t* reserved) const
{
    if (!low || !high || !reserved)
        return StoreBadArgument;
    const DMemory* image = nullptr;
    if (const int32_t result = imageFor(memoryClass, &image))
        return result;
    *low = image->lowAddress();
    *high = image->highAddress();
    if (memoryClass == 0x40) {
        *low >>= 1;
        *high >>= 1;
    }
    *reserved = 0;
    return StoreOk;
}

int32_t TarnUbrofParser::readMemory(uint8_t memoryClass, uint32_t start, uint32_t count, uint8_t* out) const
{
    if (!out)
        return StoreBadArgument;
    const DMemory* image = nullptr;
    if (const int32_t result = imageFor(memoryClass, &image))
        return result;
    if (memoryClass != 0x40) {
        image->read(start, count, out);
        return StoreOk;
    }
    // The statement map: the flags of the last line record at each word address.
    std::memset(out, 0, count);
    for (size_t i = 0; i < lineTable.size(); ++i) {
        const uint32_t word = lineTable.address(i) >> 1;
        if (word >= start && word - start < count)
            out[word - start] = lineTable.flags(i);
    }
    return StoreOk;
}

} // namespace ubrof
