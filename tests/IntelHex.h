// Test support: the bytes an Intel HEX file holds, by address, read strictly enough to judge a writer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <string>

namespace ubrof::test {

/// The data records of an Intel HEX file by address (types 02 and 04 move the base). A line that
/// is not a record, or whose length or checksum is wrong, fails the test.
inline std::map<uint32_t, uint8_t> readIntelHex(const std::string& path)
{
    std::ifstream in(path);
    EXPECT_TRUE(in.good()) << "cannot read " << path;
    std::map<uint32_t, uint8_t> bytes;
    uint32_t base = 0;
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        if (line[0] != ':' || line.size() < 11 || line.size() % 2 == 0 ||
            line.find_first_not_of("0123456789ABCDEFabcdef", 1) != std::string::npos) {
            ADD_FAILURE() << path << ":" << number << " is not a record: " << line;
            continue;
        }
        auto byteAt = [&line](size_t i) { return static_cast<uint8_t>(std::stoul(line.substr(1 + 2 * i, 2), nullptr, 16)); };
        const size_t count = byteAt(0);
        if (line.size() != 11 + 2 * count) {
            ADD_FAILURE() << path << ":" << number << " holds no " << count << " data bytes: " << line;
            continue;
        }
        uint8_t sum = 0;
        for (size_t i = 0; i < count + 5; ++i)
            sum = static_cast<uint8_t>(sum + byteAt(i));
        EXPECT_EQ(0, sum) << path << ":" << number << " has a wrong checksum: " << line;
        const uint32_t offset = uint32_t(byteAt(1)) << 8 | byteAt(2);
        const uint8_t type = byteAt(3);
        if (type == 0)
            for (uint32_t i = 0; i < count; ++i)
                bytes[base + offset + i] = byteAt(4 + i);
        else if (type == 2 && count == 2)
            base = (uint32_t(byteAt(4)) << 8 | byteAt(5)) << 4;
        else if (type == 4 && count == 2)
            base = (uint32_t(byteAt(4)) << 8 | byteAt(5)) << 16;
    }
    return bytes;
}

} // namespace ubrof::test
