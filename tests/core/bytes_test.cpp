#include "core/bytes.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr std::uint8_t Wire[] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x01};

TEST(WireBytes, OfANumberComeLowestFirst) {
    EXPECT_EQ(u8_at(Wire, 1), 0x34);
    EXPECT_EQ(le_u16(Wire, 0), 0x3412);
    EXPECT_EQ(le_u32(Wire, 0), 0x78563412U);
    EXPECT_EQ(le_u64(Wire, 0), 0xF0DEBC9A78563412ULL);
    EXPECT_EQ(le_u64(Wire, 1), 0x01F0DEBC9A785634ULL);
}

TEST(WireBytes, WithTheHighestBitSetAreNotNegative) {
    constexpr std::uint8_t AllSet[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(le_u16(AllSet, 0), 0xFFFFU);
    EXPECT_EQ(le_u32(AllSet, 0), 0xFFFFFFFFU);
    EXPECT_EQ(le_u64(AllSet, 0), 0xFFFFFFFFFFFFFFFFULL);
}

TEST(WireBytes, BehindTheEndOfAnAnswerReadAsZero) {
    EXPECT_EQ(u8_at(Wire, 9), 0);
    EXPECT_EQ(u8_at({}, 0), 0);
    EXPECT_EQ(le_u16(Wire, 9), 0);
    EXPECT_EQ(le_u32(Wire, 1000), 0U);
    EXPECT_EQ(le_u64({}, 0), 0U);
    EXPECT_EQ(le_float({}, 0), 0.0F);
}

TEST(WireBytes, OfAFieldThatWasReceivedInPartAreFollowedByZeros) {
    EXPECT_EQ(le_u16(Wire, 8), 0x0001);
    EXPECT_EQ(le_u32(Wire, 7), 0x000001F0U);
    EXPECT_EQ(le_u64(Wire, 8), 0x0000000000000001ULL);
}

TEST(WireBytes, OfAFloatAreIeeeSinglePrecision) {
    constexpr std::uint8_t Bytes[] = {0x00, 0x00, 0xF1, 0x42,   // 120.5
                                      0x00, 0x00, 0x80, 0xBF,   // -1
                                      0x00, 0x00, 0xC0, 0x7F,   // not a number
                                      0x01, 0x00, 0x00, 0x00};  // the smallest that is not zero
    EXPECT_EQ(le_float(Bytes, 0), 120.5F);
    EXPECT_EQ(le_float(Bytes, 4), -1.0F);
    EXPECT_TRUE(std::isnan(le_float(Bytes, 8)));
    EXPECT_GT(le_float(Bytes, 12), 0.0F);
}

TEST(WireBytes, InBcdAreTwoDigits) {
    EXPECT_EQ(bcd_to_int(0x00), 0);
    EXPECT_EQ(bcd_to_int(0x09), 9);
    EXPECT_EQ(bcd_to_int(0x59), 59);
    EXPECT_EQ(bcd_to_int(0x99), 99);
}

TEST(WireBytes, InBcdWithNonsenseDigitsAreNotRefused) {
    EXPECT_EQ(bcd_to_int(0x0A), 10);
    EXPECT_EQ(bcd_to_int(0xFF), 165);
}

}  // namespace
