// Source-file and line tags: declared and embedded source files, statements.
#include "reader/CParser.h"

namespace ubrof {

// Not read yet: these tags fail the parse until their handlers land.
int CParser::handleFile() { return 1; }
int CParser::handleSrcStat() { return 1; }
int CParser::handleFileRef() { return 1; }
int CParser::handleNewFile() { return 1; }
int CParser::handleSourceRange() { return 1; }

} // namespace ubrof
