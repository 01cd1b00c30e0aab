#include <gtest/gtest.h>

#include <string>

#include "tests/support/poolBlocks.h"
#include "tests/support/poolTypes.h"
#include "util/common/blockTypes.h"

namespace {

std::uint32_t Word(std::string_view bytes) {
    std::uint32_t word = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        word = word << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return word;
}

unsigned TypeOf(const std::string& block) {
    return ClassifyBlock(ReadBlockWords(block.data()));
}

TEST(BlockTypes, CarryTheTablesNamesAndMagicsInItsOrder) {
    ASSERT_EQ(kBlockTypes.size(), 41U);
    for (std::size_t i = 0; i < 41; ++i) {
        EXPECT_STREQ(kBlockTypes[i].name, std::string(support::kPoolTypes[i].name).c_str());
        EXPECT_EQ(kBlockTypes[i].magic, Word(support::kPoolTypes[i].magic)) << i;
    }
}

TEST(BlockTypes, StandInThreeGroups) {
    EXPECT_EQ(kFirstWordStart, 0U);
    EXPECT_EQ(kFirstWordTypes, 39U);
    EXPECT_EQ(kSecondWordStart, 39U);
    EXPECT_EQ(kSecondWordTypes, 1U);
    EXPECT_EQ(kUserType, 40U);
}

TEST(BlockTypes, KeepTheCrossedMagicsOfTheDBTRows) {
    EXPECT_STREQ(kBlockTypes[TypeOf(support::MakeBlock("DLEF"))].name, "DBT branch");
    EXPECT_STREQ(kBlockTypes[TypeOf(support::MakeBlock("DBRH"))].name, "DBT leaf");
}

TEST(BlockMagic, IsTheLittleEndianWordOfItsBytes) {
    static_assert(BlockMagic("LEAF") == 0x4641454C);
    static_assert(BlockMagic("MFL ") == 0x204C464D);
    static_assert(BlockMagic("\xFF\x00\x80\x7F") == 0x7F8000FF);
    EXPECT_EQ(kMagicSuperblock32, Word("SPB5"));
    EXPECT_EQ(kMagicSuperblock64, Word("SB64"));
    EXPECT_EQ(kMagicLeaf32, Word("LEAF"));
    EXPECT_EQ(kMagicLeaf64, Word("BtqZ"));
    EXPECT_EQ(kMagicMSAP, Word("PASM"));
}

TEST(ReadBlockWords, TakesTheBytes0To3And4To7) {
    const BlockWords words = ReadBlockWords("\x01\x02\x03\x04\x05\x06\x07\x08\x09");
    EXPECT_EQ(words.first, 0x04030201U);
    EXPECT_EQ(words.second, 0x08070605U);
}

TEST(ReadBlockWords, NeedsNoAlignment) {
    const char bytes[] = "xLEAFoVUk";
    EXPECT_EQ(ReadBlockWords(bytes + 1).first, Word("LEAF"));
    EXPECT_EQ(ReadBlockWords(bytes + 1).second, Word("oVUk"));
}

TEST(ClassifyBlock, KnowsEveryFirstWord) {
    for (unsigned i = 0; i < 39; ++i) {
        EXPECT_EQ(TypeOf(support::MakeBlock(support::kPoolTypes[i].magic, 'x')), i);
    }
}

TEST(ClassifyBlock, LooksAtTheSecondWordWhenTheFirstIsUnknown) {
    EXPECT_EQ(TypeOf(support::MakeBlock("????oVUk")), 39U);
    EXPECT_EQ(TypeOf(support::MakeBlock(std::string(4, '\0') + "oVUk")), 39U);
}

TEST(ClassifyBlock, LetsAKnownFirstWordDecide) {
    EXPECT_EQ(TypeOf(support::MakeBlock("LEAFoVUk")), 2U);
}

TEST(ClassifyBlock, TakesAllElseForAUserBlock) {
    EXPECT_EQ(TypeOf(support::MakeBlock("")), 40U);
    EXPECT_EQ(TypeOf(support::MakeBlock("leaf")), 40U);
    EXPECT_EQ(TypeOf(support::MakeBlock("oVUk")), 40U);
    EXPECT_EQ(TypeOf(support::MakeBlock("????LEAF")), 40U);
    EXPECT_EQ(TypeOf(support::MakeBlock("MFL")), 40U);
}

TEST(FindType, SearchesItsOwnGroupAlone) {
    EXPECT_EQ(FindFirstWordType(Word("ZLBH")), 38U);
    EXPECT_EQ(FindFirstWordType(Word("oVUk")), 40U);
    EXPECT_EQ(FindSecondWordType(Word("oVUk")), 39U);
    EXPECT_EQ(FindSecondWordType(Word("ZLBH")), 40U);
    EXPECT_EQ(FindFirstWordType(0), 40U);
    EXPECT_EQ(FindSecondWordType(0), 40U);
}

}  // namespace
