#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>
#include <vector>

#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetNames.h"

namespace {

using testing::ElementsAre;

TEST(ScanFileName, TellsLetterEndingAndNumbers) {
    const auto name = ScanFileName::Parse("C4212345.ZRB");
    ASSERT_TRUE(name.has_value());
    EXPECT_EQ(name->letter, 'C');
    EXPECT_TRUE(name->restorable);
    EXPECT_EQ(name->setNumber, 42U);
    EXPECT_EQ(name->fileNumber, 12'345U);
    EXPECT_EQ(name->Text(), "C4212345.ZRB");
    EXPECT_EQ((ScanFileName{'T', false, 3, 12}).Text(), "T0300012.ZSB");
}

TEST(ScanFileName, IsNothingElse) {
    for (const char* name : {"", "T", "T0000000", "T0000000.zsb", "t0000000.ZSB", "X0000000.ZSB",
                             "T000000.ZSB", "T00000000.ZSB", "T00000x0.ZSB", "T0000000.ZSBx",
                             "T-000000.ZSB", "T0000000.ZXB", "T 000000.ZSB", "TT000000.ZSB"}) {
        EXPECT_FALSE(ScanFileName::Parse(name).has_value()) << name;
    }
}

class ScanSetListingTest : public testing::Test {
  protected:
    void Make(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            support::WriteFile(directory_.File(name), "");
        }
    }

    std::vector<std::string> NamesOf(const std::string& path, const ScanSetChoice& choice = {}) {
        std::vector<std::string> names;
        for (const ScanFileName& name : ListScanSet(path, choice).names) {
            names.push_back(name.Text());
        }
        return names;
    }

    support::TemporaryDirectory directory_;
};

TEST_F(ScanSetListingTest, IsInTheOrderOfTheNumbers) {
    Make({"T0000010.ZSB", "T0000002.ZSB", "T0000000.ZSB", "T0100001.ZSB", "other", "T1.ZSB"});
    const ScanSetListing listing = ListScanSet(directory_.Path());
    EXPECT_EQ(listing.folder, directory_.Path());
    EXPECT_EQ(listing.first.Text(), "T0000000.ZSB");
    EXPECT_FALSE(listing.Chosen());
    EXPECT_THAT(NamesOf(directory_.Path()),
                ElementsAre("T0000000.ZSB", "T0000002.ZSB", "T0000010.ZSB", "T0100001.ZSB"));
}

TEST_F(ScanSetListingTest, TakesWhatARestoreWouldTake) {
    Make({"C0000000.ZSB"});
    EXPECT_THAT(NamesOf(directory_.Path()), ElementsAre("C0000000.ZSB"));
    Make({"T0000000.ZSB"});
    EXPECT_THAT(NamesOf(directory_.Path()), ElementsAre("T0000000.ZSB"));
    Make({"C0000000.ZRB"});
    EXPECT_THAT(NamesOf(directory_.Path()), ElementsAre("C0000000.ZRB"));
    Make({"T0000000.ZRB"});
    EXPECT_THAT(NamesOf(directory_.Path()), ElementsAre("T0000000.ZRB"));
}

TEST_F(ScanSetListingTest, GoesByFileZero) {
    Make({"T0000001.ZRB", "C0000000.ZSB", "C0000001.ZSB"});
    const ScanSetListing listing = ListScanSet(directory_.Path());
    EXPECT_EQ(listing.first.Text(), "C0000000.ZSB");
    EXPECT_TRUE(listing.otherLetter);
    EXPECT_TRUE(listing.otherEnding);
}

TEST_F(ScanSetListingTest, GoesByAnyFileWhenThereIsNoFileZero) {
    Make({"T0000003.ZSB", "C0000001.ZRB"});
    EXPECT_THAT(NamesOf(directory_.Path()), ElementsAre("C0000001.ZRB"));
    EXPECT_EQ(ListScanSet(directory_.Path()).first.Text(), "C0000000.ZRB");
}

TEST_F(ScanSetListingTest, TakesWhatWasChosen) {
    Make({"T0000000.ZRB", "C0000000.ZRB", "T0000000.ZSB", "C0000000.ZSB"});
    EXPECT_THAT(NamesOf(directory_.Path(), {'C', {}}), ElementsAre("C0000000.ZRB"));
    EXPECT_THAT(NamesOf(directory_.Path(), {{}, false}), ElementsAre("T0000000.ZSB"));
    EXPECT_THAT(NamesOf(directory_.Path(), {'C', false}), ElementsAre("C0000000.ZSB"));
}

TEST_F(ScanSetListingTest, IsThatOfAFile) {
    Make({"T0000000.ZRB", "C0000000.ZSB", "C0000005.ZSB", "C0700000.ZSB"});
    EXPECT_THAT(NamesOf(directory_.File("C0000005.ZSB")),
                ElementsAre("C0000000.ZSB", "C0000005.ZSB", "C0700000.ZSB"));
    EXPECT_EQ(ListScanSet(directory_.File("C0000005.ZSB")).first.Text(), "C0000000.ZSB");
    EXPECT_EQ(ListScanSet(directory_.File("C0700000.ZSB")).first.Text(), "C0700000.ZSB");
}

TEST_F(ScanSetListingTest, FailsWithoutAScanFile) {
    EXPECT_THROW(ListScanSet(directory_.Path()), std::runtime_error);
    EXPECT_THROW(ListScanSet(directory_.File("T0000000.ZSB")), std::system_error);
    Make({"T0000000.ZSB", "other"});
    EXPECT_THROW(ListScanSet(directory_.Path(), {'C', {}}), std::runtime_error);
    EXPECT_THROW(ListScanSet(directory_.File("other")), std::runtime_error);
}

}  // namespace
