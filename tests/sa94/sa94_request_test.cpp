// The five requests to an SA-94 meter, byte for byte.

#include "drivers/sa94/sa94_request.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Sent = std::vector<int>;

Sent sent(const SA94Request& request) {
    return {request.command.begin(), request.command.begin() + request.send_length};
}

Sent connect_to(std::int32_t address) {
    SA94Request request(address);
    request.setConnect();
    return sent(request);
}

Sent short_block(std::uint32_t segment, std::uint32_t block) {
    SA94Request request(1);
    request.setReadBlock(segment, block);
    return sent(request);
}

Sent long_block(std::uint32_t segment, std::uint32_t block) {
    SA94Request request(1);
    request.setReadBlockExtended(segment, block);
    return sent(request);
}

/// A request that has been used before.
SA94Request used() {
    SA94Request request(0x12345);
    request.command = {9, 9, 9};
    request.response.fill(9);
    request.recv_length = 77;
    return request;
}

bool is_blank(const SA94Request& request) {
    return std::all_of(request.response.begin(), request.response.end(), [](int byte) { return byte == 0; });
}

TEST(Sa94Question, ANewRequestIsEmptyAndWaitsForAnAnswer) {
    const SA94Request request(0x12345);
    EXPECT_EQ(request.address, 0x12345);
    EXPECT_TRUE(request.must_answer);
    EXPECT_EQ(request.command, (std::array<std::uint8_t, 3>{}));
    EXPECT_EQ(request.response.size(), 512U);
    EXPECT_TRUE(is_blank(request));
}

TEST(Sa94Question, ResetZeroesBytesAndNothingElse) {
    SA94Request request = used();
    request.setDisconnect();
    request.recv_length = 77;
    request.response.fill(9);
    request.reset();
    EXPECT_EQ(request.command, (std::array<std::uint8_t, 3>{}));
    EXPECT_TRUE(is_blank(request));
    EXPECT_EQ(request.address, 0x12345);
    EXPECT_EQ(request.send_length, 1U);
    EXPECT_EQ(request.recv_length, 77U);
    EXPECT_FALSE(request.must_answer);
}

TEST(Sa94Question, AConnectCarriesTheAddressInThreeBytes) {
    EXPECT_EQ(connect_to(0x12345), (Sent{0xC4, 0x46, 0x45}));
    EXPECT_EQ(connect_to(0), (Sent{0xC0, 0x00, 0x00}));
    EXPECT_EQ(connect_to(1), (Sent{0xC0, 0x00, 0x01}));
    EXPECT_EQ(connect_to(0x7F), (Sent{0xC0, 0x00, 0x7F}));
    EXPECT_EQ(connect_to(0x80), (Sent{0xC0, 0x01, 0x00}));
    EXPECT_EQ(connect_to(0x4000), (Sent{0xC1, 0x00, 0x00}));
    EXPECT_EQ(connect_to(0x80000), (Sent{0xE0, 0x00, 0x00}));
}

TEST(Sa94Question, BitsAboveTheTwentiethAreDropped) {
    EXPECT_EQ(connect_to(0xFFFFF), (Sent{0xFF, 0x7F, 0x7F}));
    EXPECT_EQ(connect_to(0x7FF12345), (Sent{0xC4, 0x46, 0x45}));
    EXPECT_EQ(connect_to(0x100000), (Sent{0xC0, 0x00, 0x00}));
}

TEST(Sa94Question, ANegativeAddressIsShiftedArithmetically) {
    EXPECT_EQ(connect_to(-1), (Sent{0xFF, 0x7F, 0x7F}));
    EXPECT_EQ(connect_to(-2), (Sent{0xFF, 0x7F, 0x7E}));
}

TEST(Sa94Question, AConnectHasItsTopBitsSetAndTheAddressBytesBehindItHaveNot) {
    for (std::int32_t address = 0; address < 0x100000; address += 0x0F1) {
        const Sent bytes = connect_to(address);
        ASSERT_EQ(bytes[0] & 0xC0, 0xC0);
        ASSERT_LT(bytes[1], 0x80);
        ASSERT_LT(bytes[2], 0x80);
        ASSERT_EQ((bytes[0] & 0x3F) << 14 | bytes[1] << 7 | bytes[2], address);
    }
}

TEST(Sa94Question, ABlockInTheShortForm) {
    EXPECT_EQ(short_block(3, 127), (Sent{0xA3, 0x7F}));
    EXPECT_EQ(short_block(0, 0), (Sent{0xA0, 0x00}));
    EXPECT_EQ(short_block(7, 1), (Sent{0xA7, 0x01}));
    EXPECT_EQ(short_block(2, 128), (Sent{0xA2, 0x00})) << "seven bits of the block";
    EXPECT_EQ(short_block(2, 0xFFFFFFFF), (Sent{0xA2, 0x7F}));
}

TEST(Sa94Question, ABlockInTheLongForm) {
    EXPECT_EQ(long_block(5, 511), (Sent{0xB7, 0x6F, 0x3F}));
    EXPECT_EQ(long_block(2, 64), (Sent{0xB7, 0x51, 0x00}));
    EXPECT_EQ(long_block(0, 0), (Sent{0xB7, 0x40, 0x00}));
    EXPECT_EQ(long_block(7, 63), (Sent{0xB7, 0x78, 0x3F}));
    EXPECT_EQ(long_block(6, 448), (Sent{0xB7, 0x77, 0x00}));
    EXPECT_EQ(long_block(2, 512), (Sent{0xB7, 0x50, 0x00})) << "nine bits of the block";
    EXPECT_EQ(long_block(2, 0xFFFFFFFF), (Sent{0xB7, 0x57, 0x3F}));
}

TEST(Sa94Question, FirmwareAndTubesAreTwoBlocksInTheShortForm) {
    SA94Request request(1);
    request.setReadFirmware();
    EXPECT_EQ(sent(request), (Sent{0xA0, 0x02}));
    request.setReadTubeSettings();
    EXPECT_EQ(sent(request), (Sent{0xA0, 0x00}));
}

TEST(Sa94Question, AParameterIsOneByte) {
    SA94Request request(1);
    request.setReadParameter(12);
    EXPECT_EQ(sent(request), (Sent{0x8C}));
    request.setReadParameter(0);
    EXPECT_EQ(sent(request), (Sent{0x80}));
    request.setReadParameter(15);
    EXPECT_EQ(sent(request), (Sent{0x8F}));
}

TEST(Sa94Question, ADisconnectIsOneByteWithoutAnAnswerForGood) {
    SA94Request request(1);
    request.setDisconnect();
    EXPECT_EQ(sent(request), (Sent{0x01}));
    EXPECT_FALSE(request.must_answer);
    request.setConnect();
    EXPECT_FALSE(request.must_answer);
}

TEST(Sa94Question, EveryBuilderForgetsTheReplyBefore) {
    using Builder = void (*)(SA94Request&);
    const Builder builders[] = {
        [](SA94Request& request) { request.setConnect(); },
        [](SA94Request& request) { request.setReadBlock(2, 3); },
        [](SA94Request& request) { request.setReadBlockExtended(2, 3); },
        [](SA94Request& request) { request.setReadFirmware(); },
        [](SA94Request& request) { request.setReadTubeSettings(); },
        [](SA94Request& request) { request.setReadParameter(3); },
        [](SA94Request& request) { request.setDisconnect(); },
    };
    for (const Builder build : builders) {
        SA94Request request = used();
        build(request);
        EXPECT_TRUE(is_blank(request));
        EXPECT_EQ(request.address, 0x12345);
        for (std::size_t at = request.send_length; at < request.command.size(); ++at) {
            EXPECT_EQ(request.command[at], 0) << "what is not sent is zero";
        }
    }
}

}  // namespace
