// Compiler information: base types over the defaults, with and without resized types, and the type-width words.
#include "TestFiles.h"

#include "parser/UbrofParser.h"

#include <gtest/gtest.h>

namespace ubrof {
namespace {

using test::ScratchDir;

boost::shared_ptr<tarn::ICompilerInformation> compilerOf(UbrofWriter& w)
{
    ScratchDir dir;
    return UbrofParser(dir.save(w.end().eof())).createCompilerInformation();
}

TEST(CompilerInformation, BaseTypesComeFromTheTypeTableOverTheDefaults)
{
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").aux1("2.50");
    const auto compiler = compilerOf(w);
    EXPECT_EQ("IAR", compiler->getMachine());
    EXPECT_FALSE(compiler->isBigEndian());
    EXPECT_EQ("IAR  2.5", compiler->getProducer());

    const auto types = compiler->getBaseTypes();
    std::vector<int32_t> ids;
    for (const auto& [id, info] : types) {
        ids.push_back(id);
        EXPECT_EQ(id, info.id);
    }
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}), ids);
    auto row = [&](int32_t id) {
        const tarn::BaseTypeInfo& info = types.at(id);
        return std::make_tuple(info.name, info.size, info.bits, info.isSigned, info.byteOrder);
    };
    EXPECT_EQ(std::make_tuple(std::string("far func *"), 3u, 24u, true, 1u), row(0));
    EXPECT_EQ(std::make_tuple(std::string("char"), 1u, 8u, true, 1u), row(1));
    EXPECT_EQ(std::make_tuple(std::string("unsigned char"), 1u, 8u, false, 1u), row(2));
    EXPECT_EQ(std::make_tuple(std::string("int"), 2u, 16u, true, 1u), row(6));
    EXPECT_EQ(std::make_tuple(std::string("double"), 4u, 32u, true, 1u), row(14));
    EXPECT_EQ(std::make_tuple(std::string(), 4u, 32u, false, 0u), row(12));
    EXPECT_EQ(std::make_tuple(std::string(), 2u, 16u, false, 0u), row(17));
    EXPECT_EQ(std::make_tuple(std::string(), 4u, 32u, false, 0u), row(19));

    const auto info = compiler->createCompilerInfo();
    EXPECT_EQ(info, compiler->createCompilerInfo());
    EXPECT_EQ((std::array<int32_t, 14>{5, 8, 16, 16, 32, 64, -1, -1, 64, 32, 16, 32, 32, 64}), info->words);
    EXPECT_EQ((std::array<uint8_t, 3>{1, 0, 0}), info->flags);
    EXPECT_EQ(15, info->last);
}

TEST(CompilerInformation, AResizedDoubleWidensItsBaseTypeAndWord)
{
    UbrofWriter w;
    w.begFile1().version(8).begLib("main").sizeType(10, 8);
    const auto compiler = compilerOf(w);
    EXPECT_EQ("IAR  0", compiler->getProducer());
    const tarn::BaseTypeInfo dbl = compiler->getBaseTypes().at(14);
    EXPECT_EQ(8u, dbl.size);
    EXPECT_EQ(64u, dbl.bits);
    EXPECT_EQ(64, compiler->createCompilerInfo()->words[12]);
}

} // namespace
} // namespace ubrof
