// Entry to the symbol tree: scopes at an address, lookups by name, contexts by ID.
#pragma once

#include "host/ISymbolContext.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarn {

class ISymbolInformation {
public:
    virtual ~ISymbolInformation() = default;
    virtual ISymbolContext::Ptr getSymbolContextFromID(const std::string& id) const = 0;
    virtual ISymbolContext::Ptr getScopeContextFromPc(uint64_t pc) const = 0;
    virtual ISymbolContext::Ptr lookupSymbol(const std::string& name, ISymbolContext::Ptr scope,
                                             std::string& text, bool flag) const = 0;
    virtual ISymbolContext::Ptr lookupSymbolFromPc(const std::string& name, uint64_t pc,
                                                   bool flag) const = 0;
    virtual ISymbolContext::Ptr lookupGlobalSymbol(const std::string& name, bool flag) const = 0;

    /// Every global symbol of that name; formats with unique global names answer at most one.
    virtual std::vector<ISymbolContext::Ptr> lookupGlobalSymbols(const std::string& name) const
    {
        std::vector<ISymbolContext::Ptr> found;
        if (ISymbolContext::Ptr symbol = lookupGlobalSymbol(name, false))
            found.push_back(symbol);
        return found;
    }
};

} // namespace tarn
