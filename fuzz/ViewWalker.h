// Parses one file and asks every view every question a debugger would, so that a fuzzer
// (or a regression test) reaches all the code that reads the store.
#pragma once

#include "host/CoreException.h"
#include "host/IObjectfileParser.h"
#include "host/IStackTraceContext.h"
#include "parser/UbrofParser.h"

#include <boost/make_shared.hpp>
#include <set>
#include <string>
#include <vector>

namespace ubrof::fuzz {

class FixedFrame : public tarn::IStackTraceContext {
public:
    explicit FixedFrame(uint64_t pc) : pc_(pc) {}
    uint64_t getProgramCounter() const override { return pc_; }
    uint64_t getFramePointer() const override { return 0; }

private:
    uint64_t pc_;
};

/// Bounds the walk of the symbol tree: a hostile file can make it wide.
struct WalkBudget {
    int contexts = 2000;
};

inline void walkContext(const tarn::ISymbolContext::Ptr& context, uint64_t pc, int depth, WalkBudget& budget)
{
    if (!context || depth > 8 || --budget.contexts < 0)
        return;
    context->getId();
    context->getName();
    context->getProperties();
    context->getStorageClass();
    context->getBitSize();
    context->getBitOffset();
    context->getArrayDimensions();
    context->getLocation(boost::make_shared<FixedFrame>(pc));
    if (auto type = context->getTypeContext())
        type->getName();
    if (auto base = context->getBaseTypeContext())
        base->getName();
    if (auto index = context->getIndexTypeContext())
        index->getName();
    for (int symbolClass = 0; symbolClass <= 3; ++symbolClass)
        for (const auto& child : context->getChildren(tarn::ISymbolContext::SymbolClass(symbolClass)))
            walkContext(child, pc, depth + 1, budget);
}

/// Walks every view of the parsed file; a file that does not parse ends the walk. Versions 10 and
/// 11 are read too: older files read the same either way, and the newer ones reach their tags.
inline void walkFile(const std::string& path)
{
    boost::shared_ptr<tarn::IObjectfileParser> parser;
    try {
        UbrofParseOptions options;
        options.readNewerVersions = true;
        parser = boost::make_shared<UbrofParser>(path, options);
    } catch (const tarn::CoreException&) {
        return;
    }

    std::set<uint64_t> pcs = {0, 1, 0xFFFFFFFF};
    if (auto binary = parser->createBinaryInformation()) {
        for (const auto& segment : binary->getProgramSegments()) {
            std::vector<uint8_t> data;
            segment->readData(data, segment->getStartAddress(), 64);
            segment->readData(data, segment->getStartAddress() + segment->getSize(), 1);
            segment->getMemoryType();
            pcs.insert(segment->getStartAddress());
        }
    }

    if (auto source = parser->createSourceInformation()) {
        tarn::Status status;
        std::vector<std::string> files;
        source->getSourcefiles(status, files);
        std::vector<tarn::CodeArea> areas;
        source->getCodeAreasFromAddressRange(status, 0, 0xFFFFFFFF, areas);
        for (size_t i = 0; i < areas.size() && i < 64; ++i) {
            pcs.insert(areas[i].startAddress);
            std::vector<tarn::AddressNamePair> addresses;
            tarn::CodeLocation location;
            location.line = static_cast<uint32_t>(areas[i].startLine);
            source->getAddressesFromSingleStatement(status, areas[i].fileName, location, addresses);
        }
        try {
            source->getCodeAreasFromAddressRange(status, 2, 1, areas);
        } catch (const tarn::CoreException&) {
        }
    }

    if (auto symbols = parser->createSymbolInformation()) {
        WalkBudget budget;
        walkContext(symbols->getSymbolContextFromID("0"), 0, 0, budget);
        for (uint64_t pc : pcs) {
            walkContext(symbols->getScopeContextFromPc(pc), pc, 6, budget);
            symbols->lookupSymbolFromPc("main", pc, false);
        }
        for (const char* id : {"1", "2", "5", "100", "4294967295", " 7x"})
            walkContext(symbols->getSymbolContextFromID(id), 0, 7, budget);
        symbols->lookupGlobalSymbols("main");
    }

    if (auto compiler = parser->createCompilerInformation()) {
        compiler->getProducer();
        compiler->getBaseTypes();
        compiler->createCompilerInfo();
    }
}

} // namespace ubrof::fuzz
