// Entry to the symbol tree of a parsed file: scopes at code addresses, lookups by name, contexts by ID.
#pragma once

#include "host/ISymbolInformation.h"

#include <boost/shared_ptr.hpp>

namespace ubrof {

class TarnUbrofParser;

class UbrofSymbolInformation : public tarn::ISymbolInformation {
public:
    explicit UbrofSymbolInformation(boost::shared_ptr<TarnUbrofParser> store);
    UbrofSymbolInformation(const UbrofSymbolInformation&) = default;
    UbrofSymbolInformation& operator=(const UbrofSymbolInformation&) = default;
    ~UbrofSymbolInformation() override = default;

    /// The context the decimal ID names; a text that is no number names the root. Unknown
    /// numbers give a context that answers as invalid.
    tarn::ISymbolContext::Ptr getSymbolContextFromID(const std::string& id) const override;
    /// The innermost module, function or block that holds the low 32 bits of pc; null when none does.
    tarn::ISymbolContext::Ptr getScopeContextFromPc(uint64_t pc) const override;
    /// From scope outwards, then the other modules; a null scope searches module level only, the
    /// root every module. Throws tarn::CoreException for an empty name; text is emptied on success.
    tarn::ISymbolContext::Ptr lookupSymbol(const std::string& name, tarn::ISymbolContext::Ptr scope,
                                           std::string& text, bool flag) const override;
    /// From the innermost scope at pc outwards; a global lookup when no scope holds pc.
    tarn::ISymbolContext::Ptr lookupSymbolFromPc(const std::string& name, uint64_t pc, bool flag) const override;
    /// A function directly under a module first, then a module-level symbol.
    tarn::ISymbolContext::Ptr lookupGlobalSymbol(const std::string& name, bool flag) const override;

private:
    uint64_t getContextPartOfID(const std::string& id) const;
    tarn::ISymbolContext::Ptr contextOf(uint64_t contextNumber) const;

    boost::shared_ptr<TarnUbrofParser> store;
};

} // namespace ubrof
