// Type tags: type records, base-type sizes and memory descriptions.
#include "reader/CParser.h"

namespace ubrof {

// Not read yet: these tags fail the parse until their handlers land.
int CParser::handleDefPtrTypes() { return 1; }
int CParser::handleType() { return 1; }
int CParser::handleSizeType() { return 1; }
int CParser::handleMemInfo() { return 1; }

} // namespace ubrof
