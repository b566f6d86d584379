// The store's lifecycle codes and its memory queries over what the reader filled in.
#include "ReaderFixture.h"

namespace ubrof::test {
namespace {

TEST(Store, AnswersEachLifecycleStepWithItsCode)
{
    ScratchDir dir;
    UbrofWriter good = fileStart();
    good.begLib("m").end().eof();
    const std::string goodPath = dir.save(good, "good.d90");
    const std::string cutPath = dir.save(good.prefix(good.size() - 1), "cut.d90");
    const std::string emptyPath = dir.save(std::vector<uint8_t>{}, "empty.d90");
    UbrofWriter wrongStart;
    wrongStart.begFile().version(8).eof();
    const std::string wrongPath = dir.save(wrongStart, "wrong.d90");

    // Before initialize() a parse reads nothing and memory answers "not parsed".
    TarnUbrofParser store;
    uint32_t low = 0, high = 0, reserved = 0;
    uint8_t byte = 0;
    EXPECT_EQ((std::vector<int>{-2, 2, 3, 3, 0, -2, 0x100, 0x102, 0x102}),
              (std::vector<int>{store.checkFile(""), store.checkFile(dir.path("missing.d90")), store.checkFile(emptyPath),
                                store.checkFile(wrongPath), store.checkFile(goodPath), store.parseFile(""),
                                store.parseFile(goodPath), store.getMemoryRange(1, &low, &high, &reserved),
                                store.readMemory(1, 0, 1, &byte)}));
    EXPECT_TRUE(store.moduleTable.empty());

    // What was read before a failure stays, but the store still counts as not parsed.
    ASSERT_TRUE(store.initialize());
    EXPECT_EQ(3, store.parseFile(cutPath));
    EXPECT_EQ(1u, store.moduleTable.size());
    EXPECT_EQ(0x102, store.getMemoryRange(1, &low, &high, &reserved));

    TarnUbrofParser fresh;
    fresh.initialize();
    EXPECT_EQ(0, fresh.parseFile(goodPath));
    EXPECT_EQ(goodPath, fresh.filePath);
    EXPECT_EQ((std::vector<int>{0x101, -2, -2, -2}),
              (std::vector<int>{fresh.parseFile(goodPath), fresh.getMemoryRange(1, nullptr, &high, &reserved),
                                fresh.getMemoryRange(1, &low, &high, nullptr), fresh.readMemory(1, 0, 1, nullptr)}));
    for (uint8_t unknown : {0, 3, 8, 16, 0x20, 0x80}) {
        EXPECT_EQ(1, fresh.getMemoryRange(unknown, &low, &high, &reserved)) << int(unknown);
        EXPECT_EQ(1, fresh.readMemory(unknown, 0, 1, &byte)) << int(unknown);
    }
}

// Code, data and EEPROM images answer through the store in the memory-image tests; class 0x40
// is the statement map, one byte of flags per code word.
TEST(Store, ReadsTheStatementMap)
{
    ScratchDir dir;
    UbrofWriter w = fileStart();
    w.aux1("2.0").begLib("m").org(1, 0x101).srcStat(1, 1, 14).absVar({0xA1, 0xA2, 0xA3});
    w.srcStat(2, 2, 9).absVar({0xA4}).srcStat(3, 3, 0).absVar({0xA5}).org(1, 0x20A).srcStat(4, 4);
    w.absVar({0xA6}).end().eof();
    TarnUbrofParser store;
    store.initialize();
    ASSERT_EQ(0, store.parseFile(dir.save(w)));
    uint32_t low = 1, high = 1, reserved = 1;
    EXPECT_EQ(0, store.getMemoryRange(0x40, &low, &high, &reserved));
    EXPECT_EQ(std::make_tuple(0x80u, 0x105u, 0u), std::make_tuple(low, high, reserved));
    auto read = [&store](uint32_t start, uint32_t count) {
        std::vector<uint8_t> out(count, 0x55);
        EXPECT_EQ(0, store.readMemory(0x40, start, count, out.data()));
        return out;
    };
    // Words 0x80 to 0x82, then 0x105: 0x101 is word 0x80; 0x104 and 0x105 share word 0x82,
    // where the later statement's flags win.
    EXPECT_EQ((std::vector<uint8_t>{0, 3, 0, 1, 0}), read(0x7F, 5));
    EXPECT_EQ((std::vector<uint8_t>{1}), read(0x105, 1));
}

} // namespace
} // namespace ubrof::test
