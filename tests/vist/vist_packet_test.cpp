// Packets and texts of the meter without a line: sums, numbers, the status word, Russian letters.

#include "drivers/vist/vist_packet.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Raw = std::vector<std::uint8_t>;

// ---- packets

// 0A + 01 + F0 + 05 = 100: the sum modulo 256 is 0.
const Raw GoodPacket = {'H', 'P', 'T', 5, 0x00, 0x0A, 0x01, 0xF0, 0x05};

TEST(VistPackets, APacketWithMagicSumAndTypeIsGood) {
    EXPECT_TRUE(is_good_packet(GoodPacket, 0x0A));
    EXPECT_TRUE(is_good_packet(Raw{'H', 'P', 'T', 4, 0x0D, 0x0A, 0x01, 0x02}, 10)) << "0A + 01 + 02 = 0D";
}

TEST(VistPackets, AnotherTypeOrAnotherMagicIsNotGood) {
    EXPECT_FALSE(is_good_packet(GoodPacket, 0x0B));
    for (const std::size_t at : {0, 1, 2}) {
        Raw packet = GoodPacket;
        packet[at] ^= 0x20;
        EXPECT_FALSE(is_good_packet(packet, 0x0A)) << at;
    }
}

TEST(VistPackets, EveryByteBehindTheSumIsUnderIt) {
    for (std::size_t at = 4; at < GoodPacket.size(); ++at) {
        Raw packet = GoodPacket;
        packet[at] ^= 0x10;
        EXPECT_FALSE(is_good_packet(packet, packet[5])) << at;
    }
}

TEST(VistPackets, TheSizeByteIsNotUnderTheSum) {
    Raw packet = GoodPacket;
    packet[3] = 200;
    EXPECT_TRUE(is_good_packet(packet, 0x0A));
}

TEST(VistPackets, TheSumGoesOverAllThatCameSoATrailingByteSpoilsIt) {
    Raw packet = GoodPacket;
    packet.push_back(0x01);
    EXPECT_FALSE(is_good_packet(packet, 0x0A));
}

TEST(VistPackets, APacketTooShortForItsHeaderIsNotGood) {
    for (std::size_t length = 0; length <= 5; ++length) {
        EXPECT_FALSE(is_good_packet(Bytes(GoodPacket).first(length), 0)) << length;
    }
}

TEST(VistPackets, TheSumIsAPlainOneAndZeroOverNothing) {
    EXPECT_EQ(checksum({}), 0);
    EXPECT_EQ(checksum(Raw{0x01}), 1);
    EXPECT_EQ(checksum(Raw{0xFF, 0xFF, 0x03}), 0x01) << "no complement, no seed";
}

TEST(VistPackets, APartNeverReachesBehindTheBytes) {
    const Raw bytes = {1, 2, 3};
    EXPECT_EQ(part_of(bytes, 1, 1).size(), 1U);
    EXPECT_EQ(part_of(bytes, 1, 100).size(), 2U);
    for (const std::size_t at : {3, 4, 1000}) EXPECT_EQ(part_of(bytes, at, 1).size(), 0U) << at;
    EXPECT_EQ(part_of(bytes, 0, 0).size(), 0U);
    EXPECT_EQ(part_of(bytes, 0, -5).size(), 0U);
}

// ---- numbers

struct Decoded {
    double value = 0;
    std::size_t pointer = 0;
    Raw bytes;  ///< as they stand afterwards
};

Decoded decode(Raw bytes, std::size_t size, bool swapped, std::int32_t mask = 1, std::size_t pointer = 0) {
    Decoded result;
    process_value(mask, size, bytes, pointer, result.value, swapped);
    result.pointer = pointer;
    result.bytes = bytes;
    return result;
}

TEST(VistNumbers, ASingleByteIsUnsigned) {
    EXPECT_EQ(decode({0xFF, 1}, 1, false).value, 25.5);
    EXPECT_EQ(decode({0x80, 0}, 1, true).value, 128.0);
    EXPECT_EQ(decode({0x00, 9}, 1, true).value, 0.0);
}

TEST(VistNumbers, TwoBytesAreSignedInBothOrders) {
    EXPECT_EQ(decode({0x01, 0x02, 0}, 2, false).value, 0x0201);
    EXPECT_EQ(decode({0x01, 0x02, 0}, 2, true).value, 0x0102);
    EXPECT_EQ(decode({0xFF, 0x7F, 0}, 2, false).value, 32767.0);
    EXPECT_EQ(decode({0x80, 0x00, 0}, 2, true).value, -32768.0);
    EXPECT_DOUBLE_EQ(decode({0x1B, 0xD5, 2}, 2, true).value, 71.25) << "1BD5 = 7125";
}

TEST(VistNumbers, FourBytesAreSignedInBothOrders) {
    EXPECT_EQ(decode({0xFF, 0xFF, 0xFF, 0x9C, 1}, 4, true).value, -10.0);
    EXPECT_EQ(decode({0x9C, 0xFF, 0xFF, 0xFF, 1}, 4, false).value, -10.0);
    EXPECT_EQ(decode({0x7F, 0xFF, 0xFF, 0xFF, 0}, 4, true).value, 2147483647.0);
    EXPECT_EQ(decode({0x00, 0x00, 0x00, 0x80, 0}, 4, false).value, -2147483648.0);
}

TEST(VistNumbers, EightBytesAreSignedInBothOrders) {
    EXPECT_EQ(decode({0, 0, 0, 1, 0, 0, 0, 0, 0}, 8, true).value, 4294967296.0);
    EXPECT_EQ(decode({0, 0, 0, 0, 1, 0, 0, 0, 0}, 8, false).value, 4294967296.0);
    EXPECT_EQ(decode({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x9C, 2}, 8, true).value, -1.0);
    EXPECT_EQ(decode({0x80, 0, 0, 0, 0, 0, 0, 0, 0}, 8, true).value, -9223372036854775808.0);
}

TEST(VistNumbers, AScaleOfZeroLeavesTheValueAsItIs) {
    EXPECT_EQ(decode({0x39, 0x30, 0}, 2, false).value, 12345.0);
}

TEST(VistNumbers, AScaleOf255DividesByTenSoManyTimes) {
    double wanted = 2147483647.0;
    for (int i = 0; i < 255; ++i) wanted /= 10.0;
    const double value = decode({0xFF, 0xFF, 0xFF, 0x7F, 0xFF}, 4, false).value;
    EXPECT_EQ(value, wanted);
    EXPECT_GT(value, 0.0);
    EXPECT_LT(value, 1e-245);
}

TEST(VistNumbers, DivisionsOneAfterTheOtherAreNotADivisionByAPower) {
    const double stepwise = ((((1.0 / 10.0) / 10.0) / 10.0) / 10.0) / 10.0;
    EXPECT_EQ(decode({1, 0, 5}, 2, false).value, stepwise);
}

TEST(VistNumbers, ThePointerMovesBehindTheScale) {
    const Raw bytes(12, 0);
    for (const std::size_t size : {1, 2, 4, 8}) EXPECT_EQ(decode(bytes, size, false, 1, 2).pointer, 2 + size + 1);
}

TEST(VistNumbers, BytesAreReversedInPlaceOnlyWhenTheyMustBe) {
    EXPECT_EQ(decode({1, 2, 3, 4, 0}, 4, true).bytes, (Raw{4, 3, 2, 1, 0}));
    EXPECT_EQ(decode({1, 2, 3, 4, 0}, 4, false).bytes, (Raw{1, 2, 3, 4, 0}));
    EXPECT_EQ(decode({1, 0}, 1, true).bytes, (Raw{1, 0}));
}

TEST(VistNumbers, AnAbsentValueIsTheMarkerAndMovesNothing) {
    for (const std::int32_t mask : {0, 2, 0x7FFFFFFE, -2}) {
        const Decoded absent = decode({1, 2, 3, 4, 0}, 4, true, mask, 0);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(absent.value), 0xC05ED54FE0000000ULL) << mask;
        EXPECT_EQ(absent.pointer, 0U);
        EXPECT_EQ(absent.bytes, (Raw{1, 2, 3, 4, 0}));
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%f", AbsentValue);
    EXPECT_EQ(std::string(text.data()), "-123.333000");
}

TEST(VistNumbers, OnlyTheLowestBitOfTheMaskCounts) {
    EXPECT_EQ(decode({7, 0}, 1, false, -1).value, 7.0);
    EXPECT_EQ(decode({7, 0}, 1, false, 0x101).value, 7.0);
}

TEST(VistNumbers, ANumberBehindTheBufferReadsNoForeignByte) {
    for (const std::size_t size : {1, 2, 4, 8}) {
        for (const std::size_t pointer : {3, 4, 5, 300}) {
            const Decoded read = decode({0, 0, 0, 0}, size, true, 1, pointer);
            EXPECT_EQ(read.value, 0.0) << size << " at " << pointer;
            EXPECT_EQ(read.bytes, Raw(4, 0));
        }
    }
}

TEST(VistNumbers, AReversalThatWouldReachBehindTheBufferIsLeftOut) {
    Raw bytes = {1, 2, 3};
    swap_bytes(bytes, 1, 4);
    swap_bytes(bytes, 3, 2);
    swap_bytes(bytes, 400, 2);
    EXPECT_EQ(bytes, (Raw{1, 2, 3}));
    swap_bytes(bytes, 1, 2);
    EXPECT_EQ(bytes, (Raw{1, 3, 2}));
}

// ---- the status word

struct StatusBit {
    int byte;
    int bit;
    std::uint32_t now;
    std::uint32_t archive;
};

constexpr StatusBit StatusBits[] = {
    {0, 0, 0x2, 0x2},           {0, 1, 0x4, 0x4},
    {0, 2, 0x8, 0x8},           {0, 3, 0x10, 0x10},
    {0, 4, 0x20, 0x20},         {0, 5, 0x40, 0x40},
    {0, 6, 0x80, 0x80},         {0, 7, 0x100, 0x100},
    {1, 0, 0x20000, 0x20000},   {1, 1, 0x40000, 0x40000},
    {1, 2, 0x80000, 0x80000},   {1, 3, 0x200000, 0x200000},
    {1, 4, 0x400000, 0x400000}, {1, 5, 0x100000, 0x100000},
    {1, 6, 0x800000, 0x800000}, {1, 7, 0x1000000, 0x1000000},
    {3, 0, 0x200, 0x200},       {3, 1, 0x400, 0x400},
    {3, 2, 0x800, 0x800},       {3, 3, 0x1000, 0x1000},
    {3, 4, 0x2000, 0x2000},     {3, 5, 0, 0},
    {3, 6, 0, 0x10000},         {3, 7, 0, 0x8000},
};

TEST(VistStatus, EachBitHasItsPlaceInTheWord) {
    for (const StatusBit& row : StatusBits) {
        std::array<std::uint8_t, 4> status{};
        status[static_cast<std::size_t>(row.byte)] = static_cast<std::uint8_t>(1 << row.bit);
        EXPECT_EQ(convert_errors(status, false), row.now) << "e" << row.byte << " bit " << row.bit;
        EXPECT_EQ(convert_errors(status, true), row.archive) << "e" << row.byte << " bit " << row.bit;
    }
}

TEST(VistStatus, TheThirdByteIsNotRead) {
    const std::array<std::uint8_t, 4> third{0, 0, 0xFF, 0};
    EXPECT_EQ(convert_errors(third, false), 0U);
    EXPECT_EQ(convert_errors(third, true), 0U);
}

TEST(VistStatus, AllBitsTogetherAreTheSumOfThem) {
    const std::array<std::uint8_t, 4> all{0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(convert_errors(all, false), 0x01FE3FFEU);
    EXPECT_EQ(convert_errors(all, true), 0x01FFBFFEU);
}

// ---- time and texts

TEST(VistTexts, ThePacketsTimeIsSixPlainBytesWithTheYearSince2000) {
    const Raw packet = {0, 23, 59, 58, 31, 12, 24};
    const std::tm tm = packet_time(packet, 1);
    EXPECT_EQ(tm.tm_hour, 23);
    EXPECT_EQ(tm.tm_min, 59);
    EXPECT_EQ(tm.tm_sec, 58);
    EXPECT_EQ(tm.tm_mday, 31);
    EXPECT_EQ(tm.tm_mon, 11);
    EXPECT_EQ(tm.tm_year, 124);
    EXPECT_EQ(tm.tm_isdst, -1);
}

std::string utf8(std::initializer_list<int> bytes) {
    std::string text;
    for (const int byte : bytes) text += static_cast<char>(byte);
    return utf8_of_cp1251(text);
}

TEST(VistTexts, RussianLettersBecomeUtf8) {
    EXPECT_EQ(utf8({0xC0, 0xA8}), "\xD0\x90\xD0\x81");
    EXPECT_EQ(utf8({0xC0, 0xDF, 0xE0, 0xEF}), "АЯап");
    EXPECT_EQ(utf8({0xF0, 0xFF}), "ря");
    EXPECT_EQ(utf8({0xB8}), "ё");
    EXPECT_EQ(utf8({0xC2, 0xC8, 0xD1, '-', 0xD2, ' ', '2'}), "ВИС-Т 2");
}

TEST(VistTexts, EveryOtherByteStaysAsItIs) {
    for (int byte = 0; byte < 0xC0; ++byte) {
        if (byte == 0xA8 || byte == 0xB8) continue;
        EXPECT_EQ(utf8({byte}), std::string(1, static_cast<char>(byte))) << byte;
    }
}

TEST(VistTexts, EveryRussianLetterIsTwoBytes) {
    for (int byte = 0xC0; byte <= 0xFF; ++byte) {
        const int code = 0x410 + byte - 0xC0;  // the letters stand in a row, in both tables
        const std::string wanted{static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
        EXPECT_EQ(utf8({byte}), wanted) << byte;
    }
}

TEST(VistTexts, ATextEndsAtItsZeroAtItsLimitOrAtTheEndOfThePacket) {
    const Raw packet = {'x', 'a', 'b', 0, 'c', 'd'};
    EXPECT_EQ(text_at(packet, 1, 20), "ab");
    EXPECT_EQ(text_at(packet, 1, 1), "a");
    EXPECT_EQ(text_at(packet, 4, 20), "cd");
    EXPECT_EQ(text_at(packet, 3, 20), "");
    for (const std::size_t at : {6, 7, 1000}) EXPECT_EQ(text_at(packet, at, 20), "") << at;
}

}  // namespace
