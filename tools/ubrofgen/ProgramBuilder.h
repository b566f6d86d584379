// A UbrofWriter that also keeps the file's running state a producer needs: the next name
// index, the next code address and the statements of the current function.
#pragma once

#include "writer/UbrofWriter.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ubrof::gen {

/// Every date in generated files: fixed, so that dumps of them never change.
inline const WriterDate kFixedDate{2024, 3, 15, 10, 20, 30};

class ProgramBuilder {
public:
    UbrofWriter w;

    /// Tags that append name records answer the index of the (first) record they append.
    uint32_t scoped(const std::string& text, uint32_t parent = 0xFFFFFFFF);
    uint32_t scopedBlock(uint32_t reference, uint32_t number);
    uint32_t symbol(const WriterSymbol& symbol);
    /// An "_A_" register definition whose odd attribute word gives it a plain-named twin.
    void ioRegister(const std::string& name, uint32_t address, uint16_t ioType);
    uint32_t structType(uint16_t index, const std::string& name, uint32_t size,
                        const std::vector<WriterStructMember>& members);
    uint32_t unionType(uint16_t index, const std::string& name, uint32_t size,
                       const std::vector<WriterStructMember>& members);
    uint32_t enumType(uint16_t index, uint16_t underlying, const std::string& name,
                      const std::vector<WriterEnumValue>& constants);
    uint32_t function(const std::string& name, const std::vector<WriterSymbol>& locals = {});
    uint32_t block(const std::vector<WriterSymbol>& locals = {});
    void blockEnd();

    /// Places the following code at address.
    void codeAt(uint32_t address);
    /// One statement and its code bytes; answers the statement's address.
    uint32_t statement(uint16_t firstLine, uint16_t lastLine, size_t bytes, uint8_t kind = 0);
    uint32_t codeAddress() const { return codeAddress_; }

    /// Deterministic bytes that read like two-byte instruction words.
    static std::vector<uint8_t> instructions(size_t count, uint32_t seed);

private:
    uint32_t names_ = 0;
    uint32_t codeAddress_ = 0;
};

/// The bundled sample: a small thermometer program over three modules and a hidden start-up module.
UbrofWriter sampleProgram();

/// A file of the sample's shape, scaled: modules x functions x statements.
UbrofWriter largeProgram(uint32_t modules, uint32_t functions, uint32_t statements);

} // namespace ubrof::gen
