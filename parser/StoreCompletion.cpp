// After the parse: the sorted code-area table and the symbols of structure members.
#include "parser/TarnUbrofParser.h"

namespace ubrof {

void TarnUbrofParser::buildCodeAreas()
{
    // Built with the store queries.
}

void TarnUbrofParser::createMemberSymbols()
{
    for (MemberRecord& member : typeTable.members) {
        member.symbolIndex = static_cast<uint32_t>(symbolTable.symbols.size());
        SymbolRecord symbol;
        symbol.kind = 10;
        symbol.nameIndex = member.nameIndex;
        symbol.typeIndex = static_cast<uint16_t>(member.typeIndex);
        symbol.memberOffset = static_cast<uint16_t>(member.offset);
        symbol.firstLocation = static_cast<uint32_t>(symbolTable.locations.size());
        symbolTable.symbols.push_back(symbol);
    }
}

} // namespace ubrof
