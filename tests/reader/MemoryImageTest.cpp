// The paged memory images against the flat image they replace, and what a hostile layout costs.
#include "ReaderFixture.h"

#include "parser/UbrofParser.h"
#include "reader/ReaderError.h"

#include <algorithm>
#include <random>

namespace ubrof::test {
namespace {

/// The flat image the paged ones replaced: every byte written, the fill byte elsewhere.
struct FlatImage {
    std::map<uint32_t, uint8_t> bytes;
    uint32_t low = 0xFFFFFFFF, high = 0;

    void write(uint32_t address, const std::vector<uint8_t>& data)
    {
        for (size_t i = 0; i < data.size(); ++i)
            bytes[address + uint32_t(i)] = data[i];
        low = std::min(low, address);
        high = std::max<uint32_t>(high, address + uint32_t(data.size()) - 1);
    }
    std::vector<uint8_t> read(uint32_t address, uint32_t count) const
    {
        std::vector<uint8_t> out(count, 0xFF);
        for (auto it = bytes.lower_bound(address); it != bytes.end() && it->first - address < count; ++it)
            out[it->first - address] = it->second;
        return out;
    }
};

std::vector<uint8_t> readImage(const DMemory& image, uint32_t address, uint32_t count)
{
    std::vector<uint8_t> out(count, 0x5A);
    image.read(address, count, out.data());
    return out;
}

// Code, data and EEPROM bytes at random origins, clustered near page boundaries or scattered,
// some overlapping; types 2 and 7 go to data, 3 to EEPROM.
TEST(MemoryImage, TheStoreAndItsSegmentsAnswerAsTheFlatImages)
{
    std::mt19937 random(11);
    for (int round = 0; round < 12; ++round) {
        std::map<uint8_t, FlatImage> flat{{1, {}}, {2, {}}, {4, {}}};
        UbrofWriter w = fileStart();
        w.begLib("m").aux1("2.0");
        for (int tag = 0; tag < 100; ++tag) {
            const uint8_t type = std::array<uint8_t, 4>{0, 2, 7, 3}[random() % 4];
            const uint8_t memoryClass = type == 0 ? 1 : type == 3 ? 4 : 2;
            uint32_t address = random() % 3 ? random() % 0x800000 : 0x1000 * (random() % 8) + 0xF00 + random() % 0x200;
            w.org(type, address);
            for (int run = 0, runs = 1 + int(random() % 3); run < runs; ++run) {
                std::vector<uint8_t> bytes(1 + random() % 250);
                for (uint8_t& byte : bytes)
                    byte = static_cast<uint8_t>(random());
                w.absVar(bytes);
                flat.at(memoryClass).write(address, bytes);
                address += static_cast<uint32_t>(bytes.size());
            }
        }
        ScratchDir dir;
        UbrofParser parser(dir.save(w.end().eof()));
        const TarnUbrofParser& store = *parser.getStore();
        for (auto& [memoryClass, image] : flat) {
            uint32_t low = 0, high = 0, reserved = 1;
            ASSERT_EQ(0, store.getMemoryRange(memoryClass, &low, &high, &reserved));
            ASSERT_EQ(std::make_tuple(image.low, image.high, 0u), std::make_tuple(low, high, reserved));
            for (int read = 0; read < 50; ++read) {
                const uint32_t address = read == 0 ? 0 : random() % 0x900000;
                const uint32_t count = read == 0 ? 0x900000 : random() % 0x3000;
                std::vector<uint8_t> out(count);
                ASSERT_EQ(0, store.readMemory(memoryClass, address, count, out.data()));
                ASSERT_EQ(image.read(address, count), out);
            }
        }
        for (const auto& segment : parser.createBinaryInformation()->getProgramSegments()) {
            const uint8_t memoryClass = segment->getMemoryType() == "prog" ? 1 : segment->getMemoryType() == "data" ? 2 : 4;
            const FlatImage& image = flat.at(memoryClass);
            ASSERT_EQ(image.low, segment->getStartAddress());
            std::vector<uint8_t> bytes;
            segment->readData(bytes, segment->getStartAddress(), segment->getSize());
            ASSERT_EQ(image.read(image.low, image.high - image.low + 1), bytes);
        }
    }
}

TEST_F(ReaderTest, BytesAtTheTopOfEachMemoryTakeAFewPagesAndNothingPastTheLastAddress)
{
    UbrofWriter w = fileStart();
    w.begLib("top").aux1("2.0");
    w.org(1, 0xFFFFFFFF).absVar({1}).org(2, 0xFFFFFFFF).absVar({2}).org(3, 0xFFFFFFFF).absVar({3});
    w.org(1, 0xFFFF0000).absVar({4, 5});
    ASSERT_EQ("", read(w.end().eof()));
    for (const DMemory* image : {&store->codeMemory, &store->dataMemory, &store->eepromMemory})
        EXPECT_LE(image->allocatedBytes(), 3u * 12 * 1024);
    EXPECT_EQ(std::make_pair(0xFFFF0000u, 0xFFFFFFFFu),
              std::make_pair(store->codeMemory.lowAddress(), store->codeMemory.highAddress()));
    EXPECT_EQ(std::vector<uint8_t>({4, 5, 0xFF}), readImage(store->codeMemory, 0xFFFF0000, 3));
    EXPECT_EQ(std::vector<uint8_t>({0xFF, 1}), readImage(store->codeMemory, 0xFFFFFFFE, 2));
    EXPECT_EQ(std::vector<uint8_t>({3, 0xFF}), readImage(store->eepromMemory, 0xFFFFFFFF, 2));

    // What would lie past the last address has no address and is dropped; an empty write
    // straight to the image widens its range, which is why the reader makes none.
    DMemory image(0x1000, 0);
    const std::vector<uint8_t> bytes(0xFF, 7);
    image.write(0xFFFFFFFF, bytes.data(), 0xFF);
    EXPECT_EQ(uint64_t(0x1000000000), image.capacity());
    EXPECT_EQ(std::vector<uint8_t>({0, 7, 0}), readImage(image, 0xFFFFFFFE, 3));
    image.write(0x10, nullptr, 0);
    EXPECT_EQ(std::make_pair(0x10u, 0xFFFFFFFFu), std::make_pair(image.lowAddress(), image.highAddress()));
}

TEST_F(ReaderTest, BytesScatteredOverNewPagesStopAtTheImagesBudget)
{
    // Nine bytes of file place a byte on a page of its own: the images would take over four
    // hundred times the file.
    UbrofWriter w = fileStart();
    w.begLib("scatter");
    const size_t header = w.size();
    for (uint32_t region = 0; region < 1024; ++region)
        for (uint32_t page = 0; page < 8; ++page)
            w.org(2, region << 22 | page << 12).absVar({1}).org(1, region << 22 | page << 12).absVar({2});
    EXPECT_EQ(kOutOfMemory, read(w.end().eof()));

    // Where the budget ran out, and what it was: each byte costs a page, and the first byte
    // of each 4 MiB region of a memory a page table too.
    const uint64_t budget = 4 * w.size() + (uint64_t(48) << 20);
    uint64_t used = 0, offset = header;
    for (uint32_t write = 0; used <= budget; ++write) {
        offset += 6 + 2 + 1; // t_org, then the tag, count and byte of t_abs_var
        used += 4096 + (write % 16 < 2 ? 8192 : 0);
    }
    --offset;
    EXPECT_EQ("the memory images would take more than " + std::to_string(budget) +
                  " bytes (four times the file and 48 MiB) at file offset " + std::to_string(offset),
              detail);
}

} // namespace
} // namespace ubrof::test
