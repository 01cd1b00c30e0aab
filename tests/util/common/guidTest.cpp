#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "util/common/clock.h"
#include "util/common/guid.h"

namespace {

constexpr GUID_t kSample{0x89abcdef, 0x4567, 0x0123,
                         0x8a,       0x1b,   {0x00, 0x0d, 0x60, 0xaa, 0x05, 0x0f}};
constexpr const char* kSampleText = "89abcdef-4567-0123-8a-1b-000d60aa050f";
constexpr const char* kSampleCommonText = "89abcdef-4567-0123-8a1b-000d60aa050f";

std::string BytesOf(const GUID_t& guid) {
    return {reinterpret_cast<const char*>(&guid), sizeof guid};
}

std::string TextOf(const GUID_t& guid) {
    char text[64] = "";
    EXPECT_EQ(Ostrel::LB_GUIDToString(&guid, sizeof text, text), 0);
    return text;
}

std::uint64_t TimeOf(const GUID_t& guid) {
    return std::uint64_t{guid.timeHiAndVersion} << 48 | std::uint64_t{guid.timeMid} << 32 |
           guid.timeLow;
}

unsigned ClockSequenceOf(const GUID_t& guid) {
    return (guid.clockSeqHiAndReserved & 0x3FU) << 8 | guid.clockSeqLow;
}

/// Puts the generator back into the state in which the test found it.
class GUIDGenerator : public testing::Test {
  protected:
    void TearDown() override {
        Ostrel::GUIDclockSeq = clockSeq_;
        Ostrel::GUIDsavedTime = savedTime_;
        Ostrel::GUIDinitDone = initDone_;
    }

    static GUID_t Generate() {
        GUID_t guid{};
        Ostrel::LB_GUIDGenerate(&guid);
        return guid;
    }

    /// Far beyond the clock, so that no tick of it comes between two generations.
    static constexpr std::uint64_t kLaterThanNow = 0x0ABCDEF012345678;

  private:
    unsigned clockSeq_ = Ostrel::GUIDclockSeq;
    std::uint64_t savedTime_ = Ostrel::GUIDsavedTime;
    bool initDone_ = Ostrel::GUIDinitDone;
};

TEST(GUIDLayout, KeepsItsFieldsInOrderAndLittleEndian) {
    EXPECT_EQ(BytesOf(kSample), std::string("\xef\xcd\xab\x89\x67\x45\x23\x01\x8a\x1b"
                                            "\x00\x0d\x60\xaa\x05\x0f",
                                            16));
}

TEST(GUIDConstants, HaveTheirBytes) {
    EXPECT_EQ(BytesOf(zZERO_GUID), std::string(16, '\0'));
    EXPECT_EQ(BytesOf(zINVALID_GUID), std::string(16, '\0'));
    EXPECT_EQ(BytesOf(zADMINVOL_GUID), std::string(16, '\xFF'));
}

TEST(GUIDText, GroupsDigitsWithADashBetweenTheClockSequenceBytes) {
    EXPECT_EQ(TextOf(kSample), kSampleText);
    EXPECT_EQ(TextOf(zZERO_GUID), "00000000-0000-0000-00-00-000000000000");
    EXPECT_EQ(TextOf(zADMINVOL_GUID), "ffffffff-ffff-ffff-ff-ff-ffffffffffff");
}

TEST(GUIDText, NeedsRoomForItsEnd) {
    char text[64];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(Ostrel::LB_GUIDToString(&kSample, 37, text), 20004);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(text[1], 'x');
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(Ostrel::LB_GUIDToString(&kSample, 38, text), 0);
    EXPECT_STREQ(text, kSampleText);
    EXPECT_EQ(text[38], 'x');
}

TEST(GUIDText, GoesToAStreamWhoseFlagsItKeepsAndWhoseFillBecomesZero) {
    std::ostringstream stream;
    stream << std::uppercase << std::showbase << std::left << std::dec;
    const std::ios_base::fmtflags flags = stream.flags();
    stream << kSample;
    EXPECT_EQ(stream.str(), kSampleText);
    EXPECT_EQ(stream.flags(), flags);
    EXPECT_EQ(stream.fill(), '0');
}

TEST(GUIDParsing, TakesBothFormsOfTheZeroGUID) {
    for (const char* text :
         {"00000000-0000-0000-0000-000000000000", "00000000-0000-0000-00-00-000000000000"}) {
        GUID_t guid = kSample;
        EXPECT_EQ(Ostrel::LB_GUIDFromUTF8(text, &guid), 0) << text;
        EXPECT_EQ(BytesOf(guid), std::string(16, '\0')) << text;
    }
}

TEST(GUIDParsing, SplitsTheFourthGroupOfTheCommonForm) {
    GUID_t guid{};
    ASSERT_EQ(Ostrel::LB_GUIDFromUTF8(kSampleCommonText, &guid), 0);
    EXPECT_EQ(guid.clockSeqHiAndReserved, 0x8A);
    EXPECT_EQ(guid.clockSeqLow, 0x1B);
    EXPECT_EQ(BytesOf(guid), BytesOf(kSample));
}

TEST(GUIDParsing, ReadsBackTheTextForm) {
    GUID_t guid{};
    ASSERT_EQ(Ostrel::LB_GUIDFromUTF8(kSampleText, &guid), 0);
    EXPECT_EQ(BytesOf(guid), BytesOf(kSample));
}

TEST(GUIDParsing, TakesDigitsOfEitherCase) {
    GUID_t guid{};
    ASSERT_EQ(Ostrel::LB_GUIDFromUTF8("89ABCDEF-4567-0123-8A-1b-000D60aA050f", &guid), 0);
    EXPECT_EQ(BytesOf(guid), BytesOf(kSample));
}

// The groups are read by the C library's conversion, which takes a prefix for part of a number.
TEST(GUIDParsing, CountsAHexadecimalPrefixAsPartOfItsGroup) {
    GUID_t guid{};
    ASSERT_EQ(Ostrel::LB_GUIDFromUTF8("0xabcdef-4567-0123-8a1b-000d60aa050f", &guid), 0);
    EXPECT_EQ(guid.timeLow, 0xABCDEFU);
}

struct MalformedGUID {
    const char* name;
    const char* text;
};

class MalformedGUIDText : public testing::TestWithParam<MalformedGUID> {};

TEST_P(MalformedGUIDText, IsRefused) {
    GUID_t guid{};
    EXPECT_EQ(Ostrel::LB_GUIDFromUTF8(GetParam().text, &guid), 20821);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, MalformedGUIDText,
    testing::Values(
        MalformedGUID{"Empty", ""},
        MalformedGUID{"OneShort", "89abcdef-4567-0123-8a1b-000d60aa050"},
        MalformedGUID{"OneLong", "89abcdef-4567-0123-8a-1b-000d60aa050f0"},
        MalformedGUID{"Braces", "{89abcdef-4567-0123-8a1b-000d60aa050f}"},
        MalformedGUID{"BlankBefore", " 89abcdef-4567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"BlankBehind", "89abcdef-4567-0123-8a1b-000d60aa050f "},
        MalformedGUID{"NoDashes", "89abcdef 4567 0123 8a1b 000d60aa050f"},
        MalformedGUID{"BadDashBehindTheFirstGroup", "89abcdef_4567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"BadDashBehindTheSecondGroup", "89abcdef-4567_0123-8a1b-000d60aa050f"},
        MalformedGUID{"BadDashBehindTheThirdGroup", "89abcdef-4567-0123_8a1b-000d60aa050f"},
        MalformedGUID{"BadDashBehindTheFourthGroup", "89abcdef-4567-0123-8a1b_000d60aa050f"},
        MalformedGUID{"BadDashBetweenTheClockSequenceBytes",
                      "89abcdef-4567-0123-8a_1b-000d60aa050f"},
        MalformedGUID{"BadDashBeforeTheNode", "89abcdef-4567-0123-8a-1b_000d60aa050f"},
        MalformedGUID{"NoDigitInTheFirstGroup", "g9abcdef-4567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"NoDigitInTheSecondGroup", "89abcdef-456g-0123-8a1b-000d60aa050f"},
        MalformedGUID{"NoDigitInTheThirdGroup", "89abcdef-4567-g123-8a1b-000d60aa050f"},
        MalformedGUID{"NoDigitInTheFourthGroup", "89abcdef-4567-0123-8g1b-000d60aa050f"},
        MalformedGUID{"NoDigitInTheNode", "89abcdef-4567-0123-8a1b-000d60aa050g"},
        MalformedGUID{"NoDigitInTheLastClockSequenceByte", "89abcdef-4567-0123-8a-g1-000d60aa050f"},
        MalformedGUID{"SignInAGroup", "89abcdef--567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"PlusInTheNode", "89abcdef-4567-0123-8a1b-+00d60aa050f"},
        MalformedGUID{"BlankInAGroup", "89abcdef- 567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"GroupsOfOtherWidths", "89abcde-f4567-0123-8a1b-000d60aa050f"},
        MalformedGUID{"OwnFormOfTheCommonLength", "89abcdef-4567-0123-8a-1b-000d60aa050"},
        MalformedGUID{"CommonFormOfTheOwnLength", "89abcdef-4567-0123-8a1b-000d60aa050f0"}),
    [](const auto& row) { return row.param.name; });

TEST(GUIDParsing, LeavesTheFieldsBeforeAFailureWritten) {
    GUID_t guid = zADMINVOL_GUID;
    EXPECT_EQ(Ostrel::LB_GUIDFromUTF8("89abcdef-4567-0123-8a-zz-000d60aa050f", &guid), 20821);
    EXPECT_EQ(TextOf(guid), "89abcdef-4567-0123-8a-ff-ffffffffffff");
}

TEST_F(GUIDGenerator, CountsTicksOfTheGregorianCalendarAtOneSecond) {
    std::int64_t before = 0;
    std::uint64_t ticks = 0;
    do {
        before = Ostrel::GetUTCTime();
        ticks = Ostrel::GUID_getTime();
    } while (Ostrel::GetUTCTime() != before);
    EXPECT_EQ(ticks, static_cast<std::uint64_t>(before) * 10'000'000 + 0x01B21DD213814000);
}

TEST_F(GUIDGenerator, MakesItsNodeFromTheSeededLibraryGenerator) {
    std::int64_t before = 0;
    do {
        before = Ostrel::GetUTCTime();
        Ostrel::GUIDinitDone = false;
        Ostrel::GUID_init();
    } while (Ostrel::GetUTCTime() != before);
    EXPECT_TRUE(Ostrel::GUIDinitDone);
    std::srand(static_cast<unsigned>(before));
    for (const std::uint8_t byte : Ostrel::GUIDnode) {
        EXPECT_EQ(byte, std::rand() & 0xFF);
    }
}

TEST_F(GUIDGenerator, InitialisesItselfOnceOnly) {
    Ostrel::GUIDinitDone = false;
    const GUID_t first = Generate();
    EXPECT_TRUE(Ostrel::GUIDinitDone);
    EXPECT_EQ(std::memcmp(first.node, Ostrel::GUIDnode, 6), 0);
    std::srand(1);
    const int next = std::rand();
    std::srand(1);
    const GUID_t second = Generate();
    EXPECT_EQ(std::rand(), next);
    EXPECT_EQ(std::memcmp(second.node, first.node, 6), 0);
}

TEST_F(GUIDGenerator, TakesALaterTimeWithTheClockSequenceUnchanged) {
    Ostrel::GUIDclockSeq = 0x1234;
    Ostrel::GUIDsavedTime = 0;
    const GUID_t guid = Generate();
    EXPECT_EQ(ClockSequenceOf(guid), 0x1234U);
    EXPECT_EQ(guid.clockSeqHiAndReserved, 0x80 | 0x12);
    EXPECT_EQ(guid.clockSeqLow, 0x34);
    EXPECT_EQ(TimeOf(guid), Ostrel::GUIDsavedTime);
    EXPECT_GT(Ostrel::GUIDsavedTime, 0x01B21DD213814000U);
    EXPECT_EQ(guid.timeHiAndVersion & 0xF000, 0);
}

TEST_F(GUIDGenerator, CountsTheClockSequenceUpWithinOneSecond) {
    GUID_t first{};
    GUID_t second{};
    GUID_t third{};
    do {
        Ostrel::GUIDclockSeq = 0;
        Ostrel::GUIDsavedTime = 0;
        first = Generate();
        second = Generate();
        third = Generate();
    } while (TimeOf(third) != TimeOf(first));
    EXPECT_EQ(ClockSequenceOf(first), 0U);
    EXPECT_EQ(ClockSequenceOf(second), 1U);
    EXPECT_EQ(ClockSequenceOf(third), 2U);
}

TEST_F(GUIDGenerator, WrapsTheSequenceAndPushesTheTimeOneTickPastTheLast) {
    Ostrel::GUIDclockSeq = 0x3FFF;
    Ostrel::GUIDsavedTime = kLaterThanNow;
    const GUID_t guid = Generate();
    EXPECT_EQ(ClockSequenceOf(guid), 0U);
    EXPECT_EQ(guid.clockSeqHiAndReserved, 0x80);
    EXPECT_EQ(TimeOf(guid), kLaterThanNow + 1);
    EXPECT_EQ(Ostrel::GUIDsavedTime, kLaterThanNow + 1);
    EXPECT_EQ(Ostrel::GUIDclockSeq, 0U);
}

TEST_F(GUIDGenerator, GoesBackToTheClocksTimeWhenOnlyTheSequenceCounts) {
    Ostrel::GUIDclockSeq = 7;
    Ostrel::GUIDsavedTime = kLaterThanNow;
    const GUID_t guid = Generate();
    EXPECT_EQ(ClockSequenceOf(guid), 8U);
    EXPECT_LT(TimeOf(guid), kLaterThanNow);
    EXPECT_EQ(Ostrel::GUIDsavedTime, TimeOf(guid));
}

TEST_F(GUIDGenerator, WrapsAfter16383IncrementsInOneSecond) {
    Ostrel::GUIDclockSeq = 0;
    Ostrel::GUIDsavedTime = kLaterThanNow;
    for (unsigned i = 1; i <= 0x3FFF; ++i) {
        Ostrel::GUIDsavedTime = kLaterThanNow;
        ASSERT_EQ(ClockSequenceOf(Generate()), i);
    }
    Ostrel::GUIDsavedTime = kLaterThanNow;
    const GUID_t wrapped = Generate();
    EXPECT_EQ(ClockSequenceOf(wrapped), 0U);
    EXPECT_EQ(TimeOf(wrapped), kLaterThanNow + 1);
}

TEST_F(GUIDGenerator, MakesGUIDsThatValidate) {
    for (const unsigned sequence : {0U, 1U, 0x3FFEU, 0x3FFFU}) {
        Ostrel::GUIDclockSeq = sequence;
        const GUID_t guid = Generate();
        EXPECT_EQ(Ostrel::LB_GUIDValidate(&guid), 1) << TextOf(guid);
    }
}

TEST(GUIDValidation, RefusesTheConstants) {
    EXPECT_EQ(Ostrel::LB_GUIDValidate(&zZERO_GUID), 0);
    EXPECT_EQ(Ostrel::LB_GUIDValidate(&zINVALID_GUID), 0);
    EXPECT_EQ(Ostrel::LB_GUIDValidate(&zADMINVOL_GUID), 0);
}

TEST(GUIDValidation, LooksAtTheReservedAndTheVersionBitsAlone) {
    const struct {
        std::uint8_t reserved;
        std::uint16_t version;
        int valid;
    } rows[] = {{0x80, 0, 1},      {0xBF, 0x0FFF, 1}, {0x80, 0x1000, 0}, {0x80, 0x8FFF, 0},
                {0x00, 0x0123, 0}, {0x40, 0x0123, 0}, {0xC0, 0x0123, 0}};
    for (const auto& row : rows) {
        GUID_t guid = zADMINVOL_GUID;
        guid.clockSeqHiAndReserved = row.reserved;
        guid.timeHiAndVersion = row.version;
        EXPECT_EQ(Ostrel::LB_GUIDValidate(&guid), row.valid) << TextOf(guid);
    }
}

GUID_t WithByte(unsigned index, unsigned char value) {
    GUID_t guid = zZERO_GUID;
    reinterpret_cast<unsigned char*>(&guid)[index] = value;
    return guid;
}

TEST(GUIDOrder, IsZeroForEqualOnes) {
    const GUID_t copy = kSample;
    EXPECT_EQ(Ostrel::LB_GUIDCompare(&copy, &kSample), 0);
    EXPECT_EQ(Ostrel::LB_GUIDCompare(&zZERO_GUID, &zINVALID_GUID), 0);
}

TEST(GUIDOrder, SeesEveryByte) {
    for (unsigned index = 0; index < 16; ++index) {
        const GUID_t greater = WithByte(index, 0xFF);
        EXPECT_EQ(Ostrel::LB_GUIDCompare(&greater, &zZERO_GUID), 1) << index;
        EXPECT_EQ(Ostrel::LB_GUIDCompare(&zZERO_GUID, &greater), -1) << index;
    }
}

TEST(GUIDOrder, GoesByLittleEndianWordsAndNotByBytes) {
    for (unsigned word = 0; word < 4; ++word) {
        const GUID_t lowByte = WithByte(4 * word, 2);
        const GUID_t highByte = WithByte(4 * word + 3, 1);
        EXPECT_EQ(Ostrel::LB_GUIDCompare(&highByte, &lowByte), 1) << word;
    }
}

TEST(GUIDOrder, LetsAnEarlierWordDecide) {
    const GUID_t early = WithByte(0, 1);
    const GUID_t late = WithByte(7, 0xFF);
    EXPECT_EQ(Ostrel::LB_GUIDCompare(&early, &late), 1);
    EXPECT_EQ(Ostrel::LB_GUIDCompare(&late, &early), -1);
}

TEST(VolumeState, NumbersThreeWordsExactly) {
    EXPECT_EQ(Ostrel::LB_VolumeStateStringToVolumeStateNumber("active"), 6U);
    EXPECT_EQ(Ostrel::LB_VolumeStateStringToVolumeStateNumber("deactive"), 2U);
    EXPECT_EQ(Ostrel::LB_VolumeStateStringToVolumeStateNumber("maintenance"), 3U);
}

TEST(VolumeState, GivesZeroForAnyOtherWord) {
    for (const char* word : {"", "Active", "ACTIVE", "active ", "activ", "maintenancee"}) {
        EXPECT_EQ(Ostrel::LB_VolumeStateStringToVolumeStateNumber(word), 0U) << word;
    }
}

}  // namespace
