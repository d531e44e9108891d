// Two ends of a line that are set to different speeds.

#include "wrong_speed.h"

#include <gtest/gtest.h>

namespace {

using sim::ByteVector;
using sim::misheard;

const ByteVector AllBytes = [] {
    ByteVector bytes;
    for (unsigned byte = 0; byte < 256; ++byte) bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}();

TEST(WrongSpeed, AtTheSameSpeedEveryByteIsHeard) {
    for (const unsigned speed : {300U, 9600U, 115200U}) EXPECT_EQ(misheard(AllBytes, speed, speed), AllBytes);
    EXPECT_EQ(misheard({}, 2400, 9600), ByteVector());
}

// The bits of 0F, start and stop bit with them, are 0 1111 0000 1; at half the speed each of them counts twice.
TEST(WrongSpeed, AFastReceiverHearsEachBitTwice) {
    EXPECT_EQ(misheard(ByteVector{0x0F}, 4800, 9600), (ByteVector{0xFE, 0x80}));
    EXPECT_EQ(misheard(ByteVector{0xFF}, 4800, 9600), ByteVector{0xFE});
}

// Nine low bits are longer than a byte: there is no stop bit, and no other start before the line has been high.
TEST(WrongSpeed, ALongLowLineIsOneByte) {
    EXPECT_EQ(misheard(ByteVector{0x00}, 4800, 9600), ByteVector{0x00});
    EXPECT_EQ(misheard(ByteVector{0x00, 0x00}, 2400, 9600), (ByteVector{0x00, 0x00}));
}

// The start bit of FF is over before a receiver of a quarter of the speed has looked at it.
TEST(WrongSpeed, ASlowReceiverMissesShortBits) {
    EXPECT_EQ(misheard(ByteVector{0xFF}, 9600, 2400), ByteVector());
    EXPECT_EQ(misheard(ByteVector{0x00}, 9600, 2400), ByteVector{0xFE});
}

TEST(WrongSpeed, NothingIsHeardRightAtAnotherSpeed) {
    for (const unsigned sent : {300U, 2400U, 9600U, 19200U, 115200U}) {
        for (const unsigned heard : {300U, 2400U, 9600U, 19200U, 115200U}) {
            if (sent == heard) continue;
            EXPECT_NE(misheard(AllBytes, sent, heard), AllBytes) << sent << ' ' << heard;
        }
    }
}

}  // namespace
