// Store queries over the scope tree: context numbers, the scope at an address, names from a scope outwards.
#include "parser/TarnUbrofParser.h"

#include <algorithm>
#include <unordered_map>

namespace ubrof {

uint32_t TarnUbrofParser::encodeContextId(uint32_t kind, int32_t index) const
{
    if (index < 0)
        return 0;
    const uint32_t scopes = static_cast<uint32_t>(blockTree.blocks.size());
    const uint32_t symbols = static_cast<uint32_t>(symbolTable.symbols.size());
    const uint32_t position = static_cast<uint32_t>(index);
    switch (kind) {
    case ScopeContext:
        return position + 1;
    case SymbolContext:
        return scopes + 1 + position;
    case TypeContext:
        return scopes + symbols + 1 + position;
    default:
        return 0;
    }
}

int32_t TarnUbrofParser::decodeContextId(uint32_t context, uint32_t* kind) const
{
    // Context numbers are signed on the host side, so the upper half of the range is invalid.
    const int64_t number = static_cast<int32_t>(context);
    const int64_t scopes = static_cast<int64_t>(blockTree.blocks.size());
    const int64_t symbols = static_cast<int64_t>(symbolTable.symbols.size());
    const int64_t types = static_cast<int64_t>(typeTable.getCount());
    uint32_t decodedKind;
    int64_t index;
    if (number <= 0)
        return -1;
    if (number <= scopes) {
        decodedKind = ScopeContext;
        index = number - 1;
    } else if (number <= scopes + symbols) {
        decodedKind = SymbolContext;
        index = number - scopes - 1;
    } else if (number <= scopes + symbols + types) {
        decodedKind = TypeContext;
        index = number - scopes - symbols - 1;
    } else {
        return -1;
    }
    if (kind)
        *kind = decodedKind;
    return static_cast<int32_t>(index);
}

TarnUbrofParser::SegmentIndex TarnUbrofParser::makeSegmentIndex(std::vector<Span> spans, bool lowestWins)
{
    SegmentIndex index;
    // Spans side by side in address order, as modules and functions are laid out, need no
    // precedence: the pieces are the spans and the gaps between them.
    bool sideBySide = true;
    for (size_t i = 0; i < spans.size() && sideBySide; ++i)
        sideBySide = spans[i].low < spans[i].high && (i == 0 || spans[i].low >= spans[i - 1].high);
    if (sideBySide) {
        for (const Span& span : spans) {
            if (index.bounds.empty() || index.bounds.back() != span.low) {
                index.bounds.push_back(span.low);
                index.winner.push_back(-1);
            }
            index.winner.back() = span.position;
            index.bounds.push_back(span.high);
            index.winner.push_back(-1);
        }
        if (!index.winner.empty())
            index.winner.pop_back();
        return index;
    }
    for (const Span& span : spans) {
        index.bounds.push_back(span.low);
        index.bounds.push_back(span.high);
    }
    std::sort(index.bounds.begin(), index.bounds.end());
    index.bounds.erase(std::unique(index.bounds.begin(), index.bounds.end()), index.bounds.end());
    if (index.bounds.size() < 2)
        return SegmentIndex();
    const size_t pieces = index.bounds.size() - 1;
    index.winner.assign(pieces, -1);

    // Spans are laid in order of precedence; each piece keeps the first span that reaches it.
    // next[i] skips to the first piece at or after i that has no winner yet, so every piece is
    // assigned once however much the spans overlap.
    std::stable_sort(spans.begin(), spans.end(), [lowestWins](const Span& a, const Span& b) {
        return lowestWins ? a.position < b.position : a.position > b.position;
    });
    std::vector<size_t> next(pieces + 1);
    for (size_t i = 0; i <= pieces; ++i)
        next[i] = i;
    auto firstOpen = [&](size_t i) {
        while (next[i] != i) {
            next[i] = next[next[i]];
            i = next[i];
        }
        return i;
    };
    for (const Span& span : spans) {
        const auto first = size_t(std::lower_bound(index.bounds.begin(), index.bounds.end(), span.low) -
                                  index.bounds.begin());
        const auto last = size_t(std::lower_bound(index.bounds.begin(), index.bounds.end(), span.high) -
                                 index.bounds.begin());
        for (size_t i = firstOpen(first); i < last; i = firstOpen(i + 1)) {
            index.winner[i] = span.position;
            next[i] = i + 1;
        }
    }
    return index;
}

void TarnUbrofParser::SegmentIndex::divide()
{
    stretches.clear();
    shift = 0;
    if (bounds.size() < 64)
        return;
    const uint64_t span = bounds.back() - bounds.front();
    while ((span >> shift) > bounds.size())
        ++shift;
    const size_t count = size_t(span >> shift) + 2;
    stretches.resize(count + 1);
    size_t bound = 0;
    for (size_t s = 0; s <= count; ++s) {
        const uint64_t start = bounds.front() + (uint64_t(s) << shift);
        while (bound < bounds.size() && bounds[bound] < start)
            ++bound;
        stretches[s] = static_cast<uint32_t>(bound);
    }
}

int32_t TarnUbrofParser::SegmentIndex::at(uint32_t pc, uint64_t* low, uint64_t* high) const
{
    const int64_t piece = pieceAt(pc, low, high);
    return piece < 0 ? -1 : winner[size_t(piece)];
}

size_t TarnUbrofParser::SegmentIndex::nearPiece(uint32_t pc) const
{
    if (stretches.empty() || pc < bounds.front())
        return 0;
    return stretches[std::min<size_t>((uint64_t(pc) - bounds.front()) >> shift, stretches.size() - 2)];
}

int64_t TarnUbrofParser::SegmentIndex::pieceAt(uint32_t pc, uint64_t* low, uint64_t* high) const
{
    auto first = bounds.begin(), last = bounds.end();
    if (!stretches.empty() && pc >= bounds.front()) {
        // The first bound above pc is at or after its stretch's first, and no later than the next's.
        const size_t s = std::min<size_t>((uint64_t(pc) - bounds.front()) >> shift, stretches.size() - 2);
        first = bounds.begin() + stretches[s];
        last = bounds.begin() + std::min<size_t>(size_t(stretches[s + 1]) + 1, bounds.size());
    }
    const auto after = std::upper_bound(first, last, uint64_t(pc));
    if (after != bounds.end() && high)
        *high = std::min(*high, *after);
    if (after != bounds.begin() && low)
        *low = std::max(*low, *(after - 1));
    if (after == bounds.begin() || after == bounds.end())
        return -1;
    return int64_t(after - bounds.begin()) - 1;
}

void TarnUbrofParser::indexScopes()
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    auto covers = [&](uint32_t scope) {
        return scope < blocks.size() && blocks[scope].lowAddress < blocks[scope].highAddress;
    };

    // Every scope's pieces go into one pair of arrays: a scope without children costs its slice.
    childSlices_.clear();
    childPieces_.clear();
    childSlices_.reserve(blocks.size());
    // A scope's pieces are at most two per child, and every block is one scope's child: room
    // for them all at once spares the copies, and the moment of twice the memory, of growing.
    size_t pieces = 0;
    for (uint32_t scope = 0; scope < blocks.size(); ++scope)
        pieces += 2 * blockTree.children(scope).size();
    childPieces_.reserve(pieces);
    std::vector<Span> children;
    for (uint32_t scope = 0; scope < blocks.size(); ++scope) {
        children.clear();
        const IndexRange list = blockTree.children(scope);
        bool disjoint = true;
        for (size_t i = 0; i < list.size(); ++i) {
            const uint32_t child = list[i];
            if (!covers(child))
                continue;
            if (!children.empty() && blocks[child].lowAddress < children.back().high)
                disjoint = false;
            children.push_back({blocks[child].lowAddress, blocks[child].highAddress, int32_t(i)});
        }
        const auto first = static_cast<uint32_t>(childPieces_.size());
        if (disjoint) {
            // Children side by side in address order, as compilers lay them out: the pieces
            // are the children and the gaps between them.
            for (const Span& span : children) {
                if (childPieces_.size() == first || childPieces_.back().low != span.low)
                    childPieces_.push_back({static_cast<uint32_t>(span.low), {-1, -1, {}}});
                childPieces_.back().winner.scope = static_cast<int32_t>(list[size_t(span.position)]);
                childPieces_.push_back({static_cast<uint32_t>(span.high), {-1, -1, {}}});
            }
        } else {
            const SegmentIndex index = makeSegmentIndex(children, true);
            for (size_t i = 0; i < index.bounds.size(); ++i) {
                const int32_t position = i < index.winner.size() ? index.winner[i] : -1;
                childPieces_.push_back({static_cast<uint32_t>(index.bounds[i]),
                                        {position < 0 ? -1 : static_cast<int32_t>(list[size_t(position)]), -1, {}}});
            }
        }
        childSlices_.push_back({first, static_cast<uint32_t>(childPieces_.size()) - first});
    }
    // A child's slice is known once every scope has its own.
    for (ChildPiece& piece : childPieces_) {
        ChildWinner& winner = piece.winner;
        if (winner.scope >= 0) {
            winner.slice = childSlices_[size_t(winner.scope)];
            winner.name = blocks[size_t(winner.scope)].nameIndex;
        }
    }
    rootWinners_.clear();
    for (uint32_t root : blockTree.roots)
        rootWinners_.push_back(root < blocks.size()
                                   ? ChildWinner{int32_t(root), blocks[root].nameIndex, childSlices_[root]}
                                   : ChildWinner{-1, -1, {}});

    // The plain walk answers with the first top-level scope that holds pc and claims it
    // (through a child, or through the last record of one of its line ranges), else with
    // the last one that holds it.
    std::vector<Span> holding;
    std::vector<Span> claiming;
    for (size_t i = 0; i < blockTree.roots.size(); ++i) {
        if (!covers(blockTree.roots[i]))
            continue;
        const BlockRecord& module = blocks[blockTree.roots[i]];
        holding.push_back({module.lowAddress, module.highAddress, int32_t(i)});
        auto claim = [&](uint64_t low, uint64_t high) {
            low = std::max<uint64_t>(low, module.lowAddress);
            high = std::min<uint64_t>(high, module.highAddress);
            if (low < high)
                claiming.push_back({low, high, int32_t(i)});
        };
        for (uint32_t child : blockTree.children(blockTree.roots[i])) {
            if (covers(child))
                claim(blocks[child].lowAddress, blocks[child].highAddress);
        }
        for (uint32_t rangeIndex : blockTree.lineRanges(blockTree.roots[i])) {
            if (rangeIndex >= fileLineRanges.size() || fileLineRanges[rangeIndex].lineRecordCount == 0)
                continue;
            const FileLineRange& range = fileLineRanges[rangeIndex];
            const uint64_t last = uint64_t(range.firstLineRecord) + range.lineRecordCount - 1;
            if (last < lineTable.size())
                claim(lineTable.address(last), uint64_t(lineTable.address(last)) + lineTable.codeSize(last));
        }
    }
    moduleHolding_ = makeSegmentIndex(std::move(holding), false);
    moduleClaiming_ = makeSegmentIndex(std::move(claiming), true);
    moduleHolding_.divide();
    moduleClaiming_.divide();
    indexClaimedChildren();
}

namespace {

/// The first piece that starts above pc, as std::upper_bound over the starts.
template <typename Piece>
const Piece* pieceAfter(const Piece* first, const Piece* last, uint32_t pc)
{
    return std::upper_bound(first, last, pc, [](uint32_t value, const Piece& piece) { return value < piece.low; });
}

} // namespace

void TarnUbrofParser::indexClaimedChildren()
{
    claimedPieces_.clear();
    const SegmentIndex& claims = moduleClaiming_;
    claimedPieces_.reserve(claims.winner.size());
    for (size_t i = 0; i < claims.winner.size() && i + 1 < claims.bounds.size(); ++i) {
        const int32_t module = claims.winner[i];
        if (module < 0 || size_t(module) >= rootWinners_.size() || rootWinners_[size_t(module)].scope < 0) {
            claimedPieces_.push_back({module, -1});
            continue;
        }
        // As childIn answers for the piece's start. Every bound of the module's children inside
        // the module is a bound of some claimed piece, so no piece holds one: a single child
        // piece, or none, answers for the whole of it.
        const uint64_t low = claims.bounds[i];
        const ChildSlice slice = rootWinners_[size_t(module)].slice;
        const ChildPiece* first = childPieces_.data() + slice.first;
        const ChildPiece* last = first + slice.count;
        const ChildPiece* after = low > UINT32_MAX ? last : pieceAfter(first, last, uint32_t(low));
        const size_t entry = slice.first + size_t(after - first) - 1;
        const bool none = after == first || after == last || childPieces_[entry].winner.scope < 0;
        claimedPieces_.push_back({module, none ? -1 : int32_t(entry)});
    }
}

int32_t TarnUbrofParser::childIn(ChildSlice slice, uint32_t pc, uint64_t* low, uint64_t* high,
                                 const ChildWinner** found) const
{
    const ChildPiece* first = childPieces_.data() + slice.first;
    const ChildPiece* last = first + slice.count;
    const ChildPiece* after = pieceAfter(first, last, pc);
    if (after != last && high)
        *high = std::min<uint64_t>(*high, after->low);
    if (after != first && low)
        *low = std::max<uint64_t>(*low, (after - 1)->low);
    if (after == first || after == last)
        return -1;
    const ChildWinner& winner = (after - 1)->winner;
    if (found && winner.scope >= 0)
        *found = &winner;
    return winner.scope;
}

int32_t TarnUbrofParser::scopeHolding(IndexRange scopes, uint32_t pc) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    for (uint32_t scope : scopes) {
        if (scope < blocks.size() && blocks[scope].holds(pc))
            return static_cast<int32_t>(scope);
    }
    return -1;
}

int32_t TarnUbrofParser::innermostBelow(uint32_t scope, uint32_t pc, uint64_t* low, uint64_t* high) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    const bool indexed = scopesIndexed();
    int32_t found = -1;
    ChildSlice slice = indexed ? childSlices_[scope] : ChildSlice{};
    // A tree filled by hand could loop; a real one is never deeper than it has blocks.
    for (size_t depth = 0; depth < blocks.size(); ++depth) {
        int32_t child = -1;
        if (indexed) {
            const ChildWinner* winner = nullptr;
            child = childIn(slice, pc, low, high, &winner);
            if (winner)
                slice = winner->slice;
        } else {
            child = scopeHolding(blockTree.children(scope), pc);
        }
        if (child < 0)
            break;
        found = child;
        scope = static_cast<uint32_t>(child);
    }
    return found;
}

bool TarnUbrofParser::lineRangesEndAt(uint32_t module, uint32_t pc) const
{
    for (uint32_t rangeIndex : blockTree.lineRanges(module)) {
        if (rangeIndex >= fileLineRanges.size())
            continue;
        const FileLineRange& range = fileLineRanges[rangeIndex];
        if (range.lineRecordCount == 0)
            continue;
        const uint64_t last = uint64_t(range.firstLineRecord) + range.lineRecordCount - 1;
        if (last >= lineTable.size())
            continue;
        const uint32_t address = lineTable.address(last);
        if (address <= pc && pc - address < lineTable.codeSize(last))
            return true;
    }
    return false;
}

int32_t TarnUbrofParser::findScopeAtAddress(uint32_t pc) const
{
    uint64_t low = 0, high = 0;
    return scopeAtAddress(pc, &low, &high);
}

int32_t TarnUbrofParser::scopeAtAddress(uint32_t pc, uint64_t* low, uint64_t* high) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    if (scopesIndexed()) {
        // The answer holds over the piece of every index consulted on the way.
        *low = 0;
        *high = uint64_t(1) << 32;
        const int32_t claimed = moduleClaiming_.at(pc, low, high);
        if (claimed >= 0) {
            const uint32_t module = blockTree.roots[size_t(claimed)];
            const int32_t inner = innermostBelow(module, pc, low, high);
            return inner >= 0 ? inner : static_cast<int32_t>(module);
        }
        const int32_t held = moduleHolding_.at(pc, low, high);
        return held >= 0 ? static_cast<int32_t>(blockTree.roots[size_t(held)]) : -1;
    }
    *low = pc;
    *high = uint64_t(pc) + 1;
    int32_t result = -1;
    for (uint32_t module : blockTree.roots) {
        if (module >= blocks.size() || !blocks[module].holds(pc))
            continue;
        result = static_cast<int32_t>(module);
        const int32_t inner = innermostBelow(module, pc, nullptr, nullptr);
        if (inner >= 0)
            return inner;
        if (lineRangesEndAt(module, pc))
            return result;
    }
    return result;
}

int32_t TarnUbrofParser::scopeAlong(uint32_t pc, ScopeTrail& trail, uint64_t* low, uint64_t* high,
                                    int32_t* name) const
{
    if (!scopesIndexed()) {
        const int32_t scope = scopeAtAddress(pc, low, high);
        *name = scope < 0 ? -1 : blockTree.blocks[size_t(scope)].nameIndex;
        return scope;
    }
    std::vector<ScopeTrail::Level>& levels = trail.levels;
    auto push = [&](const ChildWinner* found, uint64_t pieceLow, uint64_t pieceHigh) {
        const int32_t scope = found ? found->scope : -1;
        // The deepest level's name is read last; its record arrives while the walk goes on.
        if (found && found->name >= 0)
            nameTable.records.prefetch(size_t(found->name));
        ScopeTrail::Level level{scope, pieceLow, pieceHigh, pieceLow, pieceHigh, scope, found ? found->name : -1};
        if (!levels.empty()) {
            const ScopeTrail::Level& above = levels.back();
            level.jointLow = std::max(above.jointLow, pieceLow);
            level.jointHigh = std::min(above.jointHigh, pieceHigh);
            if (scope < 0) {
                level.jointScope = above.jointScope;
                level.jointName = above.jointName;
            }
        }
        levels.push_back(level);
    };
    // The joint ranges nest, so the levels that still hold are a prefix found by bisection.
    const auto holds = std::partition_point(levels.begin(), levels.end(), [pc](const ScopeTrail::Level& level) {
        return level.jointLow <= pc && pc < level.jointHigh;
    });
    const size_t kept = size_t(holds - levels.begin());
    auto rootWinner = [&](int32_t found) {
        return found >= 0 && rootWinners_[size_t(found)].scope >= 0 ? &rootWinners_[size_t(found)] : nullptr;
    };
    ChildSlice slice{};
    bool down = false;
    if (kept == 0) {
        uint64_t pieceLow = 0, pieceHigh = uint64_t(1) << 32;
        // The piece's entry is fetched while its bounds are searched, not after.
        const size_t near = moduleClaiming_.nearPiece(pc);
        if (near < claimedPieces_.size())
            __builtin_prefetch(&claimedPieces_[near > 0 ? near - 1 : 0]);
        const int64_t piece = moduleClaiming_.pieceAt(pc, &pieceLow, &pieceHigh);
        const ClaimedPiece* claimed =
            piece < 0 || size_t(piece) >= claimedPieces_.size() ? nullptr : &claimedPieces_[size_t(piece)];
        trail.claimed = claimed && claimed->module >= 0;
        levels.clear();
        if (trail.claimed) {
            // The module and its child over the piece they share: each level holds over it.
            push(rootWinner(claimed->module), pieceLow, pieceHigh);
            const ChildWinner* child = claimed->child >= 0 ? &childPieces_[size_t(claimed->child)].winner : nullptr;
            if (levels.back().scope >= 0) {
                push(child, pieceLow, pieceHigh);
                down = child != nullptr;
                if (child)
                    slice = child->slice;
            }
        } else {
            push(rootWinner(moduleHolding_.at(pc, &pieceLow, &pieceHigh)), pieceLow, pieceHigh);
        }
    } else {
        levels.resize(kept);
        down = trail.claimed && levels.back().scope >= 0;
        if (down)
            slice = childSlices_[size_t(levels.back().scope)];
    }
    // Down from the last level that still holds, as innermostBelow goes, as many steps at most.
    if (down) {
        while (levels.size() - 1 < blockTree.blocks.size()) {
            uint64_t pieceLow = 0, pieceHigh = uint64_t(1) << 32;
            const ChildWinner* winner = nullptr;
            childIn(slice, pc, &pieceLow, &pieceHigh, &winner);
            push(winner, pieceLow, pieceHigh);
            if (!winner)
                break;
            slice = winner->slice;
        }
    }
    *low = std::max<uint64_t>(levels.back().jointLow, 0);
    *high = std::min<uint64_t>(levels.back().jointHigh, uint64_t(1) << 32);
    *name = levels.back().jointName;
    return levels.back().jointScope;
}

bool TarnUbrofParser::isVariableNamed(uint32_t symbol, const std::string& name) const
{
    const ChunkedVector<SymbolRecord>& symbols = symbolTable.symbols;
    // Kinds 6 and 9 are not variables the debugger can show by name.
    return symbol < symbols.size() && symbols[symbol].kind != 6 && symbols[symbol].kind != 9 &&
           nameTable.nameIs(symbols[symbol].nameIndex, name);
}

int32_t TarnUbrofParser::findSymbolInScope(int32_t scope, const std::string& name) const
{
    if (scope < 0 || static_cast<size_t>(scope) >= blockTree.blocks.size())
        return -1;
    for (uint32_t symbol : blockTree.symbols(static_cast<uint32_t>(scope))) {
        if (isVariableNamed(symbol, name))
            return static_cast<int32_t>(symbol);
    }
    return findSymbolInGroups(static_cast<uint32_t>(scope), name);
}

int32_t TarnUbrofParser::findSymbolInGroups(uint32_t scope, const std::string& name) const
{
    for (uint32_t group : blockTree.groups(scope)) {
        if (group >= groupTable.size())
            continue;
        for (uint32_t symbol : groupTable[group].symbols) {
            if (isVariableNamed(symbol, name))
                return static_cast<int32_t>(symbol);
        }
    }
    return -1;
}

int32_t TarnUbrofParser::moduleSymbol(uint32_t position, const std::string& name, uint32_t hash) const
{
    // A module's entries of one hash keep the order of its list, so the first of the name is
    // the one a walk over the list would find.
    const uint32_t bucket = hash >> (32 - kNameBucketBits);
    const auto end = moduleNames_.begin() + moduleNameBuckets_[bucket + 1];
    for (auto it = std::lower_bound(moduleNames_.begin() + moduleNameBuckets_[bucket], end, ModuleName{hash, position, 0});
         it != end && it->hash == hash && it->module == position; ++it) {
        if (nameTable.nameIs(symbolTable.symbols[it->symbol].nameIndex, name))
            return static_cast<int32_t>(it->symbol);
    }
    return findSymbolInGroups(blockTree.roots[position], name);
}

int32_t TarnUbrofParser::lookupName(int32_t scope, const std::string& name, int32_t* foundScope) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    const bool indexed = namesIndexed();
    const uint32_t nameHash = indexed ? hashName(name) : 0;
    // A module lists hundreds of symbols, each a few cache misses away in a large file: through
    // the index its own answer costs a lookup instead.
    auto inScope = [&](int32_t at) {
        if (indexed && blocks[size_t(at)].parent < 0) {
            const auto root = std::lower_bound(blockTree.roots.begin(), blockTree.roots.end(), uint32_t(at));
            if (root != blockTree.roots.end() && *root == uint32_t(at))
                return moduleSymbol(uint32_t(root - blockTree.roots.begin()), name, nameHash);
        }
        return findSymbolInScope(at, name);
    };
    int32_t walkEnd = -1;
    for (size_t depth = 0; scope >= 0 && static_cast<size_t>(scope) < blocks.size() && depth < blocks.size();
         ++depth) {
        const int32_t symbol = inScope(scope);
        if (symbol >= 0) {
            if (foundScope)
                *foundScope = scope;
            return symbol;
        }
        walkEnd = scope;
        scope = blocks[static_cast<size_t>(scope)].parent;
    }
    auto inModule = [&](uint32_t module) {
        if (static_cast<int32_t>(module) == walkEnd)
            return -1;
        const int32_t symbol = findSymbolInScope(static_cast<int32_t>(module), name);
        if (symbol >= 0 && foundScope)
            *foundScope = -1;
        return symbol;
    };
    if (!namesIndexed()) {
        for (uint32_t module : blockTree.roots) {
            if (const int32_t symbol = inModule(module); symbol >= 0)
                return symbol;
        }
        return -1;
    }
    // Only the modules that list a symbol of the name, or that reach groups, can hold it; they
    // are asked in module order, as the plain walk would. A module's first listed symbol of
    // the name is what findSymbolInScope would answer, groups or not.
    const uint32_t hash = nameHash;
    const uint32_t bucket = hash >> (32 - kNameBucketBits);
    auto listed = moduleNames_.begin() + moduleNameBuckets_[bucket];
    const auto listedEnd = moduleNames_.begin() + moduleNameBuckets_[bucket + 1];
    auto grouped = modulesWithGroups_.begin();
    for (;;) {
        while (listed != listedEnd && listed->hash != hash)
            ++listed;
        const bool moreListed = listed != listedEnd;
        const bool moreGrouped = grouped != modulesWithGroups_.end();
        if (!moreListed && !moreGrouped)
            return -1;
        if (moreListed && (!moreGrouped || listed->module <= *grouped)) {
            const uint32_t position = listed->module;
            const ModuleName& first = *listed;
            ++listed;
            if (moreGrouped && *grouped == position)
                ++grouped;
            if (!nameTable.nameIs(symbolTable.symbols[first.symbol].nameIndex, name)) {
                // Another name of the same hash: the module's symbols of this one may follow.
                int32_t symbol = -1;
                for (; listed != listedEnd && listed->module == position && symbol < 0; ++listed)
                    if (listed->hash == hash && nameTable.nameIs(symbolTable.symbols[listed->symbol].nameIndex, name))
                        symbol = static_cast<int32_t>(listed->symbol);
                if (symbol < 0) {
                    if (const int32_t found = inModule(blockTree.roots[position]); found >= 0)
                        return found;
                    continue;
                }
                if (static_cast<int32_t>(blockTree.roots[position]) == walkEnd)
                    continue;
                if (foundScope)
                    *foundScope = -1;
                return symbol;
            }
            if (static_cast<int32_t>(blockTree.roots[position]) == walkEnd)
                continue;
            if (foundScope)
                *foundScope = -1;
            return static_cast<int32_t>(first.symbol);
        }
        if (const int32_t found = inModule(blockTree.roots[*grouped++]); found >= 0)
            return found;
    }
}

uint32_t TarnUbrofParser::hashName(std::string_view name)
{
    uint32_t hash = 2166136261u;
    for (unsigned char c : name)
        hash = (hash ^ c) * 16777619u;
    return hash;
}

bool TarnUbrofParser::namesIndexed() const
{
    return namesIndexedFor_ == std::array<size_t, 4>{blockTree.roots.size(), blockTree.blocks.size(),
                                                     symbolTable.symbols.size(), nameTable.records.size()} &&
           !blockTree.roots.empty();
}

void TarnUbrofParser::indexNames()
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    const NameRecords& names = nameTable.records;
    moduleNames_.clear();
    modulesWithGroups_.clear();
    functionNames_.clear();
    uint32_t place = 0;
    std::string scratch;
    // One scoped name may name every block of a file, at up to 4 GiB of text: a long name is
    // hashed once however many blocks it names. Short ones, nearly all, cost less to hash again
    // than to look up.
    constexpr size_t kLongName = 1024;
    std::unordered_map<uint32_t, uint32_t> longNameHashes;
    auto blockNameHash = [&](uint32_t nameIndex) {
        const std::string_view text = names.text(nameIndex);
        if (text.size() < kLongName)
            return hashName(text);
        const auto [at, added] = longNameHashes.try_emplace(nameIndex, 0);
        if (added)
            at->second = hashName(text);
        return at->second;
    };
    for (uint32_t position = 0; position < blockTree.roots.size(); ++position) {
        const uint32_t module = blockTree.roots[position];
        if (module >= blocks.size())
            continue;
        for (uint32_t symbol : blockTree.symbols(module)) {
            if (symbol < symbolTable.symbols.size() && symbolTable.symbols[symbol].kind != 6 &&
                symbolTable.symbols[symbol].kind != 9)
                moduleNames_.push_back(
                    {hashName(nameTable.nameView(symbolTable.symbols[symbol].nameIndex, scratch)), position, symbol});
        }
        if (!blockTree.groups(module).empty())
            modulesWithGroups_.push_back(position);
        for (uint32_t child : blockTree.children(module)) {
            const int32_t nameIndex = child < blocks.size() ? blocks[child].nameIndex : -1;
            if (nameIndex >= 0 && size_t(nameIndex) < names.size() && names.hasText(size_t(nameIndex)))
                functionNames_.push_back({blockNameHash(uint32_t(nameIndex)), place, child});
            ++place;
        }
    }
    // Stable, so that a module's symbols of one hash keep the order of its list.
    std::stable_sort(moduleNames_.begin(), moduleNames_.end());
    moduleNameBuckets_.assign((size_t(1) << kNameBucketBits) + 1, 0);
    for (const ModuleName& entry : moduleNames_)
        ++moduleNameBuckets_[(entry.hash >> (32 - kNameBucketBits)) + 1];
    for (size_t b = 1; b < moduleNameBuckets_.size(); ++b)
        moduleNameBuckets_[b] += moduleNameBuckets_[b - 1];
    std::sort(functionNames_.begin(), functionNames_.end());
    namesIndexedFor_ = {blockTree.roots.size(), blocks.size(), symbolTable.symbols.size(), names.size()};
}

int32_t TarnUbrofParser::findChildScopeByName(int32_t scope, const std::string& name) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    if (scope < 0 || static_cast<size_t>(scope) >= blocks.size())
        return -1;
    for (uint32_t child : blockTree.children(static_cast<uint32_t>(scope))) {
        if (child >= blocks.size() || blocks[child].nameIndex == 0)
            continue;
        if (nameTable.nameIs(static_cast<uint32_t>(blocks[child].nameIndex), name))
            return static_cast<int32_t>(child);
    }
    return -1;
}

int32_t TarnUbrofParser::findFunctionByName(const std::string& name) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    const NameRecords& names = nameTable.records;
    if (namesIndexed()) {
        const uint32_t hash = hashName(name);
        for (auto it = std::lower_bound(functionNames_.begin(), functionNames_.end(), FunctionName{hash, 0, 0});
             it != functionNames_.end() && it->hash == hash; ++it) {
            if (names.text(size_t(blocks[it->block].nameIndex)) == name)
                return static_cast<int32_t>(it->block);
        }
        return -1;
    }
    for (uint32_t module : blockTree.roots) {
        if (module >= blocks.size())
            continue;
        for (uint32_t child : blockTree.children(module)) {
            if (child >= blocks.size())
                continue;
            // Only a stored text counts: a derived block name is not a function's name.
            const int32_t nameIndex = blocks[child].nameIndex;
            if (nameIndex < 0 || static_cast<size_t>(nameIndex) >= names.size())
                continue;
            if (names.hasText(size_t(nameIndex)) && names.text(size_t(nameIndex)) == name)
                return static_cast<int32_t>(child);
        }
    }
    return -1;
}

int32_t TarnUbrofParser::findModuleOfFile(uint32_t fileIndex) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    for (uint32_t module : blockTree.roots) {
        if (module >= blocks.size())
            continue;
        if (blockTree.moduleHasFile(module, fileIndex))
            return static_cast<int32_t>(module);
    }
    return -1;
}

void TarnUbrofParser::getChildScopes(int32_t scope, std::vector<uint32_t>& out) const
{
    const ChunkedVector<BlockRecord>& blocks = blockTree.blocks;
    if (scope == -1) {
        for (uint32_t module : blockTree.roots) {
            if (module < blocks.size() && !blocks[module].isHidden)
                out.push_back(module);
        }
        return;
    }
    if (scope < 0 || static_cast<size_t>(scope) >= blocks.size())
        return;
    for (uint32_t child : blockTree.children(static_cast<uint32_t>(scope))) {
        if (child < blocks.size())
            out.push_back(child);
    }
}

void TarnUbrofParser::getScopeSymbols(int32_t scope, std::vector<uint32_t>& out, bool includeAll) const
{
    if (scope < 0 || static_cast<size_t>(scope) >= blockTree.blocks.size())
        return;
    const ChunkedVector<SymbolRecord>& symbols = symbolTable.symbols;
    for (uint32_t symbol : blockTree.symbols(static_cast<uint32_t>(scope))) {
        if (symbol >= symbols.size())
            continue;
        // Function prototypes are declarations, not variables to list.
        if (!includeAll && typeTable.isFunctionType(symbols[symbol].typeIndex))
            continue;
        out.push_back(symbol);
    }
}

void TarnUbrofParser::getAllModuleSymbols(std::vector<uint32_t>& out) const
{
    for (uint32_t module : blockTree.roots)
        getScopeSymbols(static_cast<int32_t>(module), out, true);
}

void TarnUbrofParser::getScopeName(int32_t scope, std::string& text) const
{
    if (scope < 0 || static_cast<size_t>(scope) >= blockTree.blocks.size())
        return;
    const int32_t nameIndex = blockTree.blocks[static_cast<size_t>(scope)].nameIndex;
    if (nameIndex == 0)
        return;
    text = nameTable.nameText(static_cast<uint32_t>(nameIndex));
}

int16_t TarnUbrofParser::getScopeAtPc(uint32_t pc, int32_t* scope) const
{
    if (!scope)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    const int32_t found = findScopeAtAddress(pc);
    if (found < 0)
        return StoreNotFound;
    *scope = found;
    return StoreOk;
}

int16_t TarnUbrofParser::lookupSymbolByName(const std::string& name, int32_t scope, uint32_t searchMode,
                                            int32_t* symbol, int32_t* foundScope) const
{
    if (name.empty() || !symbol || !foundScope)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    if (scope >= static_cast<int64_t>(blockTree.blocks.size()))
        return StoreIndexOutOfRange;
    int32_t where = -1;
    const int32_t found = lookupName(searchMode == 1 ? -1 : scope, name, &where);
    if (found < 0)
        return StoreNotFound;
    *symbol = found;
    *foundScope = where;
    return StoreOk;
}

int16_t TarnUbrofParser::lookupGlobal(uint32_t context, const std::string& name, int32_t tag,
                                      uint32_t* result) const
{
    if (!result)
        return StoreBadArgument;
    if (context == 0) {
        if (tag == 0 || tag == DwTagCompileUnit) {
            const int32_t file = findSourceFile(name);
            const int32_t module = file >= 0 ? findModuleOfFile(static_cast<uint32_t>(file)) : -1;
            if (module >= 0) {
                *result = encodeContextId(ScopeContext, module);
                return StoreOk;
            }
        }
        if (tag == 0 || tag == DwTagSubprogram) {
            *result = encodeContextId(ScopeContext, findFunctionByName(name));
            return StoreOk;
        }
        if (tag == DwTagVariable) {
            *result = encodeContextId(SymbolContext, lookupName(-1, name, nullptr));
            return StoreOk;
        }
        *result = 0;
        return StoreNotFound;
    }
    uint32_t kind = 0;
    const int32_t index = decodeContextId(context, &kind);
    if (index >= 0 && kind == ScopeContext) {
        if (tag == 0 || tag == DwTagSubprogram || tag == DwTagLexicalBlock) {
            *result = encodeContextId(ScopeContext, findChildScopeByName(index, name));
            return StoreOk;
        }
        if (tag == DwTagVariable) {
            *result = encodeContextId(SymbolContext, findSymbolInScope(index, name));
            return StoreOk;
        }
    }
    *result = 0;
    return StoreNotFound;
}

bool TarnUbrofParser::getChildren(uint32_t context, int32_t tag, std::vector<uint32_t>& out) const
{
    std::vector<uint32_t> scopes;
    std::vector<uint32_t> symbols;
    if (context == 0) {
        if (tag == DwTagCompileUnit)
            getChildScopes(-1, scopes);
        else if (tag == 0 || tag == DwTagVariable)
            getAllModuleSymbols(symbols);
    } else {
        uint32_t kind = 0;
        const int32_t index = decodeContextId(context, &kind);
        if (index >= 0 && kind == ScopeContext) {
            const uint32_t scopeKind = blockTree.blocks[static_cast<size_t>(index)].kind;
            const bool refused = (tag == DwTagSubprogram && scopeKind != ModuleBlock) ||
                                 (tag == DwTagLexicalBlock && scopeKind == ModuleBlock);
            if (!refused) {
                if (tag == 0 || tag == DwTagSubprogram || tag == DwTagLexicalBlock)
                    getChildScopes(index, scopes);
                if (tag == 0 || tag == DwTagVariable)
                    getScopeSymbols(index, symbols, false);
            }
        }
    }
    for (uint32_t scope : scopes)
        out.push_back(encodeContextId(ScopeContext, static_cast<int32_t>(scope)));
    for (uint32_t symbol : symbols)
        out.push_back(encodeContextId(SymbolContext, static_cast<int32_t>(symbol)));
    return !out.empty();
}

std::string TarnUbrofParser::getScopeNameAtPc(uint32_t pc) const
{
    const int32_t scope = findScopeAtAddress(pc);
    if (scope < 0)
        return std::string();
    return nameTable.nameText(static_cast<uint32_t>(blockTree.blocks[static_cast<size_t>(scope)].nameIndex));
}

int16_t TarnUbrofParser::getScopeInfo(int32_t scope, std::string* name, std::string* fileName, uint32_t* kind,
                                      uint32_t* lowAddress, uint32_t* size, int32_t* firstLineRecord) const
{
    if (!name || !fileName || !kind || !lowAddress || !size || !firstLineRecord)
        return StoreBadArgument;
    if (!isParsed())
        return StoreNotParsed;
    if (scope < 0 || static_cast<size_t>(scope) >= blockTree.blocks.size())
        return StoreIndexOutOfRange;
    const BlockRecord& block = blockTree.blocks[static_cast<size_t>(scope)];
    *name = nameTable.nameText(static_cast<uint32_t>(block.nameIndex));
    fileName->clear();
    *kind = block.kind;
    *lowAddress = block.lowAddress;
    // Plain unsigned difference: a scope that never covered code (0xFFFFFFFF, 0) wraps to 1.
    *size = block.highAddress - block.lowAddress;
    *firstLineRecord = -1;
    const IndexRange ranges = blockTree.lineRanges(static_cast<uint32_t>(scope));
    if (!ranges.empty() && ranges.front() < fileLineRanges.size())
        *firstLineRecord = static_cast<int32_t>(fileLineRanges[ranges.front()].firstLineRecord);
    return StoreOk;
}

} // namespace ubrof
