// The three encodings of an SA-94 meter, and the arithmetic on a decoded number.

#include "drivers/sa94/sa94_values.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>

#include "drivers/sa94/sa94_tables.h"
#include "support/sa94_scene.h"

namespace {

std::uint32_t bits(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3) {
    return std::bit_cast<std::uint32_t>(decodeSaFloat(b0, b1, b2, b3));
}

TEST(Sa94Values, BcdIsTwoDigits) {
    EXPECT_EQ(bcdToInt(0x00), 0);
    EXPECT_EQ(bcdToInt(0x09), 9);
    EXPECT_EQ(bcdToInt(0x10), 10);
    EXPECT_EQ(bcdToInt(0x59), 59);
    EXPECT_EQ(bcdToInt(0x99), 99);
}

TEST(Sa94Values, BcdDoesNotCheckItsDigits) {
    EXPECT_EQ(bcdToInt(0xFF), 165);
    EXPECT_EQ(bcdToInt(0x0A), 10);
    EXPECT_EQ(bcdToInt(0xA0), 100);
    EXPECT_EQ(bcdToInt(0x1F), 25);
}

TEST(Sa94Values, AFloatHasItsExponentInFront) {
    EXPECT_EQ(decodeSaFloat(0x81, 0x00, 0x00, 0x00), 1.0F);
    EXPECT_EQ(decodeSaFloat(0x81, 0x80, 0x00, 0x00), -1.0F);
    EXPECT_EQ(decodeSaFloat(0x82, 0x00, 0x00, 0x00), 2.0F);
    EXPECT_EQ(decodeSaFloat(0x80, 0x00, 0x00, 0x00), 0.5F);
    EXPECT_EQ(decodeSaFloat(0x84, 0x48, 0x00, 0x00), 12.5F);   // 1.5625 * 8
    EXPECT_EQ(decodeSaFloat(0x87, 0x0E, 0x80, 0x00), 71.25F);  // 1.11328125 * 64
    EXPECT_EQ(decodeSaFloat(0x87, 0x8E, 0x80, 0x00), -71.25F);
    EXPECT_EQ(decodeSaFloat(0x8B, 0x1A, 0x50, 0x00), 1234.5F);  // 1.20556640625 * 1024
}

TEST(Sa94Values, TheMantissaReachesTheLastByte) {
    EXPECT_EQ(bits(0x81, 0x00, 0x00, 0x01), 0x3F800001U);
    EXPECT_EQ(bits(0x82, 0x7F, 0xFE, 0xDC), 0x407FFEDCU);
    EXPECT_EQ(bits(0x81, 0xD2, 0x34, 0x56), 0xBFD23456U);
}

TEST(Sa94Values, TheExponentIsTwoMoreThanUsual) {
    EXPECT_EQ(bits(2, 0x00, 0x00, 0x00), 0U);
    EXPECT_EQ(bits(3, 0x00, 0x00, 0x00), 0x00800000U);
    EXPECT_EQ(bits(4, 0x00, 0x00, 0x00), 0x01000000U);
    EXPECT_EQ(bits(0xFF, 0x00, 0x00, 0x00), 0x7E800000U);
    EXPECT_EQ(bits(0xFF, 0xFF, 0xFF, 0xFF), 0xFEFFFFFFU) << "erased memory is a number too";
}

TEST(Sa94Values, ExponentsZeroToTwoAreTheSame) {
    for (const std::uint8_t exponent : {0, 1, 2}) {
        EXPECT_EQ(bits(exponent, 0x00, 0x00, 0x00), 0U);
        EXPECT_EQ(bits(exponent, 0x80, 0x00, 0x00), 0x80000000U) << "a negative zero";
        EXPECT_EQ(bits(exponent, 0x12, 0x34, 0x56), 0x00123456U);
    }
    EXPECT_TRUE(std::signbit(decodeSaFloat(0x01, 0x80, 0x00, 0x00)));
}

TEST(Sa94Values, EveryFloatOfAMeterComesBackAsItWas) {
    for (float value = 1.0e-30F; value < 1.0e30F; value *= -1.7F) {
        const auto bytes = sa94_bytes::real(value);
        ASSERT_EQ(decodeSaFloat(bytes[0], bytes[1], bytes[2], bytes[3]), value);
        if (std::fabs(value) > 1.0e29F) break;
    }
}

TEST(Sa94Values, AWordHasItsHighByteInFrontAndNoSign) {
    EXPECT_EQ(decodeWord(0x12, 0x34), 4660.0F);
    EXPECT_EQ(decodeWord(0x00, 0x00), 0.0F);
    EXPECT_EQ(decodeWord(0x00, 0xFF), 255.0F);
    EXPECT_EQ(decodeWord(0xFF, 0xFF), 65535.0F);
    EXPECT_EQ(decodeWord(0x80, 0x00), 32768.0F);
}

TEST(Sa94Values, ANumberIsMultipliedOrDividedInSinglePrecision) {
    EXPECT_EQ(scaled(2.0F, 3600.0F, 0), 7200.0F);
    EXPECT_EQ(scaled(7200.0F, 3600.0F, 1), 2.0F);
    // A third in single precision, not in double.
    EXPECT_EQ(std::bit_cast<std::uint32_t>(scaled(1.0F, 3.0F, 1)), 0x3EAAAAABU);
    // 16777217 is no float: the product is rounded to the even neighbour.
    EXPECT_EQ(scaled(16777215.0F, 3.0F, 0), 50331644.0F);
}

TEST(Sa94Values, TheConstantsAreThoseOfTheMeter) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(MWhToGcal), 0x3F5C1ECDU);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(MPaToTechnicalAtmospheres), 0x41232793U);
}

}  // namespace
