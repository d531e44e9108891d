// Current values: how the packets of integrators and moment values are decoded, and what becomes of the status.

#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "support/vist_present.h"
#include "support/vist_scene.h"

namespace {

using sim::ByteVector;
using vist_frames::packet;
using namespace vist_present;

class VistValues : public VistDescribedBench {
  protected:
    VistValues() { driver->sw_version = 101; }

    std::uint32_t flush(bool moment, const ByteVector& bytes) {
        const auto buffer = driver->buffers.GetBuffer(driver->functions.tempbuff);
        std::copy(bytes.begin(), bytes.end(), buffer.begin());
        return driver->flush_values(moment, driver->functions.tempbuff);
    }
    std::uint32_t flush_integrators(const ByteVector& body) { return flush(false, packet(10, body)); }
    std::uint32_t flush_moments(const ByteVector& body) { return flush(true, packet(11, body)); }
    bool is_absent(std::size_t slot) const {
        return std::bit_cast<std::uint64_t>(driver->values[slot]) == 0xC05ED54FE0000000ULL;
    }
};

// ---- decoding

TEST_F(VistValues, TheOrderOfTheBytesIsThatOfTheTopBitOfEnumer) {
    // 00: big-endian, mask 000020FF, then -10.0 in front of seven more values
    ByteVector body = {0x00, 0x00, 0x00, 0x20, 0xFF, 0xFF, 0xFF, 0xFF, 0x9C, 0x01};
    EXPECT_EQ(flush_integrators(body), 0x20FFU);
    EXPECT_TRUE(driver->fSwap);
    EXPECT_EQ(driver->values[0], -36000.0) << "-10.0 hours";
    body = {0x80, 0x01, 0x00, 0x00, 0x00, 0x9C, 0xFF, 0xFF, 0xFF, 0x01};
    EXPECT_EQ(flush_integrators(body), 1U);
    EXPECT_FALSE(driver->fSwap);
    EXPECT_EQ(driver->values[0], -36000.0);
    EXPECT_EQ(logged("ppkt->enumer = 128"), 1);
    EXPECT_EQ(logged("fSwap = 1"), 1);
}

TEST_F(VistValues, TheIntegratorsStandInTheOrderOfTheirBits) {
    for (const bool little : {false, true}) {
        EXPECT_EQ(flush_integrators(integrators(0xFF, little)), 0xFFU);
        EXPECT_EQ(driver->values[0], 3600.0) << "hours as seconds";
        for (std::size_t slot = 1; slot < 8; ++slot) EXPECT_EQ(driver->values[slot], static_cast<double>(slot + 1));
    }
    EXPECT_EQ(logged_start("Warning: mask of binary request"), 0);
}

TEST_F(VistValues, TheMomentValuesStandInTheOrderOfTheirBits) {
    for (const bool little : {false, true}) {
        EXPECT_EQ(flush_moments(moments(0x3FFF, 0, little)), 0x3FFFU);
        for (std::size_t slot = 0; slot < 14; ++slot) EXPECT_EQ(driver->values[slot], static_cast<double>(slot + 1));
    }
}

TEST_F(VistValues, OfTheIntegratorsAllButTheLastAreToldOneByOneAndOfTheMomentValuesNone) {
    flush_moments(moments());
    EXPECT_EQ(logged_start("Cycle ") + logged_start("Process integrator "), 0);
    flush_integrators(integrators());
    std::vector<std::string> told;
    for (const std::string& line : log()) {
        if (line.starts_with("Cycle ") || line.starts_with("Process ")) told.push_back(line);
    }
    ASSERT_EQ(told.size(), 14U);
    for (std::size_t slot = 0; slot < 7; ++slot) {
        const std::string n = std::to_string(slot);
        EXPECT_TRUE(told[2 * slot].starts_with("Cycle " + n + ", mask 1, full ")) << told[2 * slot];
        EXPECT_EQ(told[2 * slot + 1],
                  "Process integrator " + n + " with mask 1, after conversion is " + std::to_string(slot + 1.0));
    }
}

TEST_F(VistValues, AnAbsentValueTakesNoPlaceInThePacket) {
    for (std::size_t missing = 0; missing < 14; ++missing) {
        flush_moments(moments(0x3FFFU & ~(1U << missing)));
        for (std::size_t slot = 0; slot < 14; ++slot) {
            if (slot == missing) {
                EXPECT_TRUE(is_absent(slot)) << slot;
            } else {
                EXPECT_EQ(driver->values[slot], static_cast<double>(slot + 1)) << missing;
            }
        }
    }
}

TEST_F(VistValues, AnEmptyMaskLeavesAllValuesAbsent) {
    EXPECT_EQ(flush_integrators(integrators(0)), 0U);
    for (std::size_t slot = 1; slot < 8; ++slot) EXPECT_TRUE(is_absent(slot)) << slot;
    EXPECT_FALSE(is_absent(0)) << "the marker has been taken for hours";
    EXPECT_LT(driver->values[0], -443998.0);
}

TEST_F(VistValues, BitsBehindTheLastValueAreWarnedOf) {
    EXPECT_EQ(flush_integrators(integrators(0x1FF)), 0x1FFU);
    EXPECT_EQ(flush_moments(moments(0x80003FFF)), 0x80003FFFU);
    EXPECT_EQ(logged("Warning: mask of binary request is not null after processing!"), 2);
}

TEST_F(VistValues, FromVersion102OnTheClockStandsInFrontOfTheIntegrators) {
    driver->sw_version = 102;
    EXPECT_EQ(flush(false, packet(12, with_clock(integrators()))), 0xFFU);
    EXPECT_EQ(driver->mdatetime, 1709373899) << "2024-03-02 10:04:59";
    EXPECT_EQ(logged("VIST: current time: 10:04:59"), 1);
    EXPECT_EQ(driver->values[7], 8.0);
}

TEST_F(VistValues, AtVersion101ThereIsNoClockAndNeverOneAmongTheMomentValues) {
    flush_integrators(integrators());
    driver->sw_version = 102;
    flush_moments(moments());
    EXPECT_EQ(driver->mdatetime, -1);
    EXPECT_EQ(driver->values[12], 13.0);
}

TEST_F(VistValues, AClockThatIsNoneGivesNoTimeOrAnother) {
    driver->sw_version = 102;
    ByteVector body = integrators();
    body.insert(body.begin(), 6, 0xFF);
    EXPECT_EQ(flush(false, packet(12, body)), 0xFFU);
    EXPECT_EQ(driver->values[1], 2.0);
}

TEST_F(VistValues, APacketWithoutASizeHoldsItsLastValueOnly) {
    ByteVector none = packet(10, integrators());
    none[3] = 0;
    driver->values.fill(77.0);
    flush(false, none);
    for (std::size_t slot = 1; slot < 7; ++slot) EXPECT_EQ(driver->values[slot], 77.0);
    // Eight bytes where IT and IQ1 stand: 00000001 00 000000 | scale 02
    EXPECT_EQ(driver->values[7], 4294967296.0 / 100);
    ByteVector seven = packet(11, moments());
    seven[3] = 7;
    driver->values.fill(77.0);
    flush(true, seven);
    for (std::size_t slot = 0; slot < 13; ++slot) EXPECT_EQ(driver->values[slot], 77.0);
    EXPECT_EQ(driver->values[13], 1.0);
}

TEST_F(VistValues, OnceTheSizeIsAboveTheFixedPartItBoundsNothing) {
    ByteVector one = packet(10, integrators());
    one[3] = 1;
    EXPECT_EQ(flush(false, one), 0xFFU);
    EXPECT_EQ(driver->values[7], 8.0);
    ByteVector eight = packet(11, moments());
    eight[3] = 8;
    flush(true, eight);
    EXPECT_EQ(driver->values[13], 14.0);
}

TEST_F(VistValues, AShortPacketIsReadIntoWhatStandsInTheBuffer) {
    flush_moments(moments());
    ByteVector shorter = packet(11, moments());
    shorter.resize(20);  // Q1 and Q2
    flush(true, shorter);
    EXPECT_EQ(driver->values[1], 2.0);
    EXPECT_EQ(driver->values[3], 4.0 * 16777216.0) << "reversed once more where it had been reversed already";
}

TEST_F(VistValues, NoPacketReachesBehindItsBuffer) {
    std::mt19937 generator(3);
    for (int round = 0; round < 300; ++round) {
        ByteVector bytes(300);
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(round % 2 == 0 ? generator() : 0xFF);
        driver->sw_version = 101 + round % 3;
        flush(round % 4 < 2, bytes);
    }
}

// ---- the status

TEST_F(VistValues, AStatusBitBecomesItsErrorAndStopsTheService) {
    flush_moments(moments(0x3FFF, 0x01));
    EXPECT_EQ(item("EG"), "1");
    EXPECT_EQ(item("ER"), "2");
    EXPECT_EQ(item("SC"), "0");
}

TEST_F(VistValues, TheStatusIsInTheOrderOfTheValues) {
    flush_moments(moments(0x3FFF, 0x04030201, true));
    EXPECT_EQ(item("EG"), "67305985");
    // e0 01: 2; e1 02: 40000; e3 04: 800
    EXPECT_EQ(item("ER"), std::to_string(0x40802));
    flush_moments(moments(0x3FFF, 0x04030201, false));
    EXPECT_EQ(item("EG"), "67305985");
}

TEST_F(VistValues, TheWholeStatusIsPublishedWithoutASign) {
    flush_moments(moments(0x3FFF, 0xFFFFFFFF));
    EXPECT_EQ(item("EG"), "4294967295");
    EXPECT_EQ(item("ER"), std::to_string(0x01FE3FFE));
    EXPECT_EQ(item("SC"), "0");
}

TEST_F(VistValues, ATopBitOfAStatusByteHidesThePressureOfItsChannel) {
    for (const unsigned bit : {5U, 6U, 7U}) {
        EXPECT_EQ(flush_moments(moments(0x3FFF, 1U << bit)), 0x3BFFU) << "P1";
        EXPECT_EQ(flush_moments(moments(0x3FFF, 1U << (8 + bit))), 0x37FFU) << "P2";
        EXPECT_EQ(flush_moments(moments(0x3FFF, 1U << (16 + bit))), 0x2FFFU) << "P3";
        EXPECT_EQ(flush_moments(moments(0x3FFF, 1U << (24 + bit))), 0x3FFFU);
    }
    EXPECT_EQ(flush_moments(moments(0x3FFF, 0x1F1F1F1F)), 0x3FFFU);
}

TEST_F(VistValues, SomeErrorsStopTheServiceAndOthersDoNot) {
    const std::vector<std::uint32_t> stopping = {0x01, 0x02, 0x01000000, 0x02000000, 0x0100, 0x0200};
    for (int bit = 0; bit < 32; ++bit) {
        const std::uint32_t status = 1U << bit;
        flush_moments(moments(0x3FFF, status));
        const bool stops = std::find(stopping.begin(), stopping.end(), status) != stopping.end();
        EXPECT_EQ(item("SC"), stops ? "0" : "1") << "bit " << bit;
    }
}

}  // namespace
