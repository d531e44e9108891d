// Present values: how the packets of integrators and moment values are decoded, and what becomes of the status.

#include <algorithm>
#include <array>
#include <bit>
#include <random>
#include <vector>

#include "drivers/vist/vist_decode.h"
#include "support/vist_present.h"
#include "support/vist_scene.h"

namespace {

using sim::ByteVector;
using vist_frames::packet;
using namespace vist_present;

class VistValues : public ::testing::Test {
  protected:
    /// The presence mask without bad pressures. The packet comes into a buffer in which others have been.
    std::uint32_t decode(bool moment, const ByteVector& bytes) {
        std::copy(bytes.begin(), bytes.end(), buffer.begin());
        last = vist::decode_values(buffer, moment, sw_version, last.values);
        return last.published;
    }
    std::uint32_t decode_integrators(const ByteVector& body) { return decode(false, packet(10, body)); }
    std::uint32_t decode_moments(const ByteVector& body) { return decode(true, packet(11, body)); }
    bool is_absent(std::size_t slot) const {
        return std::bit_cast<std::uint64_t>(last.values[slot]) == 0xC05ED54FE0000000ULL;
    }

    int sw_version = 101;
    std::array<std::uint8_t, 300> buffer{};
    vist::CurrentValues last;
};

// ---- decoding

TEST_F(VistValues, TheOrderOfTheBytesIsThatOfTheTopBitOfEnumer) {
    // 00: big-endian, mask 000020FF, then -10.0 in front of seven more values
    ByteVector body = {0x00, 0x00, 0x00, 0x20, 0xFF, 0xFF, 0xFF, 0xFF, 0x9C, 0x01};
    EXPECT_EQ(decode_integrators(body), 0x20FFU);
    EXPECT_TRUE(last.fSwap);
    EXPECT_EQ(last.values[0], -10.0);
    body = {0x80, 0x01, 0x00, 0x00, 0x00, 0x9C, 0xFF, 0xFF, 0xFF, 0x01};
    EXPECT_EQ(decode_integrators(body), 1U);
    EXPECT_FALSE(last.fSwap);
    EXPECT_EQ(last.values[0], -10.0);
    EXPECT_EQ(last.enumer, 128);
}

TEST_F(VistValues, TheIntegratorsStandInTheOrderOfTheirBits) {
    for (const bool little : {false, true}) {
        EXPECT_EQ(decode_integrators(integrators(0xFF, little)), 0xFFU);
        for (std::size_t slot = 0; slot < 8; ++slot) EXPECT_EQ(last.values[slot], static_cast<double>(slot + 1));
        EXPECT_EQ(last.left, 0);
    }
}

TEST_F(VistValues, TheMomentValuesStandInTheOrderOfTheirBits) {
    for (const bool little : {false, true}) {
        EXPECT_EQ(decode_moments(moments(0x3FFF, 0, little)), 0x3FFFU);
        for (std::size_t slot = 0; slot < 14; ++slot) EXPECT_EQ(last.values[slot], static_cast<double>(slot + 1));
    }
}

TEST_F(VistValues, AnAbsentValueTakesNoPlaceInThePacket) {
    for (std::size_t missing = 0; missing < 14; ++missing) {
        decode_moments(moments(0x3FFFU & ~(1U << missing)));
        for (std::size_t slot = 0; slot < 14; ++slot) {
            if (slot == missing) {
                EXPECT_TRUE(is_absent(slot)) << slot;
            } else {
                EXPECT_EQ(last.values[slot], static_cast<double>(slot + 1)) << missing;
            }
        }
    }
}

TEST_F(VistValues, AnEmptyMaskLeavesAllValuesAbsent) {
    EXPECT_EQ(decode_integrators(integrators(0)), 0U);
    for (std::size_t slot = 0; slot < 8; ++slot) EXPECT_TRUE(is_absent(slot)) << slot;
}

TEST_F(VistValues, BitsBehindTheLastValueAreLeft) {
    EXPECT_EQ(decode_integrators(integrators(0x1FF)), 0x1FFU);
    EXPECT_EQ(last.left, 1);
    EXPECT_EQ(decode_moments(moments(0x80003FFF)), 0x80003FFFU);
    EXPECT_NE(last.left, 0);
}

TEST_F(VistValues, FromVersion102OnTheClockStandsInFrontOfTheIntegrators) {
    sw_version = 102;
    EXPECT_EQ(decode(false, packet(12, with_clock(integrators()))), 0xFFU);
    ASSERT_TRUE(last.clock);
    EXPECT_EQ(vist::clock_text(*last.clock) + " " + vist::day_text(*last.clock), "10:04:59 02:03:24");
    EXPECT_EQ(last.values[7], 8.0);
}

TEST_F(VistValues, AtVersion101ThereIsNoClockAndNeverOneAmongTheMomentValues) {
    decode_integrators(integrators());
    EXPECT_FALSE(last.clock);
    sw_version = 102;
    decode_moments(moments());
    EXPECT_FALSE(last.clock);
    EXPECT_EQ(last.values[12], 13.0);
}

TEST_F(VistValues, AClockThatIsNoneGivesNoTimeOrAnother) {
    sw_version = 102;
    ByteVector body = integrators();
    body.insert(body.begin(), 6, 0xFF);
    EXPECT_EQ(decode(false, packet(12, body)), 0xFFU);
    EXPECT_EQ(last.values[1], 2.0);
}

TEST_F(VistValues, APacketWithoutASizeHoldsItsLastValueOnly) {
    ByteVector none = packet(10, integrators());
    none[3] = 0;
    last.values.fill(77.0);
    decode(false, none);
    for (std::size_t slot = 1; slot < 7; ++slot) EXPECT_EQ(last.values[slot], 77.0);
    // Eight bytes where IT and IQ1 stand: 00000001 00 000000 | scale 02
    EXPECT_EQ(last.values[7], 4294967296.0 / 100);
    ByteVector seven = packet(11, moments());
    seven[3] = 7;
    last.values.fill(77.0);
    decode(true, seven);
    for (std::size_t slot = 0; slot < 13; ++slot) EXPECT_EQ(last.values[slot], 77.0);
    EXPECT_EQ(last.values[13], 1.0);
}

TEST_F(VistValues, OnceTheSizeIsAboveTheFixedPartItBoundsNothing) {
    ByteVector one = packet(10, integrators());
    one[3] = 1;
    EXPECT_EQ(decode(false, one), 0xFFU);
    EXPECT_EQ(last.values[7], 8.0);
    ByteVector eight = packet(11, moments());
    eight[3] = 8;
    decode(true, eight);
    EXPECT_EQ(last.values[13], 14.0);
}

TEST_F(VistValues, AShortPacketIsReadIntoWhatStandsInTheBuffer) {
    decode_moments(moments());
    ByteVector shorter = packet(11, moments());
    shorter.resize(20);  // Q1 and Q2
    decode(true, shorter);
    EXPECT_EQ(last.values[1], 2.0);
    EXPECT_EQ(last.values[3], 4.0 * 16777216.0) << "reversed once more where it had been reversed already";
}

TEST_F(VistValues, NoPacketReachesBehindItsBuffer) {
    std::mt19937 generator(3);
    for (int round = 0; round < 300; ++round) {
        ByteVector bytes(300);
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(round % 2 == 0 ? generator() : 0xFF);
        sw_version = 101 + round % 3;
        decode(round % 4 < 2, bytes);
        bytes.resize(generator() % 300);
        vist::decode_values(bytes, round % 4 < 2, sw_version, {});
    }
}

// ---- the status

TEST_F(VistValues, AStatusBitBecomesItsErrorAndStopsTheService) {
    decode_moments(moments(0x3FFF, 0x01));
    EXPECT_EQ(last.EG, 1U);
    EXPECT_EQ(last.ER, 2U);
    EXPECT_FALSE(last.SC);
}

TEST_F(VistValues, TheStatusIsInTheOrderOfTheValues) {
    decode_moments(moments(0x3FFF, 0x04030201, true));
    EXPECT_EQ(last.EG, 67305985U);
    // e0 01: 2; e1 02: 40000; e3 04: 800
    EXPECT_EQ(last.ER, 0x40802U);
    decode_moments(moments(0x3FFF, 0x04030201, false));
    EXPECT_EQ(last.EG, 67305985U);
}

TEST_F(VistValues, TheWholeStatusIsANumberWithoutASign) {
    decode_moments(moments(0x3FFF, 0xFFFFFFFF));
    EXPECT_EQ(last.EG, 4294967295U);
    EXPECT_EQ(last.ER, 0x01FE3FFEU);
    EXPECT_FALSE(last.SC);
}

TEST_F(VistValues, ATopBitOfAStatusByteHidesThePressureOfItsChannel) {
    for (const unsigned bit : {5U, 6U, 7U}) {
        EXPECT_EQ(decode_moments(moments(0x3FFF, 1U << bit)), 0x3BFFU) << "P1";
        EXPECT_EQ(decode_moments(moments(0x3FFF, 1U << (8 + bit))), 0x37FFU) << "P2";
        EXPECT_EQ(decode_moments(moments(0x3FFF, 1U << (16 + bit))), 0x2FFFU) << "P3";
        EXPECT_EQ(decode_moments(moments(0x3FFF, 1U << (24 + bit))), 0x3FFFU);
    }
    EXPECT_EQ(decode_moments(moments(0x3FFF, 0x1F1F1F1F)), 0x3FFFU);
}

TEST_F(VistValues, SomeErrorsStopTheServiceAndOthersDoNot) {
    const std::vector<std::uint32_t> stopping = {0x01, 0x02, 0x01000000, 0x02000000, 0x0100, 0x0200};
    for (int bit = 0; bit < 32; ++bit) {
        const std::uint32_t status = 1U << bit;
        decode_moments(moments(0x3FFF, status));
        const bool stops = std::find(stopping.begin(), stopping.end(), status) != stopping.end();
        EXPECT_EQ(last.SC, !stops) << "bit " << bit;
    }
}

// ---- the meter's own texts

vist::DeviceSpecials specials(const std::string& texts) {
    return vist::decode_specials(packet(30, vist_frames::raw(texts)));
}

TEST(VistSpecials, FirmwareModelAndSerialNumberAreTheMetersTexts) {
    using namespace std::string_literals;
    vist::DeviceSpecials told = specials("V1.02\0\xC2\xC8\xD1-2\0"s + "40123\0"s);
    EXPECT_EQ(told.firmware, "V1.02");
    EXPECT_EQ(told.model, "ВИС-2");
    EXPECT_EQ(told.dev_serial, 40123);
    told = specials("\0M\0"s + "12\0"s);
    EXPECT_EQ(told.firmware, "") << "the first text has at least one character";
    EXPECT_EQ(told.model, "12") << "the M counts as the rest of the first text";
    EXPECT_EQ(told.dev_serial, 0);
}

TEST(VistSpecials, LongTextsAreCutToTheirFields) {
    using namespace std::string_literals;
    vist::DeviceSpecials told = specials(std::string(100, 'f') + "\0"s + std::string(100, '\xC0') + "\0"s + "7");
    EXPECT_EQ(told.firmware, std::string(63, 'f'));
    EXPECT_EQ(told.model.size(), 127U);
    EXPECT_EQ(told.dev_serial, 7);
    told = specials(std::string(293, 'A'));
    EXPECT_EQ(told.firmware, std::string(63, 'A'));
    EXPECT_EQ(told.model, "") << "nothing behind the end of the packet";
}

}  // namespace
