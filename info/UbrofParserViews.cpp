// The four views of a parser, each a new object over the shared store; made here, in the views' layer.
#include "parser/UbrofParser.h"

#include "info/UbrofBinaryInformation.h"
#include "info/UbrofCompilerInformation.h"
#include "info/UbrofSourceInformation.h"
#include "info/UbrofSymbolInformation.h"

#include <boost/make_shared.hpp>

namespace ubrof {

// Each view holds its own copy of the store pointer, so it may outlive this parser.
boost::shared_ptr<tarn::ISourceInformation> UbrofParser::createSourceInformation() const
{
    return boost::make_shared<UbrofSourceInformation>(store);
}

boost::shared_ptr<tarn::IBinaryInformation> UbrofParser::createBinaryInformation() const
{
    return boost::make_shared<UbrofBinaryInformation>(store);
}

boost::shared_ptr<tarn::ISymbolInformation> UbrofParser::createSymbolInformation() const
{
    return boost::make_shared<UbrofSymbolInformation>(store);
}

boost::shared_ptr<tarn::ICompilerInformation> UbrofParser::createCompilerInformation() const
{
    return boost::make_shared<UbrofCompilerInformation>(store);
}

} // namespace ubrof
