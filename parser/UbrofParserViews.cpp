// The four views of a parser, each a new object over the shared store.
#include "parser/UbrofParser.h"

namespace ubrof {

// The views arrive with the information objects; until then a parser offers none.
boost::shared_ptr<tarn::ISourceInformation> UbrofParser::createSourceInformation() const { return {}; }
boost::shared_ptr<tarn::IBinaryInformation> UbrofParser::createBinaryInformation() const { return {}; }
boost::shared_ptr<tarn::ISymbolInformation> UbrofParser::createSymbolInformation() const { return {}; }
boost::shared_ptr<tarn::ICompilerInformation> UbrofParser::createCompilerInformation() const { return {}; }

} // namespace ubrof
