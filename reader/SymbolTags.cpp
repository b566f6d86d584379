// Symbol and scope tags: names, symbols with their locations, functions and blocks.
#include "reader/CParser.h"

namespace ubrof {

// Not read yet: these tags fail the parse until their handlers land.
int CParser::handleScopedName() { return 1; }
int CParser::handleSymbolDef() { return 1; }
int CParser::handleSymbolDef1() { return 1; }
int CParser::handleSymbolDef2() { return 1; }
int CParser::handleSubDefObjAttr() { return 1; }
int CParser::handleMacro() { return 1; }
int CParser::handleFuncBegin() { return 1; }
int CParser::handleFuncBegin1() { return 1; }
int CParser::handleBlockBegin() { return 1; }
int CParser::handleBlockBegin1() { return 1; }
int CParser::handleBlockBegin3() { return 1; }
int CParser::handleBlockEnd() { return 1; }
void CParser::registerDefinition() {}
void CParser::appendSymbol(uint8_t, uint16_t, uint32_t, uint16_t, uint32_t) {}
void CParser::readLocationEntries(uint32_t) {}
void CParser::readLocalSymbols(uint32_t) {}

} // namespace ubrof
