// Tags that frame a file and its modules, groups and origins, and t_abs_var, which fills the memory images.
#include "reader/CParser.h"

#include "reader/OleDate.h"
#include "reader/ReaderError.h"

#include <cstdlib>
#include <cstring>

namespace ubrof {

int CParser::handleBegFile()
{
    return 0;
}

int CParser::handleBegFile1()
{
    uint8_t bytes[6];
    readBytes(bytes, sizeof bytes);
    // An invalid date is not an error; the creation time is simply not known.
    toOleDate(bytes[5] + 1900u, bytes[4], bytes[3], bytes[2], bytes[1], bytes[0],
              fileHeader_.creationTime);
    return 0;
}

int CParser::handleUbrofEof()
{
    return 0;
}

int CParser::handleVersion()
{
    uint8_t version[3];
    readBytes(version, sizeof version);
    std::memcpy(fileHeader_.versionBytes.data(), version, sizeof version);
    if (version[0] >= 9 && !(newer_.accepted && (version[0] == 10 || version[0] == 11))) {
        failure_.detail = refusedVersionReason(version[0], newer_.accepted);
        return 1;
    }
    newer_.formatVersion = version[0];
    const uint32_t pairs = readByte();
    for (uint32_t i = 0; i < pairs; ++i) {
        const uint8_t tag = static_cast<uint8_t>(readByte());
        const uint8_t skip = static_cast<uint8_t>(readByte());
        skipInfo_.emplace_back(tag, skip);
    }
    return 0;
}

int CParser::handleSegInfo()
{
    if (isNewerFormat()) {
        readNewerSegmentInfo();
        return 0;
    }
    skipBytes(4);
    const uint32_t segments = readWord16();
    for (uint32_t i = 0; i < segments; ++i) {
        skipBytes(5);
        skipBytes(static_cast<int32_t>(readByte()));
        const uint32_t ranges = readWord16();
        skipBytes(static_cast<int32_t>(ranges * 8));
    }
    return 0;
}

int CParser::handleGrp()
{
    skipBytes(4);
    const uint32_t group = readWord16();
    while (groupTable_.size() <= group)
        groupTable_.emplace_back();
    recordContext = 1;
    return 0;
}

int CParser::handleGrpRef()
{
    // Outside a module the two bytes are left for the dispatcher, as the tag has always
    // been read; files only place group references inside modules.
    if (recordContext != 2)
        return 0;
    const uint32_t group = readWord16();
    if (blockTree_.current >= 0)
        blockTree_.addGroup(static_cast<uint32_t>(blockTree_.current), group);
    return 0;
}

int CParser::handleKeyValue()
{
    skipBytes(4);
    std::string key = readString(readWord32());
    std::string value = readString(readWord32());
    if (facts_)
        facts_->attributes.emplace_back(std::move(key), std::move(value));
    return 0;
}

int CParser::handleBegLib()
{
    uint8_t bytes[7];
    readBytes(bytes, sizeof bytes);
    ModuleRecord module;
    std::memcpy(module.attributes.data(), bytes, 3);
    toOleDate(bytes[5] + 1900u, bytes[4], bytes[3], 0, 0, 0, module.creationDate);
    module.name = readString(bytes[6]);
    const uint8_t hidden = module.name.compare(0, 1, "?") == 0 ? 1 : 0;
    moduleTable_.push_back(std::move(module));
    blockTree_.addBlock(ModuleBlock, static_cast<int32_t>(moduleTable_.size() - 1), hidden, -1);
    noteModuleBegun();
    recordContext = 2;
    pendingLineRecord = false;
    return 0;
}

int CParser::handleBegPgm()
{
    return handleBegLib();
}

int CParser::handleEnd()
{
    noteModuleEnded();
    blockTree_.closeBlock();
    recordContext = 0;
    skipBytes(2);
    return 0;
}

int CParser::handleEndAbs()
{
    recordContext = 0;
    skipBytes(8);
    return 0;
}

// t_debug, t_aux and t_aux_1 describe the module they follow; before any module there is
// nothing to describe, so their fields are read and dropped.
int CParser::handleDebug()
{
    const uint8_t debugByte = static_cast<uint8_t>(readByte());
    if (!moduleTable_.empty())
        moduleTable_.back().debugByte = debugByte;
    return 0;
}

int CParser::handleAux()
{
    const uint16_t auxWord = static_cast<uint16_t>(readWord16());
    if (!moduleTable_.empty())
        moduleTable_.back().auxWord = auxWord;
    return 0;
}

int CParser::handleAux1()
{
    const uint16_t versionCode = static_cast<uint16_t>(readWord16());
    std::string text = readString(readByte());
    // Versions 10 and 11 use other codes too (0x2000, 0x2B00, ...): there the code is no check.
    if ((versionCode & ~0x1FFu) != 0x5A00 && !isNewerFormat())
        return 1;
    const double version = std::atof(text.c_str());
    if (!moduleTable_.empty()) {
        moduleTable_.back().versionCode = versionCode;
        moduleTable_.back().versionText = std::move(text);
    }
    if (version > ubrofVersion)
        ubrofVersion = version;
    if (ubrofVersion > symbolTable_.compilerVersion)
        symbolTable_.compilerVersion = ubrofVersion;
    return 0;
}

int CParser::handleOrg()
{
    segmentType = readByte();
    const uint32_t address = readWord32();
    uint8_t memoryClass = 0;
    if (segmentType == 2 || segmentType == 7) {
        dataAddress = address;
        memoryClass = 2;
    } else if (segmentType == 4) {
        // bytes of this segment type are not kept anywhere
    } else if (segmentType == 3 && ubrofVersion >= 2.0) {
        eepromAddress = address;
        memoryClass = 4;
    } else {
        codeAddress = address;
        noteCodeOrigin(address);
        memoryClass = 1;
    }
    if (facts_)
        facts_->noteOrigin(memoryClass);
    return 0;
}

int CParser::handleAbsVar()
{
    const uint32_t count = readByte();
    if (segmentType == 4) {
        skipBytes(static_cast<int32_t>(count));
        return 0;
    }
    DMemory* image = &codeMemory_;
    uint32_t* address = &codeAddress;
    uint8_t memoryClass = 1;
    bool completesStatement = false;
    if (segmentType == 2 || segmentType == 7) {
        image = &dataMemory_;
        address = &dataAddress;
        memoryClass = 2;
    } else if (segmentType == 3 && ubrofVersion >= 2.0) {
        image = &eepromMemory_;
        address = &eepromAddress;
        memoryClass = 4;
    } else {
        completesStatement = pendingLineRecord;
        completePendingLineRecord(count);
        noteCodeBytes(count);
    }
    // An empty t_abs_var writes nothing, so it must not widen the image's range either
    // (at address 0 that range would wrap to cover the whole address space).
    // A light model reads where bytes went, never the bytes, so its parse keeps no image.
    if (count != 0 && lightParse()) {
        // Cut short, it fails here as a write would, not at the next tag. Within the block
        // read, as nearly always, the bytes are there.
        if (count > uint32_t(end_ - next_) && count > remaining())
            throw ReaderError{kUnexpectedEndOfFile};
        skipBytes(static_cast<int32_t>(count));
    } else if (count != 0)
        writeImage(*image, *address, count);
    if (facts_ && count != 0) {
        const bool code = memoryClass == 1 && !facts_->light;
        const uint32_t statement =
            code && !lineTable_.empty() ? static_cast<uint32_t>(lineTable_.size() - 1) : ProgramFacts::kNone;
        const int32_t block = facts_->light ? blockTree_.openModule() : blockTree_.current;
        facts_->noteWrite(memoryClass, *address, count, static_cast<uint32_t>(block), statement,
                          code && completesStatement);
    }
    *address += count;
    return 0;
}

} // namespace ubrof
