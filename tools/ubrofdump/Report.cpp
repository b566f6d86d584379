// Report: every answer comes through the host interfaces; nothing here knows how the file is read.
#include "tools/ubrofdump/Report.h"

#include "host/CodeArea.h"
#include "host/ISourceInformation.h"
#include "host/IStackTraceContext.h"

#include <boost/json/array.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>

namespace ubrofdump {
namespace {

namespace json = boost::json;

// Deeper than root, module, function, variable and member never happens in a well-formed
// file; the bound keeps a hostile one from recursing without end.
constexpr int kMaxDepth = 8;

class Frame : public tarn::IStackTraceContext {
public:
    explicit Frame(uint64_t pc) : pc_(pc) {}
    uint64_t getProgramCounter() const override { return pc_; }
    uint64_t getFramePointer() const override { return 0; }

private:
    uint64_t pc_;
};

template <typename View>
boost::shared_ptr<View> need(boost::shared_ptr<View> view, const char* what)
{
    if (!view)
        throw MissingView(std::string("the parser offers no ") + what + " information");
    return view;
}

json::object statusJson(const tarn::Status& status)
{
    return json::object{{"Code", static_cast<uint64_t>(status.getErrorCode())}, {"Message", status.getMessage()}};
}

json::object locationJson(const tarn::ISymbolContext::Ptr& context, uint64_t pc)
{
    json::object location;
    const auto found = context->getLocation(boost::make_shared<Frame>(pc));
    location["AddressingMode"] = found ? static_cast<int64_t>(found->getAddressingMode()) : int64_t(tarn::ILocation::Unknown);
    json::array pieces;
    if (found) {
        for (const tarn::MemoryPiece& piece : found->getPieces())
            pieces.push_back(json::object{{"Address", piece.address},
                                          {"Offset", piece.offset},
                                          {"Memory", piece.memorySpace},
                                          {"Register", piece.registerNumber},
                                          {"Size", piece.size}});
    }
    location["Pieces"] = std::move(pieces);
    return location;
}

std::vector<tarn::ISymbolContext::Ptr> childrenOf(const tarn::ISymbolContext::Ptr& context)
{
    using SC = tarn::ISymbolContext;
    std::vector<SC::Ptr> children = context->getChildren(SC::OtherSymbol);
    // The root's variables are those of its modules again; the modules list them.
    if (context->getId() == "0")
        return children;
    for (SC::SymbolClass symbolClass : {SC::DataSymbol, SC::CodeSymbol}) {
        const auto more = context->getChildren(symbolClass);
        children.insert(children.end(), more.begin(), more.end());
    }
    return children;
}

tarn::ISymbolContext::Ptr root(const boost::shared_ptr<tarn::ISymbolInformation>& symbols)
{
    return symbols->getSymbolContextFromID("0");
}

// Counts the code areas a window of addresses at a time, so that no more than one window of
// them is ever built. A range is answered from the area at or before its start, and only while
// it ends within the last area, so each window counts the areas that start inside it, and the
// last window is narrowed until it answers.
size_t countCodeAreas(const tarn::ISourceInformation& source)
{
    constexpr uint64_t kWindow = 0x10000;
    constexpr uint64_t kLastAddress = 0xFFFFFFFF;
    std::vector<tarn::CodeArea> areas;
    auto ask = [&](uint64_t from, uint64_t to) {
        tarn::Status ignored;
        return source.getCodeAreasFromAddressRange(ignored, from, to, areas);
    };
    auto startingFrom = [&](uint64_t from) {
        return size_t(std::count_if(areas.begin(), areas.end(),
                                    [from](const tarn::CodeArea& area) { return area.startAddress >= from; }));
    };
    size_t count = 0;
    bool seen = false;
    uint64_t window = kWindow;
    for (uint64_t from = 0; from <= kLastAddress;) {
        const uint64_t to = std::min(from + window - 1, kLastAddress);
        // Once an area was seen, asking for the single address at a window's end answers the
        // last area that starts at or before it: an empty stretch is passed in growing steps.
        if (seen && window > kWindow && ask(to, to) && areas.front().startAddress < from) {
            from = to + 1;
            window *= 2;
            continue;
        }
        if (seen && window > kWindow) {
            window = kWindow;
            continue;
        }
        if (ask(from, to)) {
            const size_t found = startingFrom(from);
            count += found;
            seen = seen || found != 0;
            window = found == 0 ? window * 2 : kWindow;
            from = to + 1;
            continue;
        }
        if (!seen) {
            // Nothing up to here; the window grows so that empty space before the first area
            // is passed quickly, but stays small enough to hold no more than a few MB of areas.
            from = to + 1;
            window = std::min<uint64_t>(window * 2, 4 * kWindow);
            continue;
        }
        // The window runs past the last area's end: find the highest address that still answers.
        uint64_t low = from, high = to; // answers below low are known, none above high
        if (!ask(low, low))
            break;
        while (low < high) {
            const uint64_t middle = low + (high - low + 1) / 2;
            if (ask(middle, middle))
                low = middle;
            else
                high = middle - 1;
        }
        if (ask(from, low))
            count += startingFrom(from);
        break;
    }
    return count;
}

} // namespace

json::object contextJson(const tarn::ISymbolContext::Ptr& context, uint64_t pc, int depth)
{
    json::object result = context->getProperties();
    result["StorageClass"] = static_cast<int64_t>(context->getStorageClass());
    const auto type = context->getTypeContext();
    result["TypeName"] = type ? type->getName() : std::string();
    result["Location"] = locationJson(context, pc);
    json::array children;
    if (depth < kMaxDepth)
        for (const auto& child : childrenOf(context))
            if (child)
                children.push_back(contextJson(child, pc, depth + 1));
    result["Children"] = std::move(children);
    return result;
}

Report::Report(boost::shared_ptr<tarn::IObjectfileParser> parser, std::string file)
    : parser_(std::move(parser)), file_(std::move(file))
{
}

Answer Report::summary() const
{
    const auto compiler = need(parser_->createCompilerInformation(), "compiler");
    const auto binary = need(parser_->createBinaryInformation(), "binary");
    const auto source = need(parser_->createSourceInformation(), "source");
    const auto symbols = need(parser_->createSymbolInformation(), "symbol");

    tarn::Status status;
    std::vector<std::string> files;
    source->getSourcefiles(status, files);
    const size_t areas = countCodeAreas(*source);
    const auto top = root(symbols);
    const auto modules = top->getChildren(tarn::ISymbolContext::OtherSymbol);
    size_t functions = 0;
    for (const auto& module : modules)
        functions += module->getChildren(tarn::ISymbolContext::CodeSymbol).size();

    json::object summary;
    summary["File"] = file_;
    summary["Machine"] = compiler->getMachine();
    summary["Producer"] = compiler->getProducer();
    summary["Segments"] = binary->getProgramSegments().size();
    summary["SourceFiles"] = files.size();
    summary["CodeAreas"] = areas;
    summary["Modules"] = modules.size();
    summary["Functions"] = functions;
    summary["GlobalSymbols"] = top->getChildren(tarn::ISymbolContext::DataSymbol).size();
    return {"Summary", std::move(summary), std::nullopt};
}

Answer Report::segments(bool withData) const
{
    static const char* const kHex = "0123456789abcdef";
    json::array list;
    for (const auto& segment : need(parser_->createBinaryInformation(), "binary")->getProgramSegments()) {
        json::object entry{{"Name", segment->getName()},
                           {"MemoryType", segment->getMemoryType()},
                           {"StartAddress", segment->getStartAddress()},
                           {"LoadAddress", segment->getLoadAddress()},
                           {"Size", segment->getSize()}};
        if (withData) {
            std::vector<uint8_t> bytes;
            segment->readData(bytes, segment->getStartAddress(), segment->getSize());
            std::string hex;
            hex.reserve(bytes.size() * 2);
            for (uint8_t byte : bytes) {
                hex += kHex[byte >> 4];
                hex += kHex[byte & 0x0F];
            }
            entry["Data"] = std::move(hex);
        }
        list.push_back(std::move(entry));
    }
    return {"Segments", std::move(list), std::nullopt};
}

Answer Report::sources() const
{
    tarn::Status status;
    std::vector<std::string> files;
    const bool found = need(parser_->createSourceInformation(), "source")->getSourcefiles(status, files);
    json::array list;
    for (const auto& file : files)
        list.emplace_back(file);
    return {"Sources", std::move(list), found ? std::nullopt : std::optional(statusJson(status))};
}

Answer Report::lines(uint64_t start, uint64_t end) const
{
    tarn::Status status;
    std::vector<tarn::CodeArea> areas;
    const bool found =
        need(parser_->createSourceInformation(), "source")->getCodeAreasFromAddressRange(status, start, end, areas);
    json::array list;
    for (const tarn::CodeArea& area : areas)
        list.push_back(json::object{{"Function", area.functionName},
                                    {"File", area.fileName},
                                    {"StartLine", area.startLine},
                                    {"EndLine", area.endLine},
                                    {"StartAddress", area.startAddress},
                                    {"EndAddress", area.endAddress}});
    return {"CodeAreas", std::move(list), found ? std::nullopt : std::optional(statusJson(status))};
}

Answer Report::lineToAddress(const std::string& source, uint32_t line) const
{
    tarn::Status status;
    tarn::CodeLocation location;
    location.line = line;
    std::vector<tarn::AddressNamePair> addresses;
    const bool found = need(parser_->createSourceInformation(), "source")
                           ->getAddressesFromSingleStatement(status, source, location, addresses);
    json::array list;
    for (const auto& pair : addresses)
        list.push_back(json::object{{"Address", pair.address}, {"Name", pair.name}});
    return {"Addresses", std::move(list), found ? std::nullopt : std::optional(statusJson(status))};
}

Answer Report::scope(uint64_t pc) const
{
    const auto context = need(parser_->createSymbolInformation(), "symbol")->getScopeContextFromPc(pc);
    return {"Scope", context ? json::value(contextJson(context, pc)) : json::value(nullptr), std::nullopt};
}

Answer Report::symbols(uint64_t pc) const
{
    return {"Symbols", contextJson(root(need(parser_->createSymbolInformation(), "symbol")), pc), std::nullopt};
}

Answer Report::lookup(const std::string& name, std::optional<uint64_t> pc, std::optional<std::string> scopeId) const
{
    const auto symbols = need(parser_->createSymbolInformation(), "symbol");
    tarn::ISymbolContext::Ptr found;
    if (pc) {
        found = symbols->lookupSymbolFromPc(name, *pc, false);
    } else if (scopeId) {
        std::string text = *scopeId;
        found = symbols->lookupSymbol(name, symbols->getSymbolContextFromID(*scopeId), text, false);
    } else {
        found = symbols->lookupGlobalSymbol(name, false);
    }
    return {"Lookup", found ? json::value(contextJson(found, pc.value_or(kNoPc))) : json::value(nullptr), std::nullopt};
}

Answer Report::context(const std::string& id) const
{
    const auto context = need(parser_->createSymbolInformation(), "symbol")->getSymbolContextFromID(id);
    // A number the file does not know still makes a context: one without name, class or type.
    const bool unknown = context->getId() != "0" && context->getName().empty() &&
                         context->getSymbolClass() == tarn::ISymbolContext::OtherSymbol &&
                         context->getStorageClass() == tarn::ISymbolContext::NoStorage && !context->getTypeContext();
    return {"Context", unknown ? json::value(nullptr) : json::value(contextJson(context, kNoPc)), std::nullopt};
}

Answer Report::compiler() const
{
    const auto compiler = need(parser_->createCompilerInformation(), "compiler");
    json::array baseTypes;
    for (const auto& [id, info] : compiler->getBaseTypes())
        baseTypes.push_back(json::object{{"Id", id},
                                         {"Name", info.name},
                                         {"Size", info.size},
                                         {"Bits", info.bits},
                                         {"Signed", info.isSigned},
                                         {"ByteOrder", info.byteOrder}});
    json::object compilerInfo;
    if (const auto info = compiler->createCompilerInfo()) {
        compilerInfo["Words"] = json::array(info->words.begin(), info->words.end());
        compilerInfo["Flags"] = json::array(info->flags.begin(), info->flags.end());
        compilerInfo["Last"] = info->last;
    }
    json::object result{{"Machine", compiler->getMachine()},
                        {"Producer", compiler->getProducer()},
                        {"BigEndian", compiler->isBigEndian()}};
    result["BaseTypes"] = std::move(baseTypes);
    result["CompilerInfo"] = std::move(compilerInfo);
    return {"Compiler", std::move(result), std::nullopt};
}

} // namespace ubrofdump
