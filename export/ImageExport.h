// Program images for programmers and loaders: Intel HEX, Motorola S-records and raw binary, one
// memory of a Program at a time.
//
// Each writer first checks the whole request and only then writes, so a refused request leaves no
// partial file behind. Addresses are the memory's own (code address 0 is the reset vector).
#pragma once

#include "model/Program.h"

#include <cstdint>
#include <iosfwd>
#include <string>

namespace ubrof::exporter {

/// "code", "data" or "eeprom".
const char* memoryName(model::MemorySpace space);

/// The memory's image, checked for what every exporter relies on (runs sorted, apart, inside 32
/// bits); throws ExportError when the program writes no bytes to it or the runs break the promise.
const model::MemoryImage& exportableImage(const model::Program& program, model::MemorySpace space);

/// Intel HEX of the bytes the memory's runs hold, in address order: data records of at most 16
/// bytes, extended linear address records once an address reaches 64 KiB, a start linear address
/// record when `space` is code and the program names an entry point, and the end-of-file record.
void writeIntelHex(const model::Program& program, model::MemorySpace space, std::ostream& out);
void writeIntelHex(const model::Program& program, model::MemorySpace space, const std::string& path);

struct SRecordOptions {
    /// Text of the S0 header record; empty: the file name of the program's path.
    std::string header;
};

/// S-records of the bytes the memory's runs hold: an S0 header, S1, S2 or S3 data records chosen by
/// the highest address, an S5/S6 record count, and the S9, S8 or S7 termination record carrying the
/// entry point when `space` is code and the program names one (else 0).
void writeSRecords(const model::Program& program, model::MemorySpace space, std::ostream& out,
                   const SRecordOptions& options = {});
void writeSRecords(const model::Program& program, model::MemorySpace space, const std::string& path,
                   const SRecordOptions& options = {});

struct BinaryOptions {
    uint8_t gapFill = 0xFF; ///< erased flash and EEPROM read 0xFF
    /// A memory whose bytes span more than this is refused rather than written: two bytes at
    /// opposite ends of a 32-bit space would otherwise make a 4 GiB file. 16 MiB holds the largest
    /// program memory of every processor family the model knows.
    uint64_t maxSpan = 16u << 20;
};

/// The memory from its lowest written address to its last, gaps filled; answers that lowest
/// address, which the file itself does not record.
uint32_t writeBinary(const model::Program& program, model::MemorySpace space, std::ostream& out,
                     const BinaryOptions& options = {});
uint32_t writeBinary(const model::Program& program, model::MemorySpace space, const std::string& path,
                     const BinaryOptions& options = {});

} // namespace ubrof::exporter
