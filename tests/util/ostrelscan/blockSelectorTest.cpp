#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/poolBlocks.h"
#include "tests/support/poolTypes.h"
#include "util/ostrelscan/blockSelector.h"

namespace {

using support::MakeBlock;

constexpr unsigned kUnknown = 0x3F3F3F3F;

class Selector : public testing::Test {
  protected:
    std::vector<const BlockSelect_s*> Rows() {
        std::vector<const BlockSelect_s*> rows;
        const std::unique_ptr<BS_Key> key(selector_.EnumerateOpen(0));
        while (const BlockSelect_s* row = selector_.Enumerate(key.get())) {
            rows.push_back(row);
        }
        return rows;
    }

    std::string NameOf(const std::string& block) {
        return selector_.BlockSelectGet(block.data())->name;
    }

    std::string Displayed() {
        std::ostringstream stream;
        selector_.AccountDisplay(stream);
        return stream.str();
    }

    BlockSelector selector_;
};

TEST_F(Selector, BeginsWithAll41TypesSelectedAndNoneCounted) {
    const std::vector<const BlockSelect_s*> rows = Rows();
    ASSERT_EQ(rows.size(), 41U);
    EXPECT_EQ(selector_.TypeCount(), 41U);
    for (std::size_t i = 0; i < 41; ++i) {
        EXPECT_EQ(rows[i]->name, support::kPoolTypes[i].name);
        EXPECT_EQ(rows[i]->magic, kBlockTypes[i].magic) << i;
        EXPECT_EQ(rows[i]->selected, 1) << i;
        EXPECT_EQ(rows[i]->count, 0U) << i;
    }
}

TEST_F(Selector, TakesLEAFForALeafOf32AndDLEFForADBTBranch) {
    EXPECT_EQ(NameOf(MakeBlock("LEAF")), "BT leaf Z32");
    EXPECT_EQ(NameOf(MakeBlock("DLEF")), "DBT branch");
}

TEST_F(Selector, KnowsTheNewKUVOByItsSecondWordUnlessTheFirstIsKnown) {
    EXPECT_EQ(NameOf(MakeBlock("????oVUk")), "KUVO(New)");
    EXPECT_EQ(NameOf(MakeBlock("LEAFoVUk")), "BT leaf Z32");
    EXPECT_EQ(NameOf(MakeBlock("oVUk")), "User");
}

TEST_F(Selector, TakesAnAllZeroBlockForAUserBlock) {
    EXPECT_EQ(NameOf(MakeBlock("")), "User");
    EXPECT_TRUE(selector_.IsUserBlock(0, 0));
    EXPECT_FALSE(selector_.HasSystemBlockMagic(MakeBlock("").data()));
    EXPECT_EQ(selector_.HasSystemBlockMagicItem(MakeBlock("").data()), nullptr);
}

TEST_F(Selector, FindsARowByMagicInBothGroups) {
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("ZLBH"))->name, "Zlog");
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("oVUk"))->name, "KUVO(New)");
    EXPECT_STREQ(selector_.BlockSelectGet(kUnknown)->name, "User");
}

TEST_F(Selector, FindsARowByMagicInOneGroupOrNone) {
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("ZLBH"), false)->name, "Zlog");
    EXPECT_EQ(selector_.BlockSelectGet(BlockMagic("ZLBH"), true), nullptr);
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("oVUk"), true)->name, "KUVO(New)");
    EXPECT_EQ(selector_.BlockSelectGet(BlockMagic("oVUk"), false), nullptr);
    EXPECT_EQ(selector_.BlockSelectGet(0U, false), nullptr);
    EXPECT_EQ(selector_.BlockSelectGet(0U, true), nullptr);
}

TEST_F(Selector, FindsARowByTwoWords) {
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("SPB5"), BlockMagic("oVUk"))->name, "SBH Z32");
    EXPECT_STREQ(selector_.BlockSelectGet(kUnknown, BlockMagic("oVUk"))->name, "KUVO(New)");
    EXPECT_STREQ(selector_.BlockSelectGet(kUnknown, BlockMagic("SPB5"))->name, "User");
    EXPECT_STREQ(selector_.BlockSelectGet(BlockMagic("oVUk"), kUnknown)->name, "User");
}

TEST_F(Selector, TellsSystemBlocksFromUserBlocks) {
    EXPECT_TRUE(selector_.HasSystemBlockMagic(MakeBlock("PASM").data()));
    EXPECT_TRUE(selector_.HasSystemBlockMagic(MakeBlock("????oVUk").data()));
    EXPECT_STREQ(selector_.HasSystemBlockMagicItem(MakeBlock("PASM").data())->name, "MSAP");
    EXPECT_FALSE(selector_.IsUserBlock(BlockMagic("PASM"), 0));
    EXPECT_FALSE(selector_.IsUserBlock(0, BlockMagic("oVUk")));
    EXPECT_TRUE(selector_.IsUserBlock(BlockMagic("oVUk"), BlockMagic("PASM")));
}

TEST_F(Selector, SwitchesARowAndReturnsWhatItWas) {
    BlockSelect_s* row = selector_.BlockSelectGet(BlockMagic("LEAF"));
    EXPECT_EQ(selector_.SelectOff(row), 1);
    EXPECT_EQ(selector_.SelectOff(row), 0);
    EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("LEAF").data()), 0);
    EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("BtqZ").data()), 1);
    EXPECT_EQ(selector_.SelectOn(row), 0);
    EXPECT_EQ(selector_.SelectOn(row), 1);
    EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("LEAF").data()), 1);
}

TEST_F(Selector, SwitchesTheRowOfAMagic) {
    EXPECT_EQ(selector_.SelectOff(BlockMagic("LEAF")), 0);
    EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("LEAF").data()), 0);
    EXPECT_EQ(selector_.SelectOn(BlockMagic("LEAF")), 0);
    EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("LEAF").data()), 1);
}

TEST_F(Selector, SwitchesTheUserRowForAnUnknownMagic) {
    selector_.SelectOff(kUnknown);
    const std::vector<const BlockSelect_s*> rows = Rows();
    for (std::size_t i = 0; i < 41; ++i) {
        EXPECT_EQ(rows[i]->selected, i == 40 ? 0 : 1) << i;
    }
    selector_.SelectOn(0U);
    EXPECT_EQ(rows[40]->selected, 1);
}

TEST_F(Selector, LeavesNothingSelectedAfterSelectAllOff) {
    selector_.SelectAllOff();
    for (const BlockSelect_s* row : Rows()) {
        EXPECT_EQ(row->selected, 0) << row->name;
    }
}

TEST_F(Selector, LeavesNothingSelectedAfterSelectAllOnEither) {
    selector_.SelectOff(BlockMagic("LEAF"));
    selector_.SelectAllOn();
    for (const BlockSelect_s* row : Rows()) {
        EXPECT_EQ(row->selected, 0) << row->name;
    }
}

TEST_F(Selector, CountsABlockUnderItsTypeSelectedOrNot) {
    EXPECT_EQ(selector_.Account(MakeBlock("LEAF").data()), 1);
    selector_.SelectOff(BlockMagic("LEAF"));
    EXPECT_EQ(selector_.Account(MakeBlock("LEAF").data()), 0);
    EXPECT_EQ(selector_.Account(BlockMagic("LEAF"), 0), 0);
    EXPECT_EQ(selector_.Account(kUnknown, BlockMagic("oVUk")), 1);
    const std::vector<const BlockSelect_s*> rows = Rows();
    for (std::size_t i = 0; i < 41; ++i) {
        EXPECT_EQ(rows[i]->count, i == 2 ? 3U : (i == 39 ? 1U : 0U)) << i;
    }
}

TEST_F(Selector, EnumeratesFromAGivenRow) {
    BS_Key* key = selector_.EnumerateOpen(39);
    EXPECT_EQ(key->last, nullptr);
    EXPECT_STREQ(selector_.Enumerate(key)->name, "KUVO(New)");
    EXPECT_EQ(key->position, 40U);
    const BlockSelect_s* user = selector_.Enumerate(key);
    EXPECT_STREQ(user->name, "User");
    EXPECT_EQ(key->last, user);
    EXPECT_EQ(selector_.Enumerate(key), nullptr);
    EXPECT_EQ(selector_.Enumerate(key), nullptr);
    selector_.EnumerateClose(key);
}

TEST_F(Selector, DisplaysNothingWhenNothingWasCounted) {
    EXPECT_EQ(Displayed(), "");
}

TEST_F(Selector, NumbersTheDisplayedRowsByTheirPlace) {
    selector_.Account(MakeBlock("BRCH").data());
    selector_.Account(MakeBlock("").data());
    EXPECT_EQ(Displayed(), "2) BT branch + 1\n41) User + 1\n");
}

/// Remembers what it held at each flush.
class FlushedText : public std::stringbuf {
  public:
    std::vector<std::string> flushes;

  protected:
    int sync() override {
        flushes.push_back(str());
        return 0;
    }
};

TEST_F(Selector, FlushesEachLineOfTheDisplay) {
    selector_.Account(MakeBlock("BRCH").data());
    selector_.Account(MakeBlock("").data());
    FlushedText text;
    std::ostream stream(&text);
    selector_.AccountDisplay(stream);
    EXPECT_EQ(text.flushes,
              (std::vector<std::string>{"2) BT branch + 1\n", "2) BT branch + 1\n41) User + 1\n"}));
}

TEST_F(Selector, DisplaysCountsInDecimalWithTheirSelection) {
    for (int i = 0; i < 12; ++i) {
        selector_.Account(MakeBlock("CKP7").data());
        selector_.Account(MakeBlock("LEAF").data());
    }
    selector_.SelectOff(BlockMagic("LEAF"));
    std::ostringstream stream;
    stream << std::hex;
    selector_.AccountDisplay(stream);
    EXPECT_EQ(stream.str(), "3) BT leaf Z32 - 12\n7) Checkpoint + 12\n");
}

}  // namespace
