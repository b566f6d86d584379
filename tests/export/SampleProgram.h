// A small AVR program built record by record, as the model's builder would make it from a file:
// startup code, a main that loops incrementing a global, and a function with a parameter and locals
// in registers, a register pair and the frame; globals of every kind of type, and an EEPROM variable.
#pragma once

#include "TestFiles.h"

#include "export/ElfExport.h"
#include "export/ExportError.h"
#include "model/Program.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof::test {

/// Code addresses of the sample, as the instruction listing in SampleProgram.cpp places them.
namespace sample {
inline constexpr uint32_t kStart = 0x00, kMain = 0x0E, kScale = 0x28, kCodeEnd = 0x40;
inline constexpr uint32_t kScaleLine21 = 0x2E, kScaleLine22 = 0x34, kMainLine11 = 0x18;
inline constexpr uint32_t kCounter = 0x60, kStatus = 0x63, kTable = 0x67, kEeSetting = 0x0000;
inline constexpr uint32_t kBlock = 0x2E, kBlockEnd = 0x3C;
} // namespace sample

/// The sample for the ATmega16, entry point 0.
model::Program sampleAvrProgram();

/// A program of the given family and processor name with a few code bytes and one function.
model::Program tinyProgram(model::Family family, const std::string& processor);

/// The index of the variable of that qualified name; fails the test when there is none.
uint32_t variableNamed(const model::Program& program, const std::string& name);

/// What an exporter's refusal says, or "(no error)" when write() wrote.
template <typename Write>
std::string refusalOf(Write write)
{
    try {
        write();
    } catch (const exporter::ExportError& error) {
        return error.what();
    }
    return "(no error)";
}

/// The sample, written as an ELF file into a scratch directory for each test.
class SampleElfTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        program_ = sampleAvrProgram();
        elf_ = dir_.path("sample.elf");
        exporter::writeElf(program_, elf_);
    }

    ScratchDir dir_;
    model::Program program_;
    std::string elf_;
};

} // namespace ubrof::test
