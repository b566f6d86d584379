// Report: every answer comes through the host interfaces; nothing here knows how the file is read.
#include "tools/ubrofdump/Report.h"

#include "host/CodeArea.h"
#include "host/CoreException.h"
#include "host/ISourceInformation.h"
#include "host/IStackTraceContext.h"

#include <boost/json/array.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <tuple>
#include <unordered_set>

namespace ubrofdump {
namespace {

namespace json = boost::json;
using SC = tarn::ISymbolContext;

// Deeper than root, module, function, variable and member never happens in a well-formed
// file; the bound keeps a hostile one from recursing without end.
constexpr int kMaxDepth = 8;

// Types reached from the tree through this many other types are not listed: typedef chains of
// real files are a few records long, and the module gives up on deeper ones too.
constexpr unsigned kMaxTypeChain = 64;

// Addresses of a memory no segment covers, and the least width of any: most of these
// controllers' memories are 16-bit spaces, and a small program should not print its addresses
// narrower than a large one on the same chip.
constexpr int kLeastAddressDigits = 4;

// A type index is 16 bits wide, so a type table holds at most this many records.
constexpr uint64_t kMostTypeRecords = 0x10000;

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
        throw Failure{kUnreadable, "missing-view", std::string("the parser offers no ") + what + " information",
                      std::nullopt};
    return view;
}

std::string hex(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

json::object locationJson(const SC::Ptr& context, uint64_t pc)
{
    const auto found = context->getLocation(boost::make_shared<Frame>(pc));
    const int64_t mode = found ? static_cast<int64_t>(found->getAddressingMode()) : int64_t(tarn::ILocation::Unknown);
    json::object location{{"AddressingMode", mode}, {"AddressingModeName", addressingModeName(mode)}};
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

// A variable of a structure type answers its type's members as its children: listed under every
// such variable, they would grow with the product of the variables and the members, so they are
// listed once, under the type, unless asked for under each variable.
std::vector<SC::Ptr> childrenOf(const SC::Ptr& context, bool members)
{
    std::vector<SC::Ptr> children;
    if (members || context->getSymbolClass() == SC::TypeSymbol || context->getTypeClass() != SC::CompositeType)
        children = context->getChildren(SC::OtherSymbol);
    // The root's variables are those of its modules again; the modules list them.
    if (context->getId() == "0")
        return children;
    for (SC::SymbolClass symbolClass : {SC::DataSymbol, SC::CodeSymbol}) {
        const auto more = context->getChildren(symbolClass);
        children.insert(children.end(), more.begin(), more.end());
    }
    return children;
}

// Counts the code areas a window of addresses at a time, so that no more than one window of
// them is ever built. A range is answered from the area at or before its start, and only while
// it ends within the last area, so each window counts the areas that start inside it, and the
// last window is narrowed until it answers.
size_t countCodeAreas(const tarn::ISourceInformation& source)
{
    // A window of a few hundred areas stays in the processor's cache while it is counted and
    // written over by the next; sixteen times as many cost a sixth more time in all.
    constexpr uint64_t kWindow = 0x1000;
    constexpr uint64_t kLargestEmptyStep = 0x40000;
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
            window = std::min<uint64_t>(window * 2, kLargestEmptyStep);
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

// The context's property list with each enumeration's name beside its number, then what the
// property list leaves out; its children are the walk's to add.
json::object contextFields(const SC::Ptr& context, uint64_t pc)
{
    json::object result;
    for (const auto& [key, value] : context->getProperties()) {
        result[key] = value;
        if (key == "Class")
            result["ClassName"] = symbolClassName(value.is_int64() ? value.get_int64() : -1);
        else if (key == "TypeClass")
            result["TypeClassName"] = typeClassName(value.is_int64() ? value.get_int64() : -1);
    }
    const int64_t storage = context->getStorageClass();
    result["StorageClass"] = storage;
    result["StorageClassName"] = storageClassName(storage);
    const auto type = context->getTypeContext();
    result["TypeName"] = type ? type->getName() : std::string();
    result["Location"] = locationJson(context, pc);
    return result;
}

// Walks a context tree into a sink, then every type that a context of the tree names by its
// TypeID, then the types those name in turn, so that each TypeID of the output is listed. Each type
// is listed once whatever names it, so a type that names itself or a ring of typedefs ends the
// walk instead of looping; the ring's length is bounded too, as the module's own type walks are.
class TreeWalk {
public:
    TreeWalk(ContextSink& sink, uint64_t pc, bool members) : sink_(sink), pc_(pc), members_(members) {}

    void run(const SC::Ptr& root)
    {
        if (root->getSymbolClass() == SC::TypeSymbol)
            listed_.insert(root->getId()); // its members are under it already
        visit(root, 0, 0);
        sink_.beginTypes();
        while (!pending_.empty()) {
            const auto [type, chain] = pending_.front();
            pending_.pop_front();
            visit(type, 0, chain);
        }
        sink_.endTypes();
    }

private:
    void visit(const SC::Ptr& context, int depth, unsigned chain)
    {
        sink_.enter(contextFields(context, pc_), depth);
        note(context, chain);
        if (depth < kMaxDepth)
            for (const auto& child : childrenOf(context, members_))
                if (child)
                    visit(child, depth + 1, chain);
        sink_.leave(depth);
    }

    void note(const SC::Ptr& context, unsigned chain)
    {
        if (chain >= kMaxTypeChain)
            return;
        const auto type = context->getTypeContext();
        // Code scopes and types other than typedefs are their own type.
        if (!type || type->getId() == context->getId())
            return;
        if (listed_.insert(type->getId()).second)
            pending_.emplace_back(type, chain + 1);
    }

    ContextSink& sink_;
    const uint64_t pc_;
    const bool members_;
    std::unordered_set<std::string> listed_;             ///< IDs of the types listed or about to be
    std::deque<std::pair<SC::Ptr, unsigned>> pending_; ///< with how many types led to each
};

SC::Ptr root(const boost::shared_ptr<tarn::ISymbolInformation>& symbols)
{
    return symbols->getSymbolContextFromID("0");
}

// Everything a context answers without a frame, to tell a record from no record.
auto signature(const SC::Ptr& context)
{
    return std::make_tuple(context->getName(), int(context->getSymbolClass()), int(context->getStorageClass()),
                           int(context->getTypeClass()), context->getSize(), context->getLength(),
                           context->getOffset(), context->getAddress(), context->getValue(),
                           bool(context->getTypeContext()), bool(context->getBaseTypeContext()),
                           bool(context->getIndexTypeContext()), context->isBitField());
}

} // namespace

int AddressWidths::of(const std::string& memory) const
{
    const auto found = digits.find(memory);
    return found == digits.end() ? kLeastAddressDigits : found->second;
}

void AddressWidths::cover(const std::string& memory, uint64_t highest)
{
    int needed = 2;
    while (needed < 16 && (highest >> (4 * needed)) != 0)
        needed += 2;
    int& width = digits.emplace(memory, kLeastAddressDigits).first->second;
    width = std::max(width, needed);
}

Report::Report(boost::shared_ptr<tarn::IObjectfileParser> parser, std::string file, const PathMap& paths)
    : parser_(std::move(parser)), file_(std::move(file)), paths_(paths)
{
}

// The tree is walked only as the answer is written, so that no more than one context's fields are
// held at a time. The answer holds a context of the module's making: it must go before the module.
Answer Report::tree(std::string key, SC::Ptr context, uint64_t pc, bool members) const
{
    Answer answer(std::move(key), {});
    answer.walk = [context = std::move(context), pc, members](ContextSink& sink) {
        TreeWalk(sink, pc, members).run(context);
    };
    return answer;
}

std::vector<std::pair<std::string, std::string>> Report::sourcePaths() const
{
    tarn::Status status;
    std::vector<std::string> files;
    need(parser_->createSourceInformation(), "source")->getSourcefiles(status, files);
    std::vector<std::pair<std::string, std::string>> paths;
    for (const std::string& file : files)
        paths.emplace_back(file, paths_.shown(file));
    return paths;
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
    const auto modules = top->getChildren(SC::OtherSymbol);
    size_t functions = 0;
    for (const auto& module : modules)
        functions += module->getChildren(SC::CodeSymbol).size();

    json::object summary;
    summary["File"] = file_;
    summary["Machine"] = compiler->getMachine();
    summary["Producer"] = compiler->getProducer();
    summary["Segments"] = binary->getProgramSegments().size();
    summary["SourceFiles"] = files.size();
    summary["CodeAreas"] = areas;
    summary["Modules"] = modules.size();
    summary["Functions"] = functions;
    summary["GlobalSymbols"] = top->getChildren(SC::DataSymbol).size();
    return {"Summary", std::move(summary)};
}

Answer Report::segments(bool withData) const
{
    static const char* const kHex = "0123456789abcdef";
    json::array list;
    for (const auto& segment : need(parser_->createBinaryInformation(), "binary")->getProgramSegments()) {
        json::object entry{{"Name", segment->getName()},
                           {"Memory", segment->getMemoryType()},
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
    return {"Segments", std::move(list)};
}

Answer Report::sources() const
{
    tarn::Status status;
    std::vector<std::string> files;
    if (!need(parser_->createSourceInformation(), "source")->getSourcefiles(status, files))
        throw notFound(file_ + " names no source file", moduleStatus(status));
    json::array list;
    for (const auto& file : files)
        list.emplace_back(paths_.shown(file));
    return {"Sources", std::move(list)};
}

Answer Report::lines(uint64_t start, uint64_t end) const
{
    tarn::Status status;
    std::vector<tarn::CodeArea> areas;
    bool found = false;
    try {
        found = need(parser_->createSourceInformation(), "source")->getCodeAreasFromAddressRange(status, start, end, areas);
    } catch (const tarn::CoreException& e) {
        if (e.getErrorCode() != tarn::ErrorCode::InvalidAddressRange)
            throw;
        throw usageError("the range is reversed: START " + hex(start) + " is above END " + hex(end) +
                             "; give the lower address first",
                         moduleStatus(e));
    }
    if (!found)
        throw notFound("no code lies between " + hex(start) + " and " + hex(end), moduleStatus(status));
    json::array list;
    for (const tarn::CodeArea& area : areas)
        list.push_back(json::object{{"Function", area.functionName},
                                    {"File", paths_.shown(area.fileName)},
                                    {"StartLine", area.startLine},
                                    {"EndLine", area.endLine},
                                    {"StartAddress", area.startAddress},
                                    {"EndAddress", area.endAddress}});
    return {"CodeAreas", std::move(list)};
}

Answer Report::lineToAddress(const std::string& source, uint32_t line) const
{
    const auto view = need(parser_->createSourceInformation(), "source");
    const auto paths = sourcePaths();
    if (paths.empty())
        throw notFound(file_ + " names no source file");
    const std::vector<size_t> matches = matchSources(source, paths);
    std::vector<std::string> shown;
    for (size_t i : matches)
        shown.push_back(paths[i].second);
    if (matches.empty()) {
        for (const auto& path : paths)
            shown.push_back(path.second);
        const std::vector<std::string> near = closest(source, shown, 3);
        throw notFound("no source file matches " + source + (near.size() == 1 ? "; the closest is " : "; the closest are ") +
                       listed(near));
    }
    if (matches.size() > 1)
        throw usageError(source + " matches " + std::to_string(matches.size()) + " source files, " + listed(shown) +
                         "; give more of the path");
    const auto& [stored, name] = paths[matches.front()];

    tarn::Status status;
    tarn::CodeLocation location;
    location.line = line;
    std::vector<tarn::AddressNamePair> addresses;
    if (!view->getAddressesFromSingleStatement(status, stored, location, addresses)) {
        // The lines that begin or end a code area of the file are those a breakpoint can take.
        tarn::Status ignored;
        std::vector<tarn::CodeArea> areas;
        view->getCodeAreasFromAddressRange(ignored, 0, 0xFFFFFFFF, areas);
        std::optional<uint32_t> below, above;
        for (const tarn::CodeArea& area : areas) {
            if (comparable(area.fileName) != comparable(stored))
                continue;
            for (uint32_t candidate : {area.startLine, area.endLine}) {
                if (candidate < line && (!below || candidate > *below))
                    below = candidate;
                if (candidate > line && (!above || candidate < *above))
                    above = candidate;
            }
        }
        std::vector<std::string> nearest;
        for (const auto& candidate : {below, above})
            if (candidate)
                nearest.push_back(std::to_string(*candidate));
        const std::string hint = nearest.empty()      ? "; the file has no code"
                                 : nearest.size() == 1 ? "; the nearest line with code is " + nearest.front()
                                                       : "; the nearest lines with code are " + listed(nearest);
        throw notFound("no code at line " + std::to_string(line) + " of " + name + hint, moduleStatus(status));
    }
    json::array list;
    for (const auto& pair : addresses)
        list.push_back(json::object{{"Address", pair.address}, {"Function", pair.name}, {"File", name}, {"Line", line}});
    return {"Addresses", std::move(list)};
}

Answer Report::scope(uint64_t pc, bool members) const
{
    const auto context = need(parser_->createSymbolInformation(), "symbol")->getScopeContextFromPc(pc);
    if (!context)
        throw notFound("no scope holds the address " + hex(pc));
    return tree("Scope", context, pc, members);
}

Answer Report::symbols(uint64_t pc, bool members) const
{
    return tree("Symbols", root(need(parser_->createSymbolInformation(), "symbol")), pc, members);
}

Answer Report::lookup(const std::string& name, std::optional<uint64_t> pc, std::optional<uint64_t> scopeId,
                      bool members) const
{
    const auto symbols = need(parser_->createSymbolInformation(), "symbol");
    if (name.empty())
        throw usageError("NAME is empty; give the name of a symbol");
    SC::Ptr found;
    if (pc) {
        found = symbols->lookupSymbolFromPc(name, *pc, false);
    } else if (scopeId) {
        if (*scopeId > kMaxContextId || !isContext(*scopeId))
            throw notFound("no context " + std::to_string(*scopeId) + " in " + file_ + " to search from");
        const std::string id = std::to_string(*scopeId);
        std::string text = id;
        found = symbols->lookupSymbol(name, symbols->getSymbolContextFromID(id), text, false);
    } else {
        found = symbols->lookupGlobalSymbol(name, false);
    }
    if (!found)
        throw notFound("no symbol " + name + " is visible " +
                       (pc ? "at " + hex(*pc) : scopeId ? "from context " + std::to_string(*scopeId) : "globally"));
    return tree("Lookup", found, pc.value_or(kNoPc), members);
}

// The views never say how many contexts a file holds. Context numbers run without gaps through
// the scopes, the symbols and the types, and a number past them all answers what no record
// answers; the number no table can reach (the largest ID) shows what that is. So a number is a
// context when it answers anything else, or when a number above it does: a type record without
// name or tag answers like no record, and may stand anywhere in the type table. The look upwards
// ends after as many numbers as a type table can hold records, since the records a file leaves
// undefined answer a name. A nameless record at the very end of the type table answers exactly as
// the numbers past it do; nothing a host sees tells them apart, so it alone is not found.
bool Report::isContext(uint64_t id) const
{
    if (id == 0)
        return true;
    const auto symbols = need(parser_->createSymbolInformation(), "symbol");
    const auto nothing = signature(symbols->getSymbolContextFromID(std::to_string(kMaxContextId)));
    const uint64_t last = std::min(id + kMostTypeRecords, kMaxContextId - 1);
    for (uint64_t number = id; number <= last; ++number)
        if (signature(symbols->getSymbolContextFromID(std::to_string(number))) != nothing)
            return true;
    return false;
}

Answer Report::context(uint64_t id, bool members) const
{
    const auto symbols = need(parser_->createSymbolInformation(), "symbol");
    if (id > kMaxContextId)
        throw notFound("no context " + std::to_string(id) + ": context IDs go up to " + std::to_string(kMaxContextId));
    if (!isContext(id))
        throw notFound("no context " + std::to_string(id) + " in " + file_);
    return tree("Context", symbols->getSymbolContextFromID(std::to_string(id)), kNoPc, members);
}

// The module never names a context qualified, and a plain name may stand for several (a
// method of each of three classes); the place the model gives tells which is meant. Functions
// are the modules' children; variables those of the modules and, for a function's statics, of
// the functions.
Answer Report::lookupPlaced(const std::string& qualified, const std::vector<PlacedName>& candidates,
                            bool members) const
{
    const auto top = root(need(parser_->createSymbolInformation(), "symbol"));
    std::vector<SC::Ptr> functions, variables = top->getChildren(SC::DataSymbol);
    for (const auto& module : top->getChildren(SC::OtherSymbol))
        for (const auto& function : module->getChildren(SC::CodeSymbol)) {
            functions.push_back(function);
            const auto statics = function->getChildren(SC::DataSymbol);
            variables.insert(variables.end(), statics.begin(), statics.end());
        }
    for (const PlacedName& candidate : candidates) {
        for (const SC::Ptr& context : candidate.isFunction ? functions : variables) {
            if (!context || context->getName() != candidate.name)
                continue;
            if (candidate.isFunction) {
                // A scope's value holds its low address, least significant byte first.
                const std::vector<uint8_t> value = context->getValue();
                uint64_t low = 0;
                for (size_t i = value.size(); i-- > 0;)
                    low = (low << 8) | value[i];
                const uint64_t size = static_cast<uint64_t>(std::max(context->getSize(), 0));
                if (low >= candidate.low && low + size <= candidate.high)
                    return tree("Lookup", context, kNoPc, members);
                continue;
            }
            const auto location = context->getLocation(boost::make_shared<Frame>(kNoPc));
            if (location && location->getAddressingMode() == tarn::ILocation::Memory && !location->getPieces().empty() &&
                location->getPieces().front().address == candidate.low)
                return tree("Lookup", context, kNoPc, members);
        }
    }
    throw notFound("the module has no context for " + qualified + ", though the program holds it");
}

Answer Report::compiler() const
{
    const auto compiler = need(parser_->createCompilerInformation(), "compiler");
    json::array baseTypes;
    for (const auto& [id, info] : compiler->getBaseTypes())
        baseTypes.push_back(json::object{{"ID", id},
                                         {"Name", info.name},
                                         {"Size", info.size},
                                         {"Bits", info.bits},
                                         {"Signed", info.isSigned},
                                         {"ByteOrder", info.byteOrder},
                                         {"ByteOrderName", byteOrderName(info.byteOrder)}});
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
    return {"Compiler", std::move(result)};
}

// One width per memory, from the highest address its segments reach, so that every command
// prints a memory's addresses alike and never wider than the memory needs; whole bytes only.
AddressWidths Report::addressWidths() const
{
    AddressWidths widths;
    const auto binary = parser_->createBinaryInformation();
    if (!binary)
        return widths;
    for (const auto& segment : binary->getProgramSegments()) {
        const uint64_t size = segment->getSize();
        widths.cover(segment->getMemoryType(), segment->getStartAddress() + (size ? size - 1 : 0));
    }
    return widths;
}

} // namespace ubrofdump
