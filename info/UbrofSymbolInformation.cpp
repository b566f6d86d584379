// UbrofSymbolInformation: turns IDs, addresses and names into context numbers of the store, and those into handles.
#include "info/UbrofSymbolInformation.h"

#include "host/CoreException.h"
#include "info/UbrofSymbolContext.h"
#include "parser/TarnUbrofParser.h"

#include <boost/make_shared.hpp>
#include <sstream>

namespace ubrof {

UbrofSymbolInformation::UbrofSymbolInformation(boost::shared_ptr<TarnUbrofParser> store)
    : store(std::move(store))
{
}

uint64_t UbrofSymbolInformation::getContextPartOfID(const std::string& id) const
{
    // IDs are plain decimal context numbers; whatever follows the digits is ignored, and a
    // failed read leaves 0, the root.
    uint64_t number = 0;
    std::istringstream text(id);
    text >> number;
    return number;
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::contextOf(uint64_t contextNumber) const
{
    return UbrofSymbolContext::createContext(store, contextNumber);
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::getSymbolContextFromID(const std::string& id) const
{
    return contextOf(getContextPartOfID(id));
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::getScopeContextFromPc(uint64_t pc) const
{
    int32_t scope = -1;
    if (store->getScopeAtPc(static_cast<uint32_t>(pc), &scope) != StoreOk)
        return {};
    return contextOf(store->encodeContextId(ScopeContext, scope));
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::lookupSymbol(const std::string& name,
                                                               tarn::ISymbolContext::Ptr scope, std::string& text,
                                                               bool) const
{
    if (name.empty())
        throw tarn::CoreException(boost::make_shared<tarn::Status>(
            tarn::Severity::Critical, tarn::ErrorCode::EmptySymbolName,
            "Empty name passed to UbrofSymbolInformation::lookupSymbol."));

    int32_t scopeIndex = -1;
    uint32_t searchMode = 1;
    if (scope) {
        const uint32_t number = static_cast<uint32_t>(getContextPartOfID(scope->getId()));
        uint32_t kind = 0;
        const int32_t index = store->decodeContextId(number, &kind);
        if (kind == ScopeContext)
            scopeIndex = index;
        else if (number != 0)
            return {}; // symbols and types hold no names to search
        searchMode = 0;
    }

    int32_t symbol = -1;
    int32_t foundScope = -1;
    if (store->lookupSymbolByName(name, scopeIndex, searchMode, &symbol, &foundScope) != StoreOk)
        return {};
    text.clear();
    return contextOf(store->encodeContextId(SymbolContext, symbol));
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::lookupSymbolFromPc(const std::string& name, uint64_t pc,
                                                                     bool flag) const
{
    const tarn::ISymbolContext::Ptr scope = getScopeContextFromPc(pc);
    if (!scope)
        return lookupGlobalSymbol(name, flag);
    std::string text = scope->getId();
    return lookupSymbol(name, scope, text, flag);
}

tarn::ISymbolContext::Ptr UbrofSymbolInformation::lookupGlobalSymbol(const std::string& name, bool) const
{
    uint32_t function = 0;
    store->lookupGlobal(0, name, DwTagSubprogram, &function);
    if (function != 0)
        return contextOf(function);
    int32_t symbol = -1;
    int32_t foundScope = -1;
    if (store->lookupSymbolByName(name, -1, 1, &symbol, &foundScope) != StoreOk)
        return {};
    return contextOf(store->encodeContextId(SymbolContext, symbol));
}

} // namespace ubrof
