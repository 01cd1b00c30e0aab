#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "util/common/crc.h"

namespace {

TEST(UpdateCRC, GivesTheStandardCheckValueWhenInverted) {
    EXPECT_EQ(~Ostrel::updateCRC(0xFFFFFFFF, "123456789", 9), 0xCBF43926U);
}

TEST(UpdateCRC, LeavesTheRegisterAloneForNoBytes) {
    EXPECT_EQ(Ostrel::updateCRC(0x12345678, "x", 0), 0x12345678U);
    EXPECT_EQ(Ostrel::updateCRC(0x12345678, nullptr, 0), 0x12345678U);
}

TEST(UpdateCRC, AppliesNeitherInitialValueNorFinalInversion) {
    // One zero byte over a zero register leaves table entry 0.
    EXPECT_EQ(Ostrel::updateCRC(0, "\0", 1), 0U);
    // Table entry 1 of the standard's table.
    EXPECT_EQ(Ostrel::updateCRC(0, "\1", 1), 0x77073096U);
}

TEST(UpdateCRC, OfPiecesIsTheCRCOfTheWhole) {
    const std::string text(10000, 'q');
    const std::uint32_t whole = Ostrel::updateCRC(0xFFFFFFFF, text.data(), text.size());
    for (const std::size_t cut : {1U, 7U, 4104U, 9999U}) {
        std::uint32_t pieces = Ostrel::updateCRC(0xFFFFFFFF, text.data(), cut);
        pieces = Ostrel::updateCRC(pieces, text.data() + cut, text.size() - cut);
        EXPECT_EQ(pieces, whole) << "cut at " << cut;
    }
}

}  // namespace
