// Intel HEX, S-records and raw binary from one memory image of a Program.
#include "export/ImageExport.h"

#include "export/ExportError.h"
#include "export/OutputFile.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <vector>

namespace ubrof::exporter {

using model::MemoryImage;
using model::MemorySpace;
using model::Program;

namespace {

constexpr size_t kRecordBytes = 16;

} // namespace

const MemoryImage& exportableImage(const Program& program, MemorySpace space)
{
    const MemoryImage* image = program.memory(space);
    if (image == nullptr || image->empty())
        throw ExportError(std::string(memoryName(space)) + " memory: the program writes no bytes to it");
    // A light build keeps only where the bytes lie; an image of it would be fill where code is.
    if (image->runs.empty())
        throw ExportError(std::string(memoryName(space)) +
                          " memory: the program was built light, which keeps where its bytes lie but not the bytes");
    // Runs must come sorted and apart; every format below relies on it, so a model that breaks the
    // promise is refused instead of producing overlapping records.
    uint64_t previousEnd = 0;
    for (const model::ByteRun& run : image->runs) {
        if (run.address < previousEnd) {
            std::ostringstream what;
            what << memoryName(space) << " memory: the run at 0x" << std::hex << run.address
                 << " overlaps or precedes the run before it";
            throw ExportError(what.str());
        }
        if (run.end() > (uint64_t(1) << 32)) {
            std::ostringstream what;
            what << memoryName(space) << " memory: the run at 0x" << std::hex << run.address
                 << " runs past the 32-bit address space";
            throw ExportError(what.str());
        }
        previousEnd = run.end();
    }
    return *image;
}

namespace {

/// The entry point a start record carries: only code memory has one.
std::optional<uint32_t> entryFor(const Program& program, MemorySpace space)
{
    return space == MemorySpace::Code ? program.entryPoint : std::nullopt;
}

/// Calls emit(address, bytes, count) for pieces of at most kRecordBytes that never cross a 16-byte
/// line or a 64 KiB boundary, so that records line up and none wraps a 16-bit record address.
template <typename Emit>
void forEachRecord(const MemoryImage& image, Emit emit)
{
    for (const model::ByteRun& run : image.runs) {
        size_t done = 0;
        while (done < run.bytes.size()) {
            const uint64_t address = uint64_t(run.address) + done;
            const size_t toLine = kRecordBytes - address % kRecordBytes;
            const size_t count = std::min(toLine, run.bytes.size() - done);
            emit(static_cast<uint32_t>(address), run.bytes.data() + done, count);
            done += count;
        }
    }
}

class HexLine {
public:
    explicit HexLine(std::string start) : text_(std::move(start)) {}
    void byte(uint8_t value)
    {
        static const char digits[] = "0123456789ABCDEF";
        text_ += digits[value >> 4];
        text_ += digits[value & 0xF];
        sum_ += value;
    }
    void bytes(const uint8_t* data, size_t count)
    {
        for (size_t i = 0; i < count; ++i)
            byte(data[i]);
    }
    /// Intel HEX closes with the two's complement of the sum, S-records with its one's complement.
    std::string intelHex()
    {
        byte(static_cast<uint8_t>(-sum_));
        return text_ + '\n';
    }
    std::string sRecord()
    {
        byte(static_cast<uint8_t>(~sum_));
        return text_ + '\n';
    }

private:
    std::string text_;
    uint8_t sum_ = 0;
};

std::string intelHexRecord(uint8_t type, uint16_t address, const uint8_t* data, size_t count)
{
    HexLine line(":");
    line.byte(static_cast<uint8_t>(count));
    line.byte(static_cast<uint8_t>(address >> 8));
    line.byte(static_cast<uint8_t>(address));
    line.byte(type);
    line.bytes(data, count);
    return line.intelHex();
}

std::string sRecord(char type, unsigned addressBytes, uint32_t address, const uint8_t* data, size_t count)
{
    HexLine line(std::string("S") + type);
    line.byte(static_cast<uint8_t>(addressBytes + count + 1));
    for (unsigned i = addressBytes; i-- > 0;)
        line.byte(static_cast<uint8_t>(address >> (8 * i)));
    line.bytes(data, count);
    return line.sRecord();
}

std::string fileName(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

const char* memoryName(MemorySpace space)
{
    switch (space) {
    case MemorySpace::Code:
        return "code";
    case MemorySpace::Data:
        return "data";
    case MemorySpace::Eeprom:
        return "eeprom";
    case MemorySpace::External:
        return "xdata";
    }
    return "unknown";
}

void writeIntelHex(const Program& program, MemorySpace space, std::ostream& out)
{
    const MemoryImage& image = exportableImage(program, space);
    uint16_t upper = 0; // the upper address half the reader assumes until told otherwise
    forEachRecord(image, [&](uint32_t address, const uint8_t* data, size_t count) {
        if (address >> 16 != upper) {
            upper = static_cast<uint16_t>(address >> 16);
            const uint8_t base[2] = {static_cast<uint8_t>(upper >> 8), static_cast<uint8_t>(upper)};
            out << intelHexRecord(0x04, 0, base, 2);
        }
        out << intelHexRecord(0x00, static_cast<uint16_t>(address), data, count);
    });
    if (const auto entry = entryFor(program, space)) {
        // The linear form, to match the linear address records; readers of 20-bit segment
        // addressing read it too.
        const uint8_t start[4] = {static_cast<uint8_t>(*entry >> 24), static_cast<uint8_t>(*entry >> 16),
                                  static_cast<uint8_t>(*entry >> 8), static_cast<uint8_t>(*entry)};
        out << intelHexRecord(0x05, 0, start, 4);
    }
    out << intelHexRecord(0x01, 0, nullptr, 0);
}

void writeIntelHex(const Program& program, MemorySpace space, const std::string& path)
{
    std::ostringstream text;
    writeIntelHex(program, space, text);
    saveFile(path, text.str());
}

void writeSRecords(const Program& program, MemorySpace space, std::ostream& out, const SRecordOptions& options)
{
    const MemoryImage& image = exportableImage(program, space);
    const auto entry = entryFor(program, space);
    const uint64_t highest = std::max<uint64_t>(image.endAddress() - 1, entry.value_or(0));
    const unsigned addressBytes = highest <= 0xFFFF ? 2 : highest <= 0xFFFFFF ? 3 : 4;
    const char dataType = addressBytes == 2 ? '1' : addressBytes == 3 ? '2' : '3';
    const char endType = addressBytes == 2 ? '9' : addressBytes == 3 ? '8' : '7';

    // The header is free text; a long one is cut so its record stays well inside the 255-byte limit.
    std::string header = options.header.empty() ? fileName(program.path) : options.header;
    header.resize(std::min<size_t>(header.size(), 64));
    out << sRecord('0', 2, 0, reinterpret_cast<const uint8_t*>(header.data()), header.size());

    uint32_t records = 0;
    forEachRecord(image, [&](uint32_t address, const uint8_t* data, size_t count) {
        out << sRecord(dataType, addressBytes, address, data, count);
        ++records;
    });
    if (records <= 0xFFFF)
        out << sRecord('5', 2, records, nullptr, 0);
    else if (records <= 0xFFFFFF)
        out << sRecord('6', 3, records, nullptr, 0);
    out << sRecord(endType, addressBytes, entry.value_or(0), nullptr, 0);
}

void writeSRecords(const Program& program, MemorySpace space, const std::string& path,
                   const SRecordOptions& options)
{
    std::ostringstream text;
    writeSRecords(program, space, text, options);
    saveFile(path, text.str());
}

uint32_t writeBinary(const Program& program, MemorySpace space, std::ostream& out, const BinaryOptions& options)
{
    const MemoryImage& image = exportableImage(program, space);
    const uint64_t span = image.endAddress() - image.lowAddress();
    if (span > options.maxSpan) {
        std::ostringstream what;
        what << memoryName(space) << " memory: its bytes span 0x" << std::hex << image.lowAddress() << "-0x"
             << image.endAddress() - 1 << std::dec << ", " << span << " bytes, more than the " << options.maxSpan
             << " a binary image may hold";
        throw ExportError(what.str());
    }
    const std::vector<char> fill(4096, static_cast<char>(options.gapFill));
    uint64_t at = image.lowAddress();
    for (const model::ByteRun& run : image.runs) {
        for (uint64_t gap = run.address - at; gap > 0;) {
            const size_t piece = static_cast<size_t>(std::min<uint64_t>(gap, fill.size()));
            out.write(fill.data(), static_cast<std::streamsize>(piece));
            gap -= piece;
        }
        out.write(reinterpret_cast<const char*>(run.bytes.data()), static_cast<std::streamsize>(run.bytes.size()));
        at = run.end();
    }
    return image.lowAddress();
}

uint32_t writeBinary(const Program& program, MemorySpace space, const std::string& path, const BinaryOptions& options)
{
    std::ostringstream bytes;
    const uint32_t base = writeBinary(program, space, bytes, options);
    saveFile(path, bytes.str());
    return base;
}

} // namespace ubrof::exporter
