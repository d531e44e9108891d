// Frames of the KM5 family: the bytes of a request, the checks of an answer, numbers and dates out of it. The vectors
// are worked out by hand.

#include "drivers/km5/km5_frame.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drivers/km5/km5_decode.h"

namespace {

using Frame = std::array<std::uint8_t, 16>;

/// A record that holds `bytes` as received.
KM5_request received(const std::vector<std::uint8_t>& bytes, std::uint8_t cmd = 0) {
    KM5_request req;
    init_request(req);
    req.cmd = cmd;
    std::copy(bytes.begin(), bytes.end(), req.recv_buf.begin());
    req.RcvLng = static_cast<std::uint8_t>(bytes.size());
    return req;
}

/// The status answer of meter 12345678: exclusive or and sum of the first twelve bytes are 0x71 and 0x8D.
const std::vector<std::uint8_t> StatusAnswer = {0x78, 0x56, 0x34, 0x12, 0x08, 0x10, 0x20,
                                                0x00, 0x01, 0x00, 0x00, 0x40, 0x71, 0x8D};

Bytes bytes_of(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(Km5Frame, AFreshRequestIsAllZerosButForAReceivedLengthOf32) {
    KM5_request req;
    req.netaddr.fill(1);
    req.cmd = 2;
    req.data.fill(3);
    req.CS1 = req.CS2 = req.RcvLng = 4;
    req.send_buf.fill(5);
    req.recv_buf.fill(6);
    init_request(req);
    EXPECT_EQ(req.netaddr, (std::array<std::uint8_t, 4>{}));
    EXPECT_EQ(req.cmd, 0);
    EXPECT_EQ(req.data, (std::array<std::uint8_t, 9>{}));
    EXPECT_EQ(req.CS1, 0);
    EXPECT_EQ(req.CS2, 0);
    EXPECT_EQ(req.RcvLng, 32);
    EXPECT_EQ(req.send_buf, Frame{});
    EXPECT_EQ(req.recv_buf, (std::array<std::uint8_t, 72>{}));
}

TEST(Km5Frame, ARequestIsAddressCommandArgumentsAndTwoSums) {
    KM5_request req;
    init_request(req);
    req.netaddr = {0x78, 0x56, 0x34, 0x12};
    req.cmd = 0x41;
    req.data[1] = 0x05;
    req.data[2] = 0x01;
    build_frame(req);
    sync_send_buffer(req);
    EXPECT_EQ(req.send_buf, (Frame{0x78, 0x56, 0x34, 0x12, 0x41, 0, 5, 1, 0, 0, 0, 0, 0, 0, 0x4D, 0x5B}));
    EXPECT_EQ(req.CS1, 0x4D);
    EXPECT_EQ(req.CS2, 0x5B);
}

TEST(Km5Frame, TheHighestRequestHasASumModulo256) {
    KM5_request req;
    init_request(req);
    req.netaddr.fill(0xFF);
    req.cmd = 0xFF;
    req.data.fill(0xFF);
    build_frame(req);
    sync_send_buffer(req);
    EXPECT_EQ(req.send_buf[13], 0xFF);
    EXPECT_EQ(req.send_buf[14], 0xFF) << "thirteen times 0xFF, exclusive or";
    EXPECT_EQ(req.send_buf[15], 0xF2) << "14 * 255 = 3570 = 0xDF2";
}

TEST(Km5Frame, TheLastArgumentTakesPartInTheSumAndNotInTheExclusiveOr) {
    KM5_request req;
    init_request(req);
    req.data[8] = 0x11;
    build_frame(req);
    EXPECT_EQ(req.CS1, 0x00);
    EXPECT_EQ(req.CS2, 0x11);
}

TEST(Km5Frame, ARecordUsedAgainIsFramedAfresh) {
    KM5_request req;
    init_request(req);
    req.cmd = 0x41;
    build_frame(req);
    sync_send_buffer(req);
    req.cmd = 0x08;
    build_frame(req);
    sync_send_buffer(req);
    EXPECT_EQ(req.CS1, 0x08);
    EXPECT_EQ(req.CS2, 0x08);
    EXPECT_EQ(req.send_buf, (Frame{0, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 8}));
}

TEST(Km5Frame, AnAnswerWithBothSumsAndTheEchoIsGood) {
    EXPECT_EQ(find_fault(received(StatusAnswer, 0x08)), AnswerFault::None);
}

TEST(Km5Frame, TheExclusiveOrIsTestedBeforeTheSumAndBothBeforeTheEcho) {
    auto all_wrong = StatusAnswer;
    all_wrong[12] ^= 1;
    all_wrong[13] ^= 1;
    EXPECT_EQ(find_fault(received(all_wrong, 0x09)), AnswerFault::CS1);
    auto wrong_sum = StatusAnswer;
    wrong_sum[13] ^= 1;
    EXPECT_EQ(find_fault(received(wrong_sum, 0x09)), AnswerFault::CS2);
    EXPECT_EQ(find_fault(received(StatusAnswer, 0x09)), AnswerFault::Command);
}

TEST(Km5Frame, EachByteInFrontOfTheSumsIsCoveredByThem) {
    for (std::size_t i = 0; i < 12; ++i) {
        auto spoilt = StatusAnswer;
        spoilt[i] ^= 0x80;
        EXPECT_NE(find_fault(received(spoilt, 0x08)), AnswerFault::None) << "byte " << i;
    }
}

TEST(Km5Frame, TwoBytesSwappedPassBothSums) {
    // Neither sum knows the order of bytes; only the echo is at a fixed place.
    auto swapped = StatusAnswer;
    std::swap(swapped[5], swapped[6]);
    EXPECT_EQ(find_fault(received(swapped, 0x08)), AnswerFault::None);
}

TEST(Km5Frame, TheAddressOfAnAnswerIsNotLookedAt) {
    // Another address, with right sums: 0x08 alone in the exclusive or, and in the sum.
    EXPECT_EQ(find_fault(received({0, 0, 0, 0, 8, 8, 8}, 0x08)), AnswerFault::None);
}

TEST(Km5Frame, AnAnswerOf72BytesIsCheckedToItsEnd) {
    std::vector<std::uint8_t> longest(72, 0);
    longest[4] = 0x41;
    longest[69] = 0x0F;
    longest[70] = 0x4E;
    longest[71] = 0x50;
    EXPECT_EQ(find_fault(received(longest, 0x41)), AnswerFault::None);
    longest[69] = 0x0E;
    EXPECT_EQ(find_fault(received(longest, 0x41)), AnswerFault::CS1);
}

TEST(Km5Frame, AnAnswerOfTwoBytesHasNothingButSumsOfNothing) {
    EXPECT_EQ(find_fault(received({1, 0}, 0)), AnswerFault::CS1);
    EXPECT_EQ(find_fault(received({0, 1}, 0)), AnswerFault::CS2);
    EXPECT_EQ(find_fault(received({0, 0}, 0x08)), AnswerFault::Command);
}

TEST(Km5Frame, AnAnswerOfOneByteHasNoRoomForSums) {
    KM5_request req = received({0}, 0x08);
    build_frame(req);
    sync_send_buffer(req);
    EXPECT_EQ(find_fault(req), AnswerFault::CS1);
}

TEST(Km5Frame, AnAnswerOfNoBytesIsCheckedAgainstTheSumsSent) {
    KM5_request req = received({}, 0x08);
    build_frame(req);
    sync_send_buffer(req);
    EXPECT_EQ(find_fault(req), AnswerFault::CS1) << "harmless: nobody takes an answer of no bytes";
}

TEST(Km5Frame, FourCodesInTheEchoSayErrorWhateverTheSums) {
    for (int code = 0; code < 256; ++code) {
        const bool error = code == 239 || code == 240 || code == 241 || code == 251;
        EXPECT_EQ(isError(received({0, 0, 0, 0, static_cast<std::uint8_t>(code), 1, 2})), error) << code;
    }
}

TEST(Km5Frame, AnErrorCodeAnywhereElseIsNone) {
    EXPECT_FALSE(isError(received({0xEF, 0xF0, 0xF1, 0xFB, 0x08, 0xEF, 0xF0})));
}

TEST(Km5Frame, FieldsOfAnAnswerCountFromOneAtTheCommand) {
    std::array<std::uint8_t, 3> fields{};
    answer_bytes(1, 3, fields.data(), received(StatusAnswer));
    EXPECT_EQ(fields, (std::array<std::uint8_t, 3>{0x08, 0x10, 0x20}));
    answer_bytes(8, 8, fields.data(), received(StatusAnswer));
    EXPECT_EQ(fields[0], 0x40) << "position 11";
}

TEST(Km5Frame, FieldsBehindTheLongestAnswerAreZero) {
    KM5_request req = received(std::vector<std::uint8_t>(72, 0xFF));
    std::array<std::uint8_t, 4> fields{1, 1, 1, 1};
    answer_bytes(68, 71, fields.data(), req);
    EXPECT_EQ(fields, (std::array<std::uint8_t, 4>{0xFF, 0, 0, 0})) << "position 71 is the last";
}

std::tm date_of(const std::array<std::uint8_t, 8>& block) {
    std::vector<std::uint8_t> bytes = {0, 0, 0, 0, 0x2C};
    bytes.insert(bytes.end(), block.begin(), block.end());
    return km5::decode_date(bytes);
}

TEST(Km5Frame, ADateBlockIsDayMonthYearHourMinuteSecondInBcd) {
    const std::tm tm = date_of({0xAA, 0x02, 0x03, 0x24, 0xBB, 0x11, 0x30, 0x59});
    EXPECT_EQ(tm.tm_mday, 2);
    EXPECT_EQ(tm.tm_mon, 2) << "March";
    EXPECT_EQ(tm.tm_year, 124);
    EXPECT_EQ(tm.tm_hour, 11);
    EXPECT_EQ(tm.tm_min, 30);
    EXPECT_EQ(tm.tm_sec, 59);
    EXPECT_EQ(tm.tm_isdst, -1) << "the block does not know";
}

TEST(Km5Frame, TheLowestAndTheHighestDateOfABlock) {
    const std::tm lowest = date_of({0, 0x01, 0x01, 0x00, 0, 0, 0, 0});
    EXPECT_EQ(lowest.tm_year, 100);
    EXPECT_EQ(lowest.tm_mon, 0);
    EXPECT_EQ(lowest.tm_mday, 1);
    const std::tm highest = date_of({0, 0x31, 0x12, 0x99, 0, 0x23, 0x59, 0x59});
    EXPECT_EQ(highest.tm_year, 199);
    EXPECT_EQ(highest.tm_mon, 11);
    EXPECT_EQ(highest.tm_mday, 31);
    EXPECT_EQ(highest.tm_hour, 23);
}

TEST(Km5Frame, AnErasedDateBlockIsNotRefused) {
    const std::tm tm = date_of({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(tm.tm_mday, 165);
    EXPECT_EQ(tm.tm_mon, 164);
    EXPECT_EQ(tm.tm_year, 265);
    EXPECT_EQ(tm.tm_hour, 165);
    EXPECT_EQ(tm.tm_sec, 165);
}

std::vector<int> bcd_bytes(std::uint32_t value, std::size_t size) {
    std::array<std::uint8_t, 8> bytes;
    bytes.fill(0xEE);
    int_to_bcd(bytes.data(), value, size);
    EXPECT_EQ(bytes[size], 0xEE) << "a byte behind the field";
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

TEST(Km5Frame, ANumberIsWrittenAsBcdLowestPairFirst) {
    EXPECT_EQ(bcd_bytes(0, 1), (std::vector<int>{0x00}));
    EXPECT_EQ(bcd_bytes(9, 1), (std::vector<int>{0x09}));
    EXPECT_EQ(bcd_bytes(10, 1), (std::vector<int>{0x10}));
    EXPECT_EQ(bcd_bytes(99, 1), (std::vector<int>{0x99}));
    EXPECT_EQ(bcd_bytes(12345678, 4), (std::vector<int>{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(bcd_bytes(1, 4), (std::vector<int>{0x01, 0, 0, 0}));
}

TEST(Km5Frame, DigitsThatDoNotFitAreDropped) {
    EXPECT_EQ(bcd_bytes(100, 1), (std::vector<int>{0x00}));
    EXPECT_EQ(bcd_bytes(123, 1), (std::vector<int>{0x23}));
    EXPECT_EQ(bcd_bytes(4294967295U, 4), (std::vector<int>{0x95, 0x72, 0x96, 0x94}));
    EXPECT_EQ(bcd_bytes(7, 0), (std::vector<int>{}));
}

TEST(Km5Frame, AVersionIsADecimalNumberBehindBlanks) {
    EXPECT_EQ(parse_version(bytes_of("\t2.15")), 2.15F);
    EXPECT_EQ(parse_version(bytes_of("\t1.57")), 1.57F);
    EXPECT_EQ(parse_version(bytes_of("\t 1.9")), 1.9F);
    EXPECT_EQ(parse_version(bytes_of("\t2   ")), 2.0F);
    EXPECT_EQ(parse_version(bytes_of("\t9999")), 9999.0F);
    EXPECT_EQ(parse_version(bytes_of("\t1.5x")), 1.5F);
}

TEST(Km5Frame, AVersionTextWithoutDigitsIsZero) {
    EXPECT_EQ(parse_version(bytes_of("\tv2.1")), 0.0F);
    EXPECT_EQ(parse_version(bytes_of("\t    ")), 0.0F);
    EXPECT_EQ(parse_version(bytes_of("\t....")), 0.0F);
    EXPECT_EQ(parse_version(bytes_of("")), 0.0F);
    EXPECT_EQ(parse_version(bytes_of(std::string("\t\0\0\0\0", 5))), 0.0F);
}

TEST(Km5Frame, FirmwareTwoPointTenIsHeldBelowTwoPointOne) {
    EXPECT_LT(static_cast<double>(parse_version(bytes_of("\t2.10"))), 2.1);
    EXPECT_FALSE(static_cast<double>(parse_version(bytes_of("\t2.11"))) < 2.1);
    EXPECT_FALSE(static_cast<double>(parse_version(bytes_of("\t1.58"))) < 1.58);
    EXPECT_FALSE(static_cast<double>(parse_version(bytes_of("\t1.59"))) < 1.59);
    EXPECT_FALSE(static_cast<double>(parse_version(bytes_of("\t1.86"))) < 1.86);
}

}  // namespace
