// The debugger's walk over every view of a parsed file, bounded by time and held contexts.
#include "fuzz/ViewWalker.h"

#include "host/CoreException.h"
#include "parser/UbrofParser.h"

#include <boost/json/serialize.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_set>
#include <vector>

namespace ubrof::walk {
namespace {

using Context = tarn::ISymbolContext;
using Clock = std::chrono::steady_clock;

// A debugger reads a segment in pieces of about this size to show or download it.
constexpr uint32_t kReadChunk = 4096;
// Bytes read of one segment. A segment spans from its lowest byte to its highest, so two bytes
// far apart make it gigabytes of fill that teach the walk nothing; this is more than any of the
// processors' memories.
constexpr uint64_t kSegmentBytes = 16u << 20;
// Names looked up at every program counter: enough to find locals and globals shadowing each
// other, few enough that the walk stays linear in the program counters.
constexpr size_t kNamesPerPc = 8;
// Names kept for lookups; a file with more is looked up by the first of them.
constexpr size_t kNamesKept = 1 << 12;

class Walker {
public:
    Walker(const WalkLimits& limits, WalkResult& result)
        : limits_(limits), result_(result), deadline_(Clock::now() + limits.time)
    {
    }

    /// False once a limit has been reached; from then on the walk only unwinds.
    bool going()
    {
        if (stopped_)
            return false;
        // The clock is read once every 64 calls: cheap enough, and precise enough.
        if ((++calls_ & 63) == 0 && Clock::now() > deadline_)
            stopped_ = true;
        return !stopped_;
    }
    bool stopped() const { return stopped_; }

    void walk(const tarn::IObjectfileParser& parser)
    {
        if (const auto binary = parser.createBinaryInformation())
            walkSegments(*binary);
        if (const auto compiler = parser.createCompilerInformation())
            walkCompiler(*compiler);
        if (const auto source = parser.createSourceInformation())
            walkSources(*source);
        if (const auto symbols = parser.createSymbolInformation())
            walkSymbols(*symbols);
    }

private:
    // FNV-1a over every answer; a separator keeps ("ab", "c") apart from ("a", "bc").
    void feed(const void* data, size_t size)
    {
        const auto* bytes = static_cast<const uint8_t*>(data);
        uint64_t hash = result_.digest;
        for (size_t i = 0; i < size; ++i)
            hash = (hash ^ bytes[i]) * 0x100000001B3ull;
        result_.digest = (hash ^ 0xFF) * 0x100000001B3ull;
    }
    void answer(uint64_t value)
    {
        ++result_.answers;
        feed(&value, sizeof value);
    }
    void answer(const std::string& text)
    {
        ++result_.answers;
        feed(text.data(), text.size());
    }

    void walkSegments(const tarn::IBinaryInformation& binary)
    {
        std::vector<uint8_t> data;
        for (const auto& segment : binary.getProgramSegments()) {
            const uint64_t start = segment->getStartAddress();
            const uint64_t size = segment->getSize();
            answer(segment->getName());
            answer(segment->getMemoryType());
            answer(start);
            answer(size);
            answer(segment->getLoadAddress());
            pcs_.insert(start);
            const uint64_t read = std::min(size, kSegmentBytes);
            for (uint64_t offset = 0; offset < read && going(); offset += kReadChunk) {
                segment->readData(data, start + offset, uint32_t(std::min<uint64_t>(kReadChunk, read - offset)));
                answer(data.size());
                feed(data.data(), data.size());
            }
            // Reads that begin outside the segment are clipped, not refused. One that misses the
            // segment leaves the vector as it was, so each starts from an empty one.
            data.clear();
            segment->readData(data, start + size, 16);
            answer(data.size());
            data.clear();
            segment->readData(data, start - 1, 2);
            answer(data.size());
        }
    }

    void walkCompiler(const tarn::ICompilerInformation& compiler)
    {
        answer(compiler.getMachine());
        answer(compiler.isBigEndian());
        answer(compiler.getProducer());
        for (const auto& [id, type] : compiler.getBaseTypes()) {
            answer(uint64_t(id));
            answer(type.name);
            answer(type.size);
            answer(type.bits);
            answer(type.isSigned);
            answer(type.byteOrder);
        }
        // Not const in the host's interface, though it only builds a new value.
        const auto info = const_cast<tarn::ICompilerInformation&>(compiler).createCompilerInfo();
        if (info) {
            for (int32_t word : info->words)
                answer(uint64_t(word));
            answer(info->flags[0] | info->flags[1] << 8 | info->flags[2] << 16);
            answer(uint64_t(info->last));
        }
    }

    void walkSources(const tarn::ISourceInformation& source)
    {
        tarn::Status status;
        std::vector<std::string> files;
        answer(source.getSourcefiles(status, files));
        for (const std::string& file : files)
            answer(file);

        std::vector<tarn::CodeArea> areas;
        answer(source.getCodeAreasFromAddressRange(status, 0, 0xFFFFFFFF, areas));
        std::set<std::tuple<std::string, uint64_t, uint64_t>> statements;
        for (const tarn::CodeArea& area : areas) {
            answer(area.functionName);
            answer(area.fileName);
            answer(area.startLine);
            answer(area.endLine);
            answer(area.startColumn);
            answer(area.startAddress);
            answer(area.endAddress);
            answer(area.isStatement);
            pcs_.insert(area.startAddress);
            if (area.endAddress > area.startAddress)
                pcs_.insert(area.endAddress - 1);
            statements.emplace(area.fileName, area.startLine, area.startColumn);
        }
        try {
            source.getCodeAreasFromAddressRange(status, 2, 1, areas);
            answer(uint64_t(0));
        } catch (const tarn::CoreException& e) {
            answer(uint64_t(e.getErrorCode()));
        }

        // What a breakpoint on each line asks, and what stepping asks at each statement.
        std::vector<tarn::AddressNamePair> addresses;
        for (const auto& [file, line, column] : statements) {
            if (!going())
                return;
            const tarn::CodeLocation location{uint32_t(line), uint32_t(column)};
            answer(source.getAddressesFromSingleStatement(status, file, location, addresses));
            for (const tarn::AddressNamePair& pair : addresses) {
                answer(pair.address);
                answer(pair.name);
            }
        }
        for (uint64_t pc : pcs_) {
            if (!going())
                return;
            answer(source.getCodeAreasFromAddressRange(status, pc, pc, areas));
            answer(areas.size());
        }
    }

    void describe(const Context& context, uint64_t pc)
    {
        answer(context.getId());
        answer(context.getName());
        answer(context.getSymbolClass());
        answer(context.getStorageClass());
        answer(context.getTypeClass());
        answer(uint64_t(context.getSize()));
        answer(uint64_t(context.getLength()));
        answer(uint64_t(context.getOffset()));
        answer(context.getAddress());
        const std::vector<uint8_t> value = context.getValue();
        feed(value.data(), value.size());
        answer(context.isBitField());
        answer(uint64_t(context.getBitSize()));
        answer(uint64_t(context.getBitOffset()));
        for (int32_t dimension : context.getArrayDimensions())
            answer(uint64_t(dimension));
        answer(boost::json::serialize(context.getProperties()));
        const auto location = context.getLocation(frameAt(pc));
        answer(location->getAddressingMode());
        for (const tarn::MemoryPiece& piece : location->getPieces()) {
            answer(piece.address);
            answer(uint64_t(piece.offset));
            answer(piece.memorySpace);
            answer(piece.registerNumber);
            answer(piece.size);
            answer(piece.bitOffset);
            answer(piece.bitSize);
        }
        for (const Context::Ptr& related :
             {context.getTypeContext(), context.getBaseTypeContext(), context.getIndexTypeContext()}) {
            answer(related ? related->getId() : std::string("-"));
            // A type is walked once, wherever it is first met; its members come with it.
            if (related && related->getSymbolClass() == Context::TypeSymbol && types_.insert(related->getId()).second)
                pending_.push_back({related, 0, pc});
        }
        answer(bool(context.lookupChild(Context::DataSymbol, context.getName())));
        const Context::SymbolClass symbolClass = context.getSymbolClass();
        // An empty name is refused by every lookup, which the walk asks once on its own.
        if ((symbolClass == Context::DataSymbol || symbolClass == Context::CodeSymbol) && names_.size() < kNamesKept &&
            !context.getName().empty())
            names_.insert(context.getName());
        if (symbolClass == Context::CodeSymbol)
            pcs_.insert(context.getAddress());
    }

    /// Walks the tree below each pending context, depth first, with an explicit stack: a file may
    /// nest blocks deeper than the thread's stack would take.
    void walkTree()
    {
        while (!pending_.empty() && going()) {
            if (pending_.size() > limits_.heldContexts) {
                stopped_ = true;
                return;
            }
            const Pending next = std::move(pending_.back());
            pending_.pop_back();
            describe(*next.context, next.pc);
            if (next.depth >= limits_.depth)
                continue;
            for (int symbolClass = Context::OtherSymbol; symbolClass <= Context::TypeSymbol; ++symbolClass) {
                auto children = next.context->getChildren(Context::SymbolClass(symbolClass));
                answer(children.size());
                // Reversed, so that the stack hands them out in the order the view gave them.
                for (auto child = children.rbegin(); child != children.rend(); ++child)
                    pending_.push_back({std::move(*child), next.depth + 1, next.pc});
            }
        }
    }

    void walkSymbols(const tarn::ISymbolInformation& symbols)
    {
        if (const Context::Ptr root = symbols.getSymbolContextFromID("0"))
            pending_.push_back({root, 0, 0});
        walkTree();

        // A stop at every program counter the views named: the scope, its locals where they are
        // then, and the names a watch window would evaluate there.
        std::vector<std::string> names(names_.begin(), names_.end());
        size_t nextName = 0;
        for (uint64_t pc : pcs_) {
            if (!going())
                return;
            const Context::Ptr scope = symbols.getScopeContextFromPc(pc);
            answer(bool(scope));
            if (scope) {
                describe(*scope, pc);
                for (const Context::Ptr& local : scope->getChildren(Context::DataSymbol))
                    if (going())
                        describe(*local, pc);
            }
            for (size_t i = 0; i < kNamesPerPc && i < names.size(); ++i) {
                const Context::Ptr found = symbols.lookupSymbolFromPc(names[nextName++ % names.size()], pc, false);
                answer(found ? found->getId() : std::string("-"));
            }
            walkTree();
        }

        std::string text;
        const Context::Ptr root = symbols.getSymbolContextFromID("0");
        for (const std::string& name : names) {
            if (!going())
                return;
            for (const Context::Ptr& found : symbols.lookupGlobalSymbols(name))
                answer(found->getId());
            const Context::Ptr global = symbols.lookupGlobalSymbol(name, false);
            answer(global ? global->getId() : std::string("-"));
            const Context::Ptr scoped = symbols.lookupSymbol(name, root, text, false);
            answer(scoped ? scoped->getId() : std::string("-"));
        }
        // IDs a host may hold from another file, or have mangled.
        for (const char* id : {"1", "2", "5", "100", "65536", "4294967295", "4294967301", " 7x", "-1", ""}) {
            const Context::Ptr context = symbols.getSymbolContextFromID(id);
            answer(context ? context->getId() : std::string("-"));
            if (context)
                pending_.push_back({context, limits_.depth - 1, 0});
        }
        walkTree();
        try {
            symbols.lookupSymbol("", nullptr, text, false);
        } catch (const tarn::CoreException& e) {
            answer(uint64_t(e.getErrorCode()));
        }
    }

    struct Pending {
        Context::Ptr context;
        unsigned depth;
        uint64_t pc;
    };

    const WalkLimits& limits_;
    WalkResult& result_;
    Clock::time_point deadline_;
    bool stopped_ = false;
    uint64_t calls_ = 0;
    std::vector<Pending> pending_;
    std::set<uint64_t> pcs_ = {0, 1, 0xFFFFFFFF};
    std::set<std::string> names_ = {"main"};
    std::unordered_set<std::string> types_;
};

class Frame : public tarn::IStackTraceContext {
public:
    explicit Frame(uint64_t pc) : pc_(pc) {}
    uint64_t getProgramCounter() const override { return pc_; }
    uint64_t getFramePointer() const override { return 0; }

private:
    uint64_t pc_;
};

} // namespace

boost::shared_ptr<tarn::IStackTraceContext> frameAt(uint64_t pc)
{
    return boost::make_shared<Frame>(pc);
}

WalkResult walkViews(const tarn::IObjectfileParser& parser, const WalkLimits& limits)
{
    WalkResult result;
    result.parsed = true;
    result.digest = 0xCBF29CE484222325ull;
    Walker walker(limits, result);
    walker.walk(parser);
    result.complete = !walker.stopped();
    return result;
}

WalkResult walkFile(const std::string& path, const WalkLimits& limits)
{
    std::optional<UbrofParser> parser;
    try {
        parser.emplace(path);
    } catch (const tarn::CoreException& e) {
        WalkResult result;
        result.error = e.what();
        return result;
    }
    // Past the parse, an exception is the views' fault and must reach the caller.
    return walkViews(*parser, limits);
}

} // namespace ubrof::walk
