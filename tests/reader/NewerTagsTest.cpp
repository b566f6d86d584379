// Format versions 10 and 11: variable-length numbers, the new tags, and where what they say lands.
#include "ReaderFixture.h"

#include "reader/ReaderError.h"
#include "reader/TagCodes.h"

namespace ubrof::test {
namespace {

using NewerTags = ReaderTest;

// Global lines of this module: main.c 1-2, io.h 1-5 (included at main.c line 2), main.c 3-20.
WriterSourceFiles twoFiles()
{
    WriterSourceFiles sources;
    sources.directories = {"C:\\src\\", "C:\\inc\\"};
    sources.files = {{"main.c", 1, 20, {2024, 5, 6, 7, 8, 9}}, {"io.h", 2, 5, {2024, 13, 1}}};
    sources.include(0, 0).include(2, 1).end().end();
    return sources;
}

// main at 0x100, 12 bytes: an entry row on the line of its name (global 15 = main.c 10), three
// statements, and a row past its code that marks a jump elsewhere.
WriterLineProgram mainProgram()
{
    WriterLineProgram program;
    program.kind(3).spans(1).line(15).row(0, 0, 1, 4);
    program.row(1, 2, 3, 10);
    program.calls(5).row(2);
    program.noFallThrough().row(2, 1, -2, -3);
    program.row(3);
    return program;
}

// A module as the compilers of these versions write one: its files, a function with its
// position, stack use, size and line program, a variable, and a block inside the function.
UbrofWriter typicalModule()
{
    UbrofWriter w = fileStart(10);
    w.segInfo({{"CODE", {{0x100, 0x20}}, 1}, {"CSTACK", {{0x200, 0x40}, {0x300, 2}}, 2}});
    w.begPgm("main").aux1("6.21.3.50641", 0x5A32).debug(0).sourceFiles(twoFiles());
    w.scopedName("main").scopedName("count").scopedBlockName(0, 1);
    w.typePointer(300, 15, 6).typeArray(301, 300, 4, 2, 41);
    w.symbolDef2(0, 2, 1, 0x100, 0).symbolPosition(0, 10, {0, 0, 0x10, 0x30, 0, 0});
    w.stackUseCount(1).stackUse(1, 4).sourcePosition(15, 6, 0, 9);
    w.symbolDef2(1, 4, 2, 0x60, 301).sourcePosition(4, 5, 0, 9);
    w.org(1, 0x100).functionSize(12, 0).lineProgramHeader(2);
    w.lineProgram({0, 6, 2, 0, 15, 6, 0, 9, mainProgram().bytes});
    w.absVar({1, 2}).blockBegin3(0).sourcePosition(15, 1, 10, 1).absVar({3, 4, 5, 6});
    w.blockBegin3(2).absVar({7, 8}).blockEnd().absVar({9, 10, 11, 12}).blockEnd();
    w.org(1, 0).absVar({0x0C, 0x94}); // a vector at module level
    return w.end().eof();
}

TEST_F(NewerTags, PlaceAModulesFilesFunctionsBlocksAndStatementsInTheStoreOrTheFactsAndFailAtEveryCut)
{
    const UbrofWriter w = typicalModule();
    ASSERT_EQ("", readNewer(w)) << failure;

    ASSERT_EQ(2u, store->sourceFileTable.size());
    EXPECT_EQ(std::make_pair(std::string("C:\\src\\main.c"), std::string("C:\\inc\\io.h")),
              std::make_pair(store->sourceFileTable[0].name, store->sourceFileTable[1].name));
    EXPECT_NEAR(45418.2973, store->sourceFileTable[0].timestamp, 0.0001); // 6 May 2024, 07:08:09
    EXPECT_EQ(0.0, store->sourceFileTable[1].timestamp);             // month 13: no date
    const ChunkedVector<BlockRecord>& blocks = store->blockTree.blocks;
    ASSERT_EQ(3u, blocks.size());
    EXPECT_EQ(std::make_pair(0u, 1u), std::make_pair(store->blockTree.moduleFile(0, 0), store->blockTree.moduleFile(0, 1)));

    // The function's size covers its prologue, written before its block; the block inside
    // gets the bytes written while it is open; the vector at module level widens nothing.
    EXPECT_EQ(FunctionBlock, blocks[1].kind);
    EXPECT_EQ(std::make_pair(0x100u, 0x10Cu), std::make_pair(blocks[1].lowAddress, blocks[1].highAddress));
    EXPECT_EQ(std::make_pair(0x106u, 0x108u), std::make_pair(blocks[2].lowAddress, blocks[2].highAddress));
    EXPECT_EQ(std::make_pair(0x100u, 0x10Cu), std::make_pair(blocks[0].lowAddress, blocks[0].highAddress));

    // One line record per row inside the code, each as long as the code up to the next one.
    using Line = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>;
    std::vector<Line> lines;
    for (const LineRecord& r : store->lineTable)
        lines.emplace_back(r.address, r.size, r.line, r.lineSpan, r.column, r.endColumn);
    EXPECT_EQ((std::vector<Line>{{0x100, 2, 10, 1, 1, 4}, {0x102, 4, 12, 0, 4, 14}, {0x106, 4, 12, 0, 4, 14},
                                 {0x10A, 2, 13, 0, 2, 11}}),
              lines);
    ASSERT_EQ(1u, store->fileLineRanges.size());
    EXPECT_EQ(std::make_tuple(0, 4u, 13), std::make_tuple(store->fileLineRanges[0].file,
                                                          store->fileLineRanges[0].lineRecordCount,
                                                          store->fileLineRanges[0].maxLine));
    EXPECT_EQ(std::vector<uint32_t>{0}, store->blockTree.lineRanges(1));
    EXPECT_EQ(std::vector<uint32_t>{0}, store->sourceFileTable[0].lineRanges);

    // Type indexes are variable-length numbers now, in types and symbols alike.
    ASSERT_EQ(2u, store->symbolTable.symbols.size());
    EXPECT_EQ(std::make_tuple(15u, 6u, 300u, 301u, 0x60u),
              std::make_tuple(store->typeTable.getRecord(300).kind, store->typeTable.getRecord(300).op1,
                              store->typeTable.getRecord(301).op1, uint32_t(store->symbolTable.symbols[1].typeIndex),
                              store->symbolTable.symbols[1].value));


    // What the store has no place for is kept in the facts.
    const NewerFormatFacts& facts = store->facts.newer;
    EXPECT_EQ(w.size(), facts.endOffset);

    ASSERT_EQ(2u, facts.segments.size());
    EXPECT_EQ(std::make_tuple(std::string("CSTACK"), 2, std::vector<std::pair<uint32_t, uint32_t>>{{0x200, 0x40}, {0x300, 2}}),
              std::make_tuple(facts.segments[1].name, int(facts.segments[1].leading[0]), facts.segments[1].ranges));
    ASSERT_EQ(1u, facts.moduleSources.size());
    EXPECT_EQ(std::make_tuple(std::vector<uint32_t>{0, 1}, std::vector<uint32_t>{20, 5}, size_t(3)),
              std::make_tuple(facts.moduleSources[0].files, facts.moduleSources[0].lineCounts,
                              facts.moduleSources[0].spans.size()));

    // Positions, stack use and sizes describe what was defined just before them; the program
    // model's tests check each through the entries, lines and stack use it builds from them.
    EXPECT_EQ((std::vector<size_t>{1, 1, 1, 1}), (std::vector<size_t>{facts.symbolSources.size(), facts.stackUses.size(),
                                                                  facts.functionSizes.size(), facts.functionLines.size()}));
    ASSERT_EQ(3u, facts.positions.size());
    const auto& block = facts.positions[2];
    EXPECT_EQ(std::make_tuple(true, 1u, 0u, 10u, 1u), std::make_tuple(block.ofBlock, block.index, block.position.file,
                                                                      block.position.line, block.position.extent.lastColumn));
    std::vector<std::tuple<uint32_t, uint32_t, uint32_t, RowKind, bool, uint32_t>> rows;
    for (const StatementRow& r : facts.rows)
        rows.emplace_back(r.address, r.line, r.endLine, r.kind, r.fallsThrough, r.callee);
    EXPECT_EQ((decltype(rows){{0x100, 10, 11, RowKind::Entry, true, kNoIndex},
                              {0x102, 12, 12, RowKind::Statement, true, kNoIndex},
                              {0x106, 12, 12, RowKind::Call, true, 5},
                              {0x10A, 13, 13, RowKind::Statement, false, kNoIndex}}),
              rows);
    EXPECT_TRUE(facts.notes.empty());

    // The same file cut short anywhere fails without a crash.
    for (size_t n = 0; n < w.size(); ++n)
        ASSERT_EQ(kUnexpectedEndOfFile, readNewer(w.prefix(n))) << "cut after " << n << " bytes";
}

TEST_F(NewerTags, NoteWhatTheyDoNotUnderstandAndFallBackToTheRecordsLine)
{
    UbrofWriter w = fileStart(10);
    w.begPgm("m").sourceFiles(twoFiles()).scopedName("f").scopedName("g").scopedName("h");
    w.org(1, 0x200).functionSize(8, 0).lineProgramHeader(2);
    WriterLineProgram unknownOpcode;
    unknownOpcode.kind(3).line(15).row(0).byte(1).row(1);
    w.lineProgram({0, 4, 2, 0, 15, 1, 0, 1, unknownOpcode.bytes});
    w.absVar({1, 2, 3, 4, 5, 6, 7, 8}).blockBegin3(0).blockEnd();
    WriterLineProgram fragment;
    fragment.line(18).row(0);
    w.org(1, 0x300).lineProgram({1, 2, 0, 9, 18, 3, 0, 7, fragment.bytes});   // a shared fragment
    w.lineProgram({2, 2, 2, 0, 19, 1, 0, 1, fragment.bytes, 4});                // no header 4
    w.counted(uint8_t(NewerTag::t_line_program), {7, 1, 2});                    // a kind never seen
    w.counted(uint8_t(NewerTag::t_function_info), {5, 1, 2, 3});                // kinds other than 3 pass
    w.end().eof();
    ASSERT_EQ("", readNewer(w)) << failure;

    const NewerFormatFacts& facts = store->facts.newer;
    const char* says[] = {"of f are not understood: opcode 1 at byte 16",
                          "of g are not understood: it is a shared code fragment",
                          "header 4, which the file does not give", "of kind 7"};
    ASSERT_EQ(4u, facts.notes.size());
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_NE(std::string::npos, facts.notes[i].text.find(says[i])) << facts.notes[i].text;
        // Each note says where: the offset of its tag.
        EXPECT_EQ(uint8_t(NewerTag::t_line_program), w.bytes().at(facts.notes[i].offset)) << facts.notes[i].text;
    }
    // One row per record, at its code address, on the record's own line; none in the store.
    std::vector<std::tuple<uint32_t, uint32_t, uint32_t, bool>> rows;
    for (const StatementRow& r : facts.rows)
        rows.emplace_back(r.address, r.file, r.line, r.fallback);
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ((decltype(rows){{0x200, 0, 10, true}, {0x300, 0, 13, true}}), decltype(rows)(rows.begin(), rows.begin() + 2));
    EXPECT_TRUE(std::get<3>(rows[2]));
    EXPECT_TRUE(store->lineTable.empty());
    // The function's size still gives its block its code.
    EXPECT_EQ(std::make_pair(0x200u, 0x208u),
              std::make_pair(store->blockTree.blocks[1].lowAddress, store->blockTree.blocks[1].highAddress));
}

TEST_F(NewerTags, AreReadOnlyWhenAllowedAndOnlyInTheirVersions)
{
    const UbrofWriter newer = typicalModule();
    EXPECT_EQ(kTagProcessingError, read(newer));
    EXPECT_NE(std::string::npos, failure.find("in tag 0xBD (t_version) at offset 7: format version 10 is not read"))
        << failure;
    EXPECT_TRUE(store->moduleTable.empty());

    // Version 9 is the facade's test, with the whole message a host sees.
    UbrofWriter twelve;
    twelve.begFile1().version(12).raw({0, 0, 0});
    EXPECT_EQ(kTagProcessingError, readNewer(twelve.eof()));
    EXPECT_NE(std::string::npos, failure.find("newer than 11")) << failure;

    // In a version 8 file the new tag codes are unknown tags: the skip rule, never a handler,
    // and no variable-length count.
    UbrofWriter old;
    old.begFile1().version(8, 0, 0, {{0xD7, 3}, {0xB0, 0xFD}}).begLib("m");
    old.tag(0xD7).raw({0x8A, 0x4A, 0x05}).tag(0xB0).u8(1).u8(9).typePointer(300, 15, 6).end().eof();
    EXPECT_EQ("", readNewer(old)) << failure;
    EXPECT_TRUE(store->facts.newer.positions.empty());
    EXPECT_EQ(6u, store->typeTable.getRecord(300).op1); // 16-bit indexes, as ever
    UbrofWriter stackCount = fileStart(8);
    stackCount.stackUseCount(1).eof();
    EXPECT_EQ(kUnknownTag, readNewer(stackCount));

    // A newer file that declares another layout for a new tag has it passed over by that layout.
    UbrofWriter other;
    other.begFile1().version(10, 0, 2, {{0xD7, 0xFE}}).begLib("m").tag(0xD7).u16(2).raw({1, 2}).end().eof();
    EXPECT_EQ("", readNewer(other)) << failure;
    EXPECT_TRUE(store->facts.newer.positions.empty());

    // Other t_aux_1 codes are no error from version 10 on.
    UbrofWriter aux = fileStart(10);
    aux.begLib("m").aux1("9.10", 0x2000).end().eof();
    EXPECT_EQ("", readNewer(aux)) << failure;
    EXPECT_EQ(0x2000, store->moduleTable[0].versionCode);
}

// A read out of step is caught where a tag's leading length disagrees with its fields, or where
// a 0xFF taken for the end has more of the file after it. Include-tree problems are the include
// tree's own test; here only that they fail the tag.
TEST_F(NewerTags, FailWithWhatAndWhereOnBadNumbersAndBodies)
{
    using Build = std::function<void(UbrofWriter&)>;
    WriterSourceFiles stray = twoFiles();
    stray.tree = {3};
    const std::pair<Build, std::vector<const char*>> cases[] = {
        {[](UbrofWriter& w) { w.tag(uint8_t(Tag::t_type)).vnum(0x10000).u8(15).vnum(1); },
         {"(t_type) at", "type index 65536 beyond"}},
        {[](UbrofWriter& w) { w.tag(uint8_t(Tag::t_type)).raw({0x80, 0x80, 0x80, 0x80, 0x80, 1}); }, {"longer than five bytes"}},
        {[](UbrofWriter& w) { w.tag(uint8_t(Tag::t_type)).raw({0x80, 0x80, 0x80, 0x80, 0x10}); }, {"beyond 32 bits"}},
        {[](UbrofWriter& w) { w.counted(uint8_t(NewerTag::t_source_position), {1, 2, 3, 4, 5}); },
         {"(t_source_position) at", "1 bytes after the position"}},
        {[](UbrofWriter& w) { w.counted(uint8_t(NewerTag::t_stack_use), {1, 0x84}); },
         {"(t_stack_use) at", "the body ends inside a field"}},
        {[&](UbrofWriter& w) { w.sourceFiles(stray); }, {"include-tree step 3"}},
        {[](UbrofWriter& w) { w.tag(uint8_t(NewerTag::t_stack_use)).vnum(0xFFFFFF); },
         {"Unexpected end of file in tag 0xD8 (t_stack_use)"}},
        {[](UbrofWriter& w) { w.tag(0xD9).vnum(1000); }, {"Unexpected end of file in tag 0xD9"}},
        {[](UbrofWriter& w) { w.tag(uint8_t(Tag::t_scoped_name)).u32(9).u8(1).u32(1).raw({'x'}).u32(0xFFFFFFFF); },
         {"(t_scoped_name) at offset 121", "its length says it ends at offset 135, its fields at 136"}}};
    for (const auto& [build, parts] : cases) {
        UbrofWriter w = fileStart(10);
        w.begLib("m").sourceFiles(twoFiles());
        const std::string at = "at offset " + std::to_string(w.size());
        build(w);
        EXPECT_NE("", readNewer(w.end().eof()));
        EXPECT_NE(std::string::npos, failure.find(at)) << failure;
        for (const char* part : parts)
            EXPECT_NE(std::string::npos, failure.find(part)) << failure;
    }
    UbrofWriter trailing = fileStart(10);
    trailing.begLib("m").end().eof().raw({0x4A, 0x00});
    EXPECT_EQ(kTagProcessingError, readNewer(trailing));
    EXPECT_NE(std::string::npos, failure.find("(t_ubrof_eof) at offset " + std::to_string(trailing.size() - 3) +
                                              ": 2 bytes follow the end of the file's tags"))
        << failure;
}

} // namespace
} // namespace ubrof::test
