// Compiler information: base types over the defaults, with and without a resized type, and the type-width words.
#include "TestFiles.h"

#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

boost::shared_ptr<tarn::ICompilerInformation> compilerOf(UbrofWriter& w)
{
    test::ScratchDir dir;
    return UbrofParser(dir.save(w.end().eof())).createCompilerInformation();
}

TEST(CompilerInformation, BaseTypesComeFromTheTypeTableOverTheDefaults)
{
    UbrofWriter w;
    const auto compiler = compilerOf(w.begFile1().version(8).begLib("main").aux1("2.50"));
    EXPECT_EQ("Nordic", compiler->getMachine());
    EXPECT_EQ("Nordic  2.5", compiler->getProducer());

    const auto types = compiler->getBaseTypes();
    std::vector<int32_t> ids;
    for (const auto& entry : types)
        ids.push_back(entry.first);
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}), ids);
    auto row = [&](int32_t id) {
        const tarn::BaseTypeInfo& info = types.at(id);
        return std::make_tuple(info.id, info.name, info.size, info.bits, info.isSigned, info.byteOrder);
    };
    // Id 0 gathers every other name; the last in index order stays.
    EXPECT_EQ(std::make_tuple(0, std::string("far func *"), 3u, 24u, true, 1u), row(0));
    EXPECT_EQ(std::make_tuple(1, std::string("char"), 1u, 8u, true, 1u), row(1));
    EXPECT_EQ(std::make_tuple(2, std::string("unsigned char"), 1u, 8u, false, 1u), row(2));
    EXPECT_EQ(std::make_tuple(6, std::string("int"), 2u, 16u, true, 1u), row(6));
    EXPECT_EQ(std::make_tuple(17, std::string(), 2u, 16u, false, 0u), row(17)); // a default row

    const auto info = compiler->createCompilerInfo();
    EXPECT_EQ(info, compiler->createCompilerInfo());
    EXPECT_EQ((std::array<int32_t, 14>{5, 8, 16, 16, 32, 64, -1, -1, 64, 32, 16, 32, 32, 64}), info->words);
    EXPECT_EQ((std::array<uint8_t, 3>{1, 0, 0}), info->flags);
    EXPECT_EQ(15, info->last);
}

TEST(CompilerInformation, AResizedDoubleWidensItsBaseTypeAndWord)
{
    UbrofWriter w;
    const auto compiler = compilerOf(w.begFile1().version(8).begLib("main").sizeType(10, 8));
    EXPECT_EQ("Nordic  0", compiler->getProducer());
    EXPECT_EQ(64u, compiler->getBaseTypes().at(14).bits);
    EXPECT_EQ(64, compiler->createCompilerInfo()->words[12]);
}

} // namespace
} // namespace ubrof
