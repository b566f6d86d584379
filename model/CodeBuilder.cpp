// CodeBuilder: functions, blocks, variables and lines from the store's blocks and symbols and the
// runs of code bytes the reader saw written while each block was open.
#include "model/CodeBuilder.h"

#include "model/TypeShapes.h"
#include "parser/Vocabulary.h"

#include <algorithm>
#include <unordered_map>

namespace ubrof::model::detail {
namespace {

using Run = ProgramFacts::WrittenRun;

bool sameLocation(const Location& a, const Location& b)
{
    return a.kind == b.kind && a.space == b.space && a.address == b.address &&
           a.firstRegister == b.firstRegister && a.registerCount == b.registerCount && a.offset == b.offset;
}

// The last part of a name the file wrote qualified ("ChkKey::bKeyChkTimes").
std::string plainName(const std::string& text)
{
    const size_t separator = text.rfind("::");
    return separator == std::string::npos ? text : text.substr(separator + 2);
}

} // namespace

CodeBuilder::CodeBuilder(BuildContext& context)
    : context_(context), store_(context.store), program_(context.program)
{
}

void CodeBuilder::build()
{
    findTopFunctions();
    collectDrafts();
    indexCode();
    placeEnds();
    claimTrailingCode();
    placeEnds();
    emitFunctions();
    emitModuleVariables();
    if (context_.newer)
        emitNewerLines();
    else
        emitLines();

    for (uint32_t index = 0; index < program_.functions.size(); ++index) {
        Function& function = program_.functions[index];
        if (function.file == kNone && function.line == 0 && function.isDescribed)
            if (const LineRow* row = program_.lineAt(function.entry)) {
                function.file = row->file;
                function.line = row->line;
            }
        if (function.module < program_.modules.size())
            program_.modules[function.module].functions.push_back(index);
    }
    for (uint32_t index = 0; index < program_.variables.size(); ++index) {
        const Variable& variable = program_.variables[index];
        if (variable.function == kNone && variable.module < program_.modules.size())
            program_.modules[variable.module].variables.push_back(index);
    }
}

void CodeBuilder::findTopFunctions()
{
    // A function block nested in another function is one of its lexical blocks.
    const ChunkedVector<BlockRecord>& blocks = store_.blockTree.blocks;
    topFunctionOfBlock_.assign(blocks.size(), kNone);
    for (size_t b = 0; b < blocks.size(); ++b) {
        const int32_t parent = blocks[b].parent;
        if (parent >= 0 && size_t(parent) < b && topFunctionOfBlock_[size_t(parent)] != kNone)
            topFunctionOfBlock_[b] = topFunctionOfBlock_[size_t(parent)];
        else if (blocks[b].kind == FunctionBlock)
            topFunctionOfBlock_[b] = static_cast<uint32_t>(b);
    }

    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    symbolOfName_.assign(store_.nameTable.records.size(), kNone);
    for (uint32_t s = 0; s < symbols.size(); ++s) {
        const uint32_t name = symbols[s].nameIndex;
        if (name < symbolOfName_.size() && symbolOfName_[name] == kNone && !context_.derived[s])
            symbolOfName_[name] = s;
    }
    symbolUsed_.assign(symbols.size(), false);
}

uint32_t CodeBuilder::functionSymbol(uint32_t block)
{
    const BlockRecord& record = store_.blockTree.blocks[block];
    if (record.nameIndex < 0)
        return kNone;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    const NameRecords& names = store_.nameTable.records;
    auto usable = [&](uint32_t symbol) {
        return symbol != kNone && !symbolUsed_[symbol] && context_.isCodeSymbol(symbols[symbol]);
    };
    auto bearing = [&](uint32_t name) { return name < symbolOfName_.size() ? symbolOfName_[name] : kNone; };

    const uint32_t name = static_cast<uint32_t>(record.nameIndex);
    if (usable(bearing(name)))
        return bearing(name);
    // A function named through a reference: its symbol bears the name referred to.
    if (name < names.size() && names.nameKind(name) == 3 && names.scopeKind(name) == 2 && !names.hasText(name) &&
        names.parent(name) >= 0 && usable(bearing(static_cast<uint32_t>(names.parent(name)))))
        return bearing(static_cast<uint32_t>(names.parent(name)));

    // t_func_begin1 makes a name of its own, so the symbol is found by its text among the code
    // symbols of the function's module.
    uint32_t module = block;
    for (size_t step = 0; step < store_.blockTree.blocks.size() && store_.blockTree.blocks[module].kind != ModuleBlock &&
                            store_.blockTree.blocks[module].parent >= 0;
         ++step)
        module = static_cast<uint32_t>(store_.blockTree.blocks[module].parent);
    auto& byText = symbolsByText_[module];
    if (byText.empty()) {
        for (uint32_t symbol : store_.blockTree.symbols(module))
            if (symbol < symbols.size() && context_.isCodeSymbol(symbols[symbol]))
                byText.emplace(context_.nameText(symbols[symbol].nameIndex), symbol);
    }
    const auto found = byText.find(context_.nameText(name));
    return found != byText.end() && usable(found->second) ? found->second : kNone;
}

uint32_t CodeBuilder::nameIndexOf(const Draft& draft) const
{
    return draft.block != kNone ? static_cast<uint32_t>(store_.blockTree.blocks[draft.block].nameIndex)
                                : store_.symbolTable.symbols[draft.symbol].nameIndex;
}

void CodeBuilder::collectDrafts()
{
    const ChunkedVector<BlockRecord>& blocks = store_.blockTree.blocks;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    std::vector<uint32_t> draftOfBlock(blocks.size(), kNone);
    for (uint32_t b = 0; b < blocks.size(); ++b) {
        if (topFunctionOfBlock_[b] != b)
            continue;
        Draft draft;
        draft.block = b;
        draft.module = context_.moduleOfBlock[b];
        draft.symbol = functionSymbol(b);
        if (draft.symbol != kNone) {
            symbolUsed_[draft.symbol] = true;
            draft.entry = symbols[draft.symbol].value;
        }
        draftOfBlock[b] = static_cast<uint32_t>(drafts_.size());
        drafts_.push_back(std::move(draft));
    }
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    for (uint32_t r = 0; r < runs.size(); ++r) {
        const Run& run = runs[r];
        if (run.memory == CodeMemory && run.block < blocks.size() && topFunctionOfBlock_[run.block] != kNone)
            drafts_[draftOfBlock[topFunctionOfBlock_[run.block]]].runs.push_back(r);
    }

    // Without a symbol the function starts at its lowest code byte; without either it has no
    // place in the program.
    std::vector<Draft> kept;
    kept.reserve(drafts_.size());
    for (Draft& draft : drafts_) {
        if (draft.symbol == kNone) {
            const std::string name = context_.nameText(static_cast<uint32_t>(blocks[draft.block].nameIndex));
            if (draft.runs.empty()) {
                context_.note("function " + name + ": no symbol and no code, left out");
                continue;
            }
            draft.entry = runs[draft.runs.front()].address;
            for (uint32_t r : draft.runs)
                draft.entry = std::min(draft.entry, runs[r].address);
            context_.note("function " + name + ": no symbol bears its name; it starts at its lowest code byte");
        }
        kept.push_back(std::move(draft));
    }
    drafts_ = std::move(kept);

    // Library code built without debug records still names its functions by symbols of a
    // function type in code memory.
    std::vector<bool> groupTaken(store_.groupTable.size(), false);
    for (uint32_t root = 0; root < blocks.size(); ++root) {
        if (blocks[root].kind != ModuleBlock)
            continue;
        std::vector<uint32_t> listed = store_.blockTree.symbols(root).toVector();
        for (uint32_t group : store_.blockTree.groups(root))
            if (group < groupTaken.size() && !groupTaken[group]) {
                groupTaken[group] = true;
                const std::vector<uint32_t>& members = store_.groupTable[group].symbols;
                listed.insert(listed.end(), members.begin(), members.end());
            }
        for (uint32_t s : listed) {
            if (s >= symbols.size() || symbolUsed_[s] || context_.derived[s])
                continue;
            const SymbolRecord& symbol = symbols[s];
            if (!context_.isCodeSymbol(symbol) || symbol.typeIndex == 0 ||
                !store_.typeTable.isFunctionType(symbol.typeIndex))
                continue;
            symbolUsed_[s] = true;
            Draft draft;
            draft.symbol = s;
            draft.module = context_.moduleOfBlock[root];
            draft.entry = symbol.value;
            drafts_.push_back(std::move(draft));
        }
    }

    // One function per entry: a described one wins over one known by its symbol only.
    std::stable_sort(drafts_.begin(), drafts_.end(),
                     [](const Draft& a, const Draft& b) { return a.entry < b.entry; });
    kept.clear();
    for (Draft& draft : drafts_) {
        if (!kept.empty() && kept.back().entry == draft.entry) {
            if (kept.back().block == kNone && draft.block != kNone)
                kept.back() = std::move(draft);
            else if (draft.block != kNone)
                context_.note("function " + context_.nameText(static_cast<uint32_t>(blocks[draft.block].nameIndex)) +
                              ": shares its entry with another function, left out");
            continue;
        }
        kept.push_back(std::move(draft));
    }
    drafts_ = std::move(kept);
}

void CodeBuilder::indexCode()
{
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    for (uint32_t s = 0; s < symbols.size(); ++s)
        if (!context_.derived[s] && context_.isCodeSymbol(symbols[s]))
            codeSymbols_.push_back(s);
    std::stable_sort(codeSymbols_.begin(), codeSymbols_.end(),
                     [&symbols](uint32_t a, uint32_t b) { return symbols[a].value < symbols[b].value; });
    for (uint32_t r = 0; r < runs.size(); ++r)
        if (runs[r].memory == CodeMemory)
            codeRuns_.push_back(r);
    std::stable_sort(codeRuns_.begin(), codeRuns_.end(),
                     [&runs](uint32_t a, uint32_t b) { return runs[a].address < runs[b].address; });
}

bool CodeBuilder::isLocalLabel(uint32_t symbol) const
{
    // Static, and of no type: a branch target inside code (an assembler loop's "??i2a_0").
    const SymbolRecord& record = store_.symbolTable.symbols[symbol];
    return record.kind == 4 && record.typeIndex == 0;
}

void CodeBuilder::placeEnds()
{
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    for (size_t i = 0; i < drafts_.size(); ++i) {
        Draft& draft = drafts_[i];
        // Functions never overlap: each ends at the latest where the next one begins.
        const uint64_t window = i + 1 < drafts_.size() ? drafts_[i + 1].entry : uint64_t(1) << 32;
        uint64_t end = draft.entry;
        // Newer files say how long a function is; its prologue is written before its block opens.
        const uint32_t said = context_.newer ? newerCodeSize(draft.entry, context_.nameText(nameIndexOf(draft))) : 0;
        if (said != 0) {
            end = std::min(uint64_t(draft.entry) + said, window);
        } else if (draft.block != kNone) {
            bool outside = false;
            for (uint32_t r : draft.runs) {
                const Run& run = runs[r];
                if (run.address >= draft.entry && run.address < window)
                    end = std::max(end, std::min(run.end(), window));
                else
                    outside = true;
            }
            if (outside)
                context_.note("function " +
                              context_.nameText(static_cast<uint32_t>(store_.blockTree.blocks[draft.block].nameIndex)) +
                              ": code placed outside its entry and the next function is not counted as its own");
        } else {
            // Known by its symbol only: it runs over the segment part it starts as the file writes
            // it, run after run in the same block, each beginning where the last ended (an
            // assembler module writes one run per instruction), up to the next symbol that begins
            // something of its own.
            end = window;
            auto next = std::upper_bound(codeSymbols_.begin(), codeSymbols_.end(), draft.entry,
                                         [&symbols](uint32_t a, uint32_t s) { return a < symbols[s].value; });
            while (next != codeSymbols_.end() && isLocalLabel(*next))
                ++next;
            if (next != codeSymbols_.end())
                end = std::min<uint64_t>(end, symbols[*next].value);
            uint64_t written = draft.entry;
            const auto after = std::upper_bound(codeRuns_.begin(), codeRuns_.end(), draft.entry,
                                                [&runs](uint32_t a, uint32_t r) { return a < runs[r].address; });
            if (after != codeRuns_.begin() && draft.entry < runs[*(after - 1)].end()) {
                uint32_t r = *(after - 1);
                while (r + 1 < runs.size() && runs[r + 1].memory == CodeMemory && runs[r + 1].block == runs[r].block &&
                       runs[r + 1].address == runs[r].end() && runs[r + 1].end() <= end)
                    ++r;
                written = runs[r].end();
            }
            end = std::min(end, written);
        }
        draft.end = static_cast<uint32_t>(std::min<uint64_t>(end, 0xFFFFFFFF));
    }
}

void CodeBuilder::claimTrailingCode()
{
    // Code a module writes right after a function's block has closed, where that function's code
    // ends, is the function's tail, reached by jumps from inside it. Where a label stands at its
    // start, the compiler wrote a piece of its own there, which more than one function may jump
    // to ("?Subroutine0"): that piece becomes a function known by its label.
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    std::vector<Draft> pieces;
    for (size_t i = 0; i < drafts_.size(); ++i) {
        Draft& draft = drafts_[i];
        if (draft.block == kNone || draft.runs.empty())
            continue;
        const uint64_t window = i + 1 < drafts_.size() ? drafts_[i + 1].entry : uint64_t(1) << 32;
        uint64_t end = draft.end;
        const uint32_t last = *std::max_element(draft.runs.begin(), draft.runs.end());
        if (runs[last].end() != end)
            continue;
        for (uint32_t r = last + 1; r < runs.size(); ++r) {
            const Run& run = runs[r];
            if (run.memory != CodeMemory)
                continue; // bytes of another memory end no code
            if (run.block >= topFunctionOfBlock_.size() || topFunctionOfBlock_[run.block] != kNone ||
                context_.moduleOfBlock[run.block] != draft.module || run.address != end || run.end() > window)
                break;
            const auto label = std::lower_bound(codeSymbols_.begin(), codeSymbols_.end(), run.address,
                                                [&symbols](uint32_t s, uint32_t a) { return symbols[s].value < a; });
            if (label != codeSymbols_.end() && symbols[*label].value == run.address && !symbolUsed_[*label]) {
                symbolUsed_[*label] = true;
                Draft piece;
                piece.symbol = *label;
                piece.module = draft.module;
                piece.entry = run.address;
                pieces.push_back(std::move(piece));
                break;
            }
            draft.runs.push_back(r);
            end = run.end();
        }
    }
    if (pieces.empty())
        return;
    drafts_.insert(drafts_.end(), std::make_move_iterator(pieces.begin()), std::make_move_iterator(pieces.end()));
    std::stable_sort(drafts_.begin(), drafts_.end(), [](const Draft& a, const Draft& b) { return a.entry < b.entry; });
}

void CodeBuilder::emitFunctions()
{
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    const TypeShapes& types = *context_.types;
    program_.functions.reserve(drafts_.size());
    for (const Draft& draft : drafts_) {
        Function function;
        const uint32_t name = nameIndexOf(draft);
        function.name = context_.nameText(name);
        function.qualifiedName = context_.qualifiedName(name);
        function.module = draft.module;
        function.entry = draft.entry;
        function.end = draft.end;
        function.isDescribed = draft.block != kNone;
        if (draft.symbol != kNone) {
            const SymbolRecord& symbol = symbols[draft.symbol];
            const uint32_t type = types.strip(symbol.typeIndex);
            if (types.kindOf(type) == Type::Kind::Function)
                function.type = type;
            function.isExternal = symbol.kind == 2;
            function.isInterrupt = types.isInterrupt(symbol.typeIndex);
            if (const ProgramFacts::SourcePosition* position = context_.positionOf(draft.symbol)) {
                function.file = position->file < program_.files.size() ? position->file : kNone;
                function.line = position->line;
            }
            if (context_.newer)
                function.stackUse = newerStackUse(draft.symbol);
        }
        program_.functions.push_back(std::move(function));
    }
    for (uint32_t index = 0; index < drafts_.size(); ++index)
        if (drafts_[index].block != kNone)
            emitBlocksAndVariables(index, drafts_[index]);
}

void CodeBuilder::emitBlocksAndVariables(uint32_t function, const Draft& draft)
{
    const ChunkedVector<BlockRecord>& blocks = store_.blockTree.blocks;
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    const uint32_t entry = program_.functions[function].entry;
    const uint32_t end = program_.functions[function].end;

    // The function's blocks in pre-order, a block before those nested in it, each with the
    // position of its parent in that order.
    std::vector<uint32_t> order, parentOf;
    std::vector<std::pair<uint32_t, uint32_t>> pending{{draft.block, kNone}};
    std::unordered_map<uint32_t, uint32_t> position;
    while (!pending.empty()) {
        const auto [block, parent] = pending.back();
        pending.pop_back();
        const uint32_t at = static_cast<uint32_t>(order.size());
        position.emplace(block, at);
        order.push_back(block);
        parentOf.push_back(parent);
        // Children come after their parent in the table, which also keeps a walk from looping.
        const IndexRange children = store_.blockTree.children(block);
        for (size_t i = children.size(); i-- > 0;)
            if (children[i] < blocks.size() && children[i] > block)
                pending.emplace_back(children[i], at);
    }

    // Each block covers the code written while it was open, within the function, and what
    // its nested blocks cover.
    std::vector<uint64_t> low(order.size(), UINT64_MAX), high(order.size(), 0);
    std::vector<bool> keep(order.size(), false);
    for (uint32_t r : draft.runs) {
        const Run& run = runs[r];
        const uint64_t from = std::max<uint64_t>(run.address, entry);
        const uint64_t to = std::min<uint64_t>(run.end(), end);
        const auto found = position.find(run.block);
        if (from >= to || found == position.end())
            continue;
        low[found->second] = std::min(low[found->second], from);
        high[found->second] = std::max(high[found->second], to);
    }
    for (uint32_t k = 0; k < order.size(); ++k)
        keep[k] = high[k] > 0 || !store_.blockTree.symbols(order[k]).empty();
    for (uint32_t k = static_cast<uint32_t>(order.size()); k-- > 1;) {
        const uint32_t parent = parentOf[k];
        low[parent] = std::min(low[parent], low[k]);
        high[parent] = std::max(high[parent], high[k]);
        if (keep[k])
            keep[parent] = true;
    }

    // Parameters come first among the function's own symbols, one for each the type lists.
    std::vector<uint32_t> parameters;
    const uint32_t type = program_.functions[function].type;
    if (type < program_.types.size())
        parameters = program_.types[type].parameters;
    const TypeShapes& types = *context_.types;
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    size_t matched = 0;
    for (uint32_t s : store_.blockTree.symbols(draft.block)) {
        bool isParameter = false;
        if (matched < parameters.size() && s < symbols.size()) {
            const uint32_t own = types.strip(symbols[s].typeIndex);
            const uint32_t listed = parameters[matched];
            const Type& a = program_.types[own];
            const Type& b = program_.types[listed];
            isParameter = a.resolved == b.resolved || (a.size == b.size && a.size != 0);
            if (isParameter)
                ++matched;
            else
                matched = parameters.size();
        }
        const uint32_t variable = emitVariable(s, function, kNone, isParameter, draft.module);
        if (variable != kNone)
            program_.functions[function].variables.push_back(variable);
    }

    std::vector<uint32_t> modelBlock(order.size(), kNone);
    for (uint32_t k = 1; k < order.size(); ++k) {
        if (!keep[k])
            continue;
        Block block;
        block.low = high[k] > 0 ? static_cast<uint32_t>(low[k]) : entry;
        block.high = high[k] > 0 ? static_cast<uint32_t>(high[k]) : entry;
        block.parent = modelBlock[parentOf[k]];
        const uint32_t index = static_cast<uint32_t>(program_.blocks.size());
        modelBlock[k] = index;
        program_.blocks.push_back(std::move(block));
        if (parentOf[k] == 0)
            program_.functions[function].blocks.push_back(index);
        else
            program_.blocks[modelBlock[parentOf[k]]].blocks.push_back(index);
        for (uint32_t s : store_.blockTree.symbols(order[k])) {
            const uint32_t variable = emitVariable(s, function, index, false, draft.module);
            if (variable != kNone)
                program_.blocks[index].variables.push_back(variable);
        }
    }
}

uint32_t CodeBuilder::emitVariable(uint32_t symbolIndex, uint32_t function, uint32_t block, bool isParameter,
                                   uint32_t module)
{
    const ChunkedVector<SymbolRecord>& symbols = store_.symbolTable.symbols;
    if (symbolIndex >= symbols.size() || context_.derived[symbolIndex] || symbolUsed_[symbolIndex])
        return kNone;
    const SymbolRecord& symbol = symbols[symbolIndex];
    // Typedef names (6) and structure members (10) are no variables; a symbol without a type is
    // a label, and one of a function type a function or its declaration.
    if (symbol.kind == 6 || symbol.kind == 10 || symbol.typeIndex == 0 ||
        store_.typeTable.isFunctionType(symbol.typeIndex))
        return kNone;

    const TypeShapes& types = *context_.types;
    Variable variable;
    variable.type = types.strip(symbol.typeIndex);
    variable.size = types.sizeOf(variable.type);
    variable.location = context_.locationOf(symbol.kind, symbol.addressSpace, symbol.value, variable.size);
    const bool isStatic = variable.location.kind == Location::Kind::Address;

    const std::string text = context_.nameText(symbol.nameIndex);
    const bool named = symbol.nameIndex < store_.nameTable.records.size();
    variable.name = plainName(text);
    if (named && store_.nameTable.records.parent(symbol.nameIndex) >= 0)
        variable.qualifiedName = context_.qualifiedName(symbol.nameIndex);
    else if (function != kNone && isStatic && text.find("::") == std::string::npos)
        variable.qualifiedName = program_.functions[function].qualifiedName + "::" + text;
    else
        variable.qualifiedName = text;

    // A static local is also listed at module level, under its qualified name; it is kept once,
    // as a variable of its function.
    auto key = std::make_tuple(variable.location.space, variable.location.address, variable.name);
    if (isStatic && function == kNone && std::binary_search(statics_.begin(), statics_.end(), key))
        return kNone;
    if (isStatic && function != kNone)
        statics_.push_back(std::move(key));

    if (function != kNone) {
        const Function& owner = program_.functions[function];
        variable.ranges = rangesOf(symbol, variable.location, variable.size, owner.entry, owner.end);
    } else if (symbol.locationCount != 0) {
        const MemoryImage* code = program_.memory(MemorySpace::Code);
        const uint64_t codeEnd = code ? code->endAddress() : 0;
        variable.ranges = rangesOf(symbol, variable.location, variable.size, 0,
                                   static_cast<uint32_t>(std::min<uint64_t>(codeEnd, 0xFFFFFFFF)));
    }
    variable.module = module;
    variable.function = function;
    variable.block = block;
    variable.isExternal = symbol.kind == 2;
    variable.isParameter = isParameter;
    if (const ProgramFacts::SourcePosition* position = context_.positionOf(symbolIndex)) {
        variable.file = position->file < program_.files.size() ? position->file : kNone;
        variable.line = position->line;
    }
    program_.variables.push_back(std::move(variable));
    return static_cast<uint32_t>(program_.variables.size() - 1);
}

std::vector<LocationRange> CodeBuilder::rangesOf(const SymbolRecord& symbol, const Location& own, uint32_t size,
                                                 uint32_t low, uint32_t high) const
{
    const ChunkedVector<LocationRecord>& records = store_.symbolTable.locations;
    const uint64_t first = std::min<uint64_t>(symbol.firstLocation, records.size());
    const uint64_t last = std::min<uint64_t>(first + symbol.locationCount, records.size());
    std::vector<LocationRange> ranges;
    if (first == last)
        return ranges;
    // Before the first entry the symbol's own location holds; kinds 0 and 21 return to it.
    uint32_t start = low;
    Location current = own;
    auto add = [&ranges](uint32_t from, uint32_t to, const Location& location) {
        if (!ranges.empty() && ranges.back().high == from && sameLocation(ranges.back().location, location))
            ranges.back().high = to;
        else
            ranges.push_back({from, to, location});
    };
    for (uint64_t i = first; i < last; ++i) {
        const LocationRecord& record = records[size_t(i)];
        // Entries come in ascending order; one that goes back cannot shorten what is placed.
        const uint32_t at = std::clamp(record.startAddress, start, std::max(start, high));
        if (at > start)
            add(start, at, current);
        current = record.kind == 0 || record.kind == 21
                      ? own
                      : context_.locationOf(record.kind, record.addressSpace, record.value, size);
        start = at;
    }
    if (high > start)
        add(start, high, current);
    if (ranges.size() == 1 && ranges.front().low == low && sameLocation(ranges.front().location, own))
        ranges.clear();
    return ranges;
}

void CodeBuilder::emitModuleVariables()
{
    std::sort(statics_.begin(), statics_.end());
    const ChunkedVector<BlockRecord>& blocks = store_.blockTree.blocks;
    std::vector<bool> groupTaken(store_.groupTable.size(), false);
    for (uint32_t b = 0; b < blocks.size(); ++b) {
        if (topFunctionOfBlock_[b] != kNone)
            continue;
        const uint32_t module = context_.moduleOfBlock[b];
        std::vector<uint32_t> listed = store_.blockTree.symbols(b).toVector();
        if (blocks[b].kind == ModuleBlock)
            for (uint32_t group : store_.blockTree.groups(b))
                if (group < groupTaken.size() && !groupTaken[group]) {
                    groupTaken[group] = true;
                    const std::vector<uint32_t>& members = store_.groupTable[group].symbols;
                    listed.insert(listed.end(), members.begin(), members.end());
                }
        for (uint32_t s : listed)
            emitVariable(s, kNone, kNone, false, module);
    }
}

void CodeBuilder::emitLines()
{
    const std::vector<Run>& runs = context_.facts.writtenRuns;
    const LineTable& statements = store_.lineTable;
    const std::vector<Function>& functions = program_.functions;

    // Calls visit(low, high, run, function) for each piece of a code run inside a described
    // function, by address.
    auto eachPiece = [&](auto visit) {
        for (uint32_t r : codeRuns_) {
            const Run& run = runs[r];
            auto f = std::upper_bound(functions.begin(), functions.end(), run.address,
                                      [](uint32_t a, const Function& fn) { return a < fn.entry; });
            if (f != functions.begin())
                --f;
            for (; f != functions.end() && f->entry < run.end(); ++f) {
                const uint64_t from = std::max<uint64_t>(run.address, f->entry);
                const uint64_t to = std::min<uint64_t>(run.end(), f->end);
                if (from < to && f->isDescribed)
                    visit(static_cast<uint32_t>(from), static_cast<uint32_t>(to), r,
                          static_cast<uint32_t>(f - functions.begin()));
            }
        }
    };
    // A statement speaks for the bytes after it when it stands inside the same function; other
    // bytes take the function's first statement in the file (entry code before any statement).
    auto within = [&](uint32_t statement, uint32_t function) {
        return statement < statements.size() && statements[statement].address >= functions[function].entry &&
               statements[statement].address < functions[function].end;
    };
    std::vector<uint32_t> firstRun(functions.size(), kNone);
    eachPiece([&](uint32_t, uint32_t, uint32_t run, uint32_t function) {
        if (within(runs[run].statement, function))
            firstRun[function] = std::min(firstRun[function], run);
    });

    // Bytes written twice keep the row that starts first up to where the next one starts; a
    // chunk that continues its statement joins the row before it.
    std::vector<LineRow>& lines = program_.lines;
    eachPiece([&](uint32_t low, uint32_t high, uint32_t r, uint32_t function) {
        const Run& run = runs[r];
        uint32_t statement = run.statement;
        bool starts = run.completesStatement && low == run.address;
        if (!within(statement, function)) {
            if (firstRun[function] == kNone)
                return;
            statement = runs[firstRun[function]].statement;
            starts = false;
        }
        const LineRecord& record = statements[statement];
        const LineRow row{low, high, context_.fileOfStatement(statement), record.line, record.column, function, starts};
        if (!lines.empty() && row.address < lines.back().end) {
            if (row.address == lines.back().address)
                lines.pop_back();
            else
                lines.back().end = row.address;
        }
        if (!lines.empty()) {
            LineRow& last = lines.back();
            if (last.end == row.address && !row.isStatement && last.file == row.file && last.line == row.line &&
                last.column == row.column && last.function == row.function) {
                last.end = std::max(last.end, row.end);
                return;
            }
        }
        lines.push_back(row);
    });
    lines.shrink_to_fit();
}

} // namespace ubrof::model::detail
