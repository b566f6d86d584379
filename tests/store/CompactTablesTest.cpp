// Each compact table of the store against the plain structure it replaced, on random records and
// random writer-built files.
#include "FilledStore.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <map>
#include <random>

namespace ubrof {
namespace {

using Random = std::mt19937;

uint32_t below(Random& random, uint32_t n)
{
    return static_cast<uint32_t>(random() % n);
}

// Mostly what t_src_stat gives (16-bit fields, a byte of code); now and then values that only
// a wider format or a hand-filled store has.
LineRecord randomStatement(Random& random)
{
    const bool wide = below(random, 8) == 0;
    LineRecord record;
    record.address = static_cast<uint32_t>(random());
    record.size = wide ? static_cast<uint32_t>(random()) : below(random, 256);
    record.line = wide ? static_cast<uint32_t>(random()) : below(random, 0x10000);
    record.lineSpan = wide ? static_cast<uint32_t>(random()) : below(random, 0x10000 - record.line);
    record.column = wide ? 0x10000 + below(random, 9) : below(random, 0x10000);
    record.endColumn = below(random, 0x10000);
    record.flags = static_cast<uint8_t>(random());
    return record;
}

auto fieldsOf(const LineRecord& r)
{
    return std::make_tuple(r.address, r.size, r.line, r.lineSpan, r.column, r.endColumn, r.flags);
}

TEST(CompactTables, StatementRecordsReadBackAsAppended)
{
    Random random(3);
    LineTable table;
    std::vector<LineRecord> plain;
    for (int step = 0; step < 20000; ++step) {
        const uint32_t action = below(random, 10);
        if (action < 6 || plain.empty()) {
            plain.push_back(randomStatement(random));
            table.push_back(plain.back());
        } else if (action < 9) {
            // The reader completes only the last statement, with the size of its code.
            plain.back().size = below(random, 4) == 0 ? static_cast<uint32_t>(random()) : below(random, 256);
            table.setCodeSize(plain.size() - 1, plain.back().size);
        } else {
            plain.pop_back();
            table.pop_back();
        }
    }
    ASSERT_EQ(plain.size(), table.size());
    for (size_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(fieldsOf(plain[i]), fieldsOf(table[i])) << i;
        ASSERT_EQ(std::make_tuple(plain[i].address, plain[i].size, plain[i].flags),
                  std::make_tuple(table.address(i), table.codeSize(i), table.flags(i)));
    }
}

// The name text rule over plain records, as the table answered it before it was packed.
std::string plainNameText(const std::vector<NameRecord>& records, uint32_t index)
{
    for (int step = 0; step < 64 && index < records.size(); ++step) {
        const NameRecord& record = records[index];
        if (record.nameKind != 3 || record.text)
            return record.text ? record.text->substr(0, kMaxNameLength) : std::string();
        if (record.scopeKind == 2) {
            index = static_cast<uint32_t>(record.parent);
            continue;
        }
        return record.scopeKind == 3 ? "block" + std::to_string(record.number) : std::string();
    }
    return std::string();
}

TEST(CompactTables, NameRecordsAndTheirTextsReadBackAsAppended)
{
    Random random(5);
    NameTable table;
    std::vector<NameRecord> plain;
    for (int i = 0; i < 30000; ++i) {
        NameRecord record;
        record.nameKind = std::array<uint32_t, 5>{0, 2, 3, 3, 300}[below(random, 5)];
        record.scopeKind = std::array<uint32_t, 4>{0, 2, 3, 260}[below(random, 4)];
        if (below(random, 3) != 0) {
            // Short names, some long enough to fill a block, one now and then longer than a row holds.
            const uint32_t length = below(random, 100) == 0 ? 70000 + below(random, 300000) : below(random, 40);
            record.text = std::string(length, static_cast<char>('a' + below(random, 26)));
        }
        record.number = static_cast<uint32_t>(random());
        record.parent = plain.empty() || below(random, 3) == 0 ? -1 : static_cast<int32_t>(below(random, uint32_t(plain.size()) + 5));
        plain.push_back(record);
        ASSERT_EQ(uint32_t(i), table.append(record));
    }
    for (uint32_t i = 0; i < plain.size() + 3; ++i) {
        const std::string text = plainNameText(plain, i);
        ASSERT_EQ(text, table.nameText(i)) << i;
        ASSERT_TRUE(table.nameIs(i, text));
        ASSERT_EQ(text.compare(0, 3, "_A_") == 0, table.nameStartsWith(i, "_A_"));
        if (i >= plain.size())
            continue;
        const NameRecord read = table.records[i];
        ASSERT_EQ(std::tie(plain[i].nameKind, plain[i].scopeKind, plain[i].text, plain[i].number, plain[i].parent),
                  std::tie(read.nameKind, read.scopeKind, read.text, read.number, read.parent));
        ASSERT_EQ(std::make_pair(plain[i].parent, plain[i].scopeKind),
                  std::make_pair(table.records.parent(i), table.records.scopeKind(i)));
    }
}

TEST(CompactTables, PooledListsAndFileTablesAnswerAsVectors)
{
    Random random(9);
    BlockTree tree;
    std::vector<std::vector<uint32_t>> symbols(300), children(300);
    std::vector<std::map<uint32_t, uint32_t>> files(300); // a module's references and their files
    for (uint32_t i = 0; i < 300; ++i)
        tree.blocks.emplace_back();
    for (int step = 0; step < 40000; ++step) {
        const uint32_t block = below(random, 300), value = static_cast<uint32_t>(random());
        switch (below(random, 3)) {
        case 0:
            tree.addSymbol(block, value);
            symbols[block].push_back(value);
            break;
        case 1:
            tree.addChild(block, value);
            children[block].push_back(value);
            break;
        default: {
            const uint32_t reference = below(random, 4) == 0 ? below(random, 0x10000) : below(random, 8);
            const uint32_t file = below(random, 50);
            tree.setModuleFile(block, reference, file);
            files[block][reference] = file;
        }
        }
    }
    for (uint32_t block = 0; block < 300; ++block) {
        const std::map<uint32_t, uint32_t>& declared = files[block];
        ASSERT_EQ(symbols[block], tree.symbols(block));
        ASSERT_EQ(children[block], tree.children(block));
        ASSERT_EQ((std::vector<std::pair<uint32_t, uint32_t>>(declared.begin(), declared.end())), tree.moduleFiles(block));
        for (uint32_t reference : {0u, 3u, 7u, 0x8000u, 0xFFFFu})
            ASSERT_EQ(declared.count(reference) ? declared.at(reference) : kNoIndex, tree.moduleFile(block, reference));
        for (uint32_t file = 0; file < 50; file += 7) {
            const bool listed = std::any_of(declared.begin(), declared.end(), [&](const auto& p) { return p.second == file; });
            ASSERT_EQ(listed, tree.moduleHasFile(block, file));
        }
    }
}

// A file of modules, files, functions and blocks whose statements jump about in address, some
// left without code, some sharing an address, with globals of repeated names and groups.
UbrofWriter randomProgram(Random& random)
{
    UbrofWriter w;
    w.begFile1().version(8).grp(0).symbolDef({"shared", 1, 2, 0x10, 6, {}}).symbolDef({"grouped", 1, 2, 0x12, 6, {}});
    const uint32_t modules = 2 + below(random, 6);
    for (uint32_t m = 0; m < modules; ++m) {
        w.begLib("m" + std::to_string(m)).fileRef(0, "dir/m" + std::to_string(m) + ".c");
        w.fileRef(1, "dir/shared.h").fileRef(uint16_t(2 + below(random, 3)), "dir/M" + std::to_string(m) + ".C");
        if (below(random, 3) == 0)
            w.grpRef(0);
        w.symbolDef({below(random, 2) ? "shared" : "g" + std::to_string(m), uint8_t(below(random, 3) == 0 ? 6 : 1), 2,
                     m, 6, {}});
        for (uint32_t f = 0, functions = 1 + below(random, 5); f < functions; ++f) {
            w.funcBegin1(below(random, 4) == 0 ? "common" : "f" + std::to_string(m) + "_" + std::to_string(f),
                         {{"x", 7, 0, 2, 6, {}}});
            uint32_t address = below(random, 2) ? 0x1000 * m + 0x100 * f : below(random, 0x8000);
            w.org(1, address);
            for (uint32_t s = 0, statements = below(random, 12); s < statements; ++s) {
                if (below(random, 6) == 0)
                    w.newFile(uint16_t(below(random, 5)));
                if (below(random, 8) == 0)
                    w.blockBegin1({{"y", 7, 0, 4, 6, {}}});
                if (below(random, 8) == 0)
                    w.org(1, address = below(random, 0x8000));
                const uint16_t line = uint16_t(1 + below(random, 300));
                w.srcStat(line, uint16_t(line + below(random, 3)));
                const uint32_t size = below(random, 5);
                if (size != 0 || below(random, 2)) {
                    w.absVar(std::vector<uint8_t>(size, 0x90));
                    address += size;
                }
            }
            w.blockEnd();
        }
        w.end();
    }
    return w.eof();
}

// The old code-area table: one host value per statement of a file, ordered stably by start.
std::vector<tarn::CodeArea> plainCodeAreas(const TarnUbrofParser& store)
{
    std::vector<tarn::CodeArea> areas;
    for (const SourceFileRecord& file : store.sourceFileTable) {
        for (uint32_t rangeIndex : file.lineRanges) {
            const FileLineRange& range = store.fileLineRanges.at(rangeIndex);
            for (uint32_t i = range.firstLineRecord; i < range.firstLineRecord + range.lineRecordCount; ++i) {
                const LineRecord record = store.lineTable[i];
                tarn::CodeArea& area = areas.emplace_back();
                area.functionName = store.getScopeNameAtPc(record.address);
                area.fileName = store.fileMapper.GetPublicPath(file.name);
                area.startLine = area.endLine = record.line;
                area.startAddress = record.address;
                area.endAddress = uint64_t(record.address) + record.size;
                area.isStatement = 1;
            }
        }
    }
    std::stable_sort(areas.begin(), areas.end(),
                     [](const tarn::CodeArea& a, const tarn::CodeArea& b) { return a.startAddress < b.startAddress; });
    return areas;
}

// The old range query over the plain table.
std::vector<tarn::CodeArea> plainRange(const std::vector<tarn::CodeArea>& areas, uint64_t start, uint64_t end)
{
    auto from = [&](size_t p) {
        std::vector<tarn::CodeArea> out;
        for (size_t i = p; i < areas.size() && areas[i].startAddress <= end; ++i)
            out.push_back(areas[i]);
        return out;
    };
    const size_t p = size_t(std::lower_bound(areas.begin(), areas.end(), start,
                                             [](const tarn::CodeArea& a, uint64_t s) { return a.startAddress < s; }) -
                            areas.begin());
    if (!areas.empty() && start < areas.front().startAddress && end >= areas.front().startAddress)
        start = areas.front().startAddress;
    if (p < areas.size() && areas[p].startAddress == start)
        return from(p);
    if (p != 0 && end <= areas.back().endAddress)
        return from(p - 1);
    return {};
}

std::vector<std::tuple<std::string, std::string, uint64_t, uint64_t, uint64_t>> fields(const std::vector<tarn::CodeArea>& areas)
{
    std::vector<std::tuple<std::string, std::string, uint64_t, uint64_t, uint64_t>> out;
    for (const tarn::CodeArea& a : areas)
        out.emplace_back(a.functionName, a.fileName, a.startLine, a.startAddress, a.endAddress);
    return out;
}

// Code areas against the table of host values, statement lines against the plain walk over the
// file's ranges, and name lookups against the plain walk over the modules, on one random file.
TEST(CompactTables, CodeAreasLinesAndNameIndexesAnswerAsThePlainStructures)
{
    Random random(13);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        TarnUbrofParser store;
        ASSERT_EQ(0, test::parseInto(store, randomProgram(random)));
        const std::vector<tarn::CodeArea> plain = plainCodeAreas(store);
        std::vector<tarn::CodeArea> built;
        for (size_t i = 0; i < store.codeAreas.size(); ++i)
            built.push_back(store.codeArea(i));
        ASSERT_EQ(fields(plain), fields(built));
        // One list for every query, as a caller asking window after window keeps it.
        std::vector<tarn::CodeArea> out;
        for (int query = 0; query < 200; ++query) {
            const uint64_t start = below(random, 0xA000);
            const uint64_t end = start + (below(random, 3) == 0 ? 0 : below(random, 0x3000));
            tarn::Status status;
            store.getCodeAreasInRange(status, start, end, out);
            ASSERT_EQ(fields(plainRange(plain, start, end)), fields(out)) << start << " " << end;
        }

        for (const SourceFileRecord& file : store.sourceFileTable) {
            for (uint32_t line = 0; line < 310; ++line) {
                // The first statement of the first range in order that covers the line.
                uint64_t first = UINT64_MAX;
                for (uint32_t r : file.lineRanges) {
                    const FileLineRange& range = store.fileLineRanges[r];
                    if (range.maxLine < int32_t(line))
                        continue;
                    for (uint32_t i = range.firstLineRecord; i < range.firstLineRecord + range.lineRecordCount; ++i) {
                        const LineRecord record = store.lineTable[i];
                        if (record.line <= line && record.line + record.lineSpan >= line && first == UINT64_MAX)
                            first = record.address;
                    }
                }
                uint64_t address = UINT64_MAX;
                const int16_t result = store.findStatementAddress(file.name, line, 0, &address);
                ASSERT_EQ(std::make_pair(first == UINT64_MAX ? -1 : 0, first), std::make_pair(int(result), address))
                    << file.name << ":" << line;
            }
        }

        const std::vector<uint32_t>& roots = store.blockTree.roots;
        for (const std::string name : {"shared", "grouped", "g0", "g3", "x", "y", "common", "f1_0", "none"}) {
            for (int32_t scope = -1; scope < int32_t(store.blockTree.blocks.size()); ++scope) {
                // Out from the scope, then every module but the one the walk ended in.
                int32_t symbol = -1, walkEnd = -1;
                for (int32_t s = scope; s >= 0 && symbol < 0; s = store.blockTree.blocks[size_t(s)].parent) {
                    symbol = store.findSymbolInScope(s, name);
                    walkEnd = s;
                }
                for (size_t m = 0; m < roots.size() && symbol < 0; ++m)
                    if (int32_t(roots[m]) != walkEnd)
                        symbol = store.findSymbolInScope(int32_t(roots[m]), name);
                ASSERT_EQ(symbol, store.lookupName(scope, name, nullptr)) << name << " from " << scope;
            }
            int32_t function = -1;
            for (size_t m = 0; m < roots.size() && function < 0; ++m)
                for (uint32_t child : store.blockTree.children(roots[m])) {
                    const int32_t text = store.blockTree.blocks[child].nameIndex;
                    if (function < 0 && text >= 0 && store.nameTable.records.hasText(size_t(text)) &&
                        store.nameTable.records.text(size_t(text)) == name)
                        function = int32_t(child);
                }
            ASSERT_EQ(function, store.findFunctionByName(name)) << name;
        }
    }
}

TEST(CompactTables, NameIndexesTellNamesOfOneHashApart)
{
    // "g78044" and "gd5a9" share their 32-bit FNV-1a hash.
    UbrofWriter w;
    w.begFile1().version(8);
    w.begLib("a").symbolDef({"g78044", 1, 2, 1, 6, {}}).end();
    w.begLib("b").symbolDef({"g78044", 1, 2, 2, 6, {}}).symbolDef({"gd5a9", 1, 2, 3, 6, {}}).end();
    w.begLib("c").symbolDef({"gd5a9", 1, 2, 4, 6, {}}).funcBegin1("f").blockEnd().end().eof();
    TarnUbrofParser store;
    ASSERT_EQ(0, test::parseInto(store, w));
    const int32_t c = int32_t(store.blockTree.roots[2]);
    EXPECT_EQ(2, store.lookupName(-1, "gd5a9", nullptr));
    EXPECT_EQ(0, store.lookupName(-1, "g78044", nullptr));
    EXPECT_EQ(3, store.lookupName(c, "gd5a9", nullptr)); // c's own comes first
    EXPECT_EQ(0, store.lookupName(c + 1, "g78044", nullptr));
    EXPECT_EQ(-1, store.lookupName(-1, "g78045", nullptr));
}

} // namespace
} // namespace ubrof
