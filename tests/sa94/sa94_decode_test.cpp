// What the replies of a meter mean: bytes in, values out, without a line, a clock or a log.

#include "drivers/sa94/sa94_decode.h"

#include <bit>
#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

// ---- firmware

int id_of(const std::string& firmware) {
    const SA94Version* const version = find_version(firmware);
    return version == nullptr ? -1 : version->id;
}

std::string text_of(const std::string& field) {
    return firmware_text(Sa94Bytes(128).put(1, {field.begin(), field.end()}).bytes());
}

TEST(Sa94FirmwareText, HasFourteenBytesFromTheSecondOnWithoutTheirBlanks) {
    EXPECT_EQ(text_of("M301ABCDEFGHIJKL"), "M301ABCDEFGHIJ");
    EXPECT_EQ(text_of("M461-m 2.3"), "M461-m2.3");
    EXPECT_EQ(text_of("   301"), "301");
    EXPECT_EQ(text_of("              "), "");
}

TEST(Sa94FirmwareText, EndsAtItsFirstZeroAndWithItsReply) {
    EXPECT_EQ(text_of(std::string("M301\0X1", 7)), "M301");
    EXPECT_EQ(firmware_text(sim::ByteVector{0x77, 'M', '3'}), "M3");
    EXPECT_EQ(firmware_text({}), "");
}

TEST(Sa94Version, EveryFirmwareIsFoundByItsName) {
    const SA94Version rows[] = {
        {17, "M461-m", "SA94/3A", true}, {16, "M451-m", "SA94/3A", true}, {15, "M461", "SA94/3", true},
        {14, "M451", "SA94/3", true},    {13, "M411", "SA94/3", true},    {12, "M401", "SA94/3", true},
        {11, "M301", "SA94/2M", true},   {10, "M300", "SA94/2M", false},  {9, "301", "SA94/2M", true},
        {8, "300", "SA94/2M", false},    {7, "MTE1", "SA94/2", true},     {6, "201", "SA94/2", true},
        {5, "200", "SA94/2", false},     {4, "M101", "SA94/1", true},     {3, "M100", "SA94/1", false},
        {2, "101", "SA94/1", true},      {1, "100", "SA94/1", false},     {0, "SA94_UNKNOWN", "SA94/1", false},
    };
    ASSERT_EQ(Versions.size(), std::size(rows));
    for (const SA94Version& row : rows) {
        for (const char* tail : {"", "v2"}) {
            const SA94Version* const found = find_version(row.name + tail);
            ASSERT_NE(found, nullptr) << row.name;
            EXPECT_EQ(found->id, row.id) << row.name;
            EXPECT_EQ(found->model, row.model) << row.name;
            EXPECT_EQ(found->extended, row.extended) << row.name;
        }
    }
}

TEST(Sa94Version, OnlyThePrefixIsComparedTheLongerNameFirst) {
    EXPECT_EQ(id_of("M461-m2.3"), 17);
    EXPECT_EQ(id_of("M461-n"), 15);
    EXPECT_EQ(id_of("301A"), 9);
    EXPECT_EQ(id_of("3010"), 9);
    EXPECT_EQ(id_of("1001"), 1);
    for (const char* text : {"", "A301", "SA94", "M999", "m301", "M30", "40", "SA94_UNKNOW"}) {
        EXPECT_EQ(id_of(text), -1) << text;
    }
}

// ---- status

TEST(Sa94Status, EachBitByItself) {
    for (int bit = 1; bit <= 0x80; bit *= 2) {
        const SA94Status one = sa94::decode_status(static_cast<std::uint8_t>(bit), 11);
        EXPECT_EQ(one.sc_flag, bit == 16 ? 1 : 0) << bit;
        EXPECT_EQ(one.subsystem_type, bit == 4 ? 1 : 0) << bit;
        EXPECT_EQ(one.status_byte, bit & 0x7F) << bit;
        const SA94Status others = sa94::decode_status(static_cast<std::uint8_t>(0xFF - bit), 11);
        EXPECT_EQ(others.sc_flag, bit == 16 ? 0 : 1) << bit;
        EXPECT_EQ(others.subsystem_type, bit == 4 ? 0 : 1) << bit;
    }
    EXPECT_EQ(sa94::decode_status(0x95, 11).status_byte, 0x15) << "without the top bit";
}

TEST(Sa94Status, TheThirdTemperatureGoesByTheFirmware) {
    for (int id = 0; id < 18; ++id) {
        for (const int status : {0x00, 0x02, 0x04, 0xFB, 0xFD, 0xFF}) {
            const bool measured = id < 4 || (status & (id < 14 ? 0x02 : 0x04)) != 0;
            EXPECT_EQ(sa94::decode_status(static_cast<std::uint8_t>(status), id).support_t3, measured)
                << id << ' ' << status;
        }
    }
}

// ---- tubes

TEST(Sa94Tube, HasItsCodesInTheFirstBlock) {
    const auto block = Sa94Bytes(128, 0x77).put(36, {2, 3, 4}).put(44, {7, 10, 50}).bytes();
    const SA94Tube first = sa94::decode_tube(block, 1);
    EXPECT_EQ(first.diameter(), 25);
    EXPECT_EQ(first.greatest_flow(), 3.2F);
    EXPECT_EQ(first.least_flow(), 0.128F);
    const SA94Tube second = sa94::decode_tube(block, 2);
    EXPECT_EQ(second.diameter(), 150);
    EXPECT_EQ(second.greatest_flow(), 600.0F);
    EXPECT_EQ(second.least_flow(), 300.0F);
}

TEST(Sa94Tube, Code11IsADiameterWithoutAFlow) {
    EXPECT_EQ((SA94Tube{11, 0, 100}.diameter()), 6);
    EXPECT_EQ((SA94Tube{11, 0, 100}.greatest_flow()), -1.0F);
    EXPECT_EQ((SA94Tube{11, 0, 100}.least_flow()), -1.0F) << "a percentage of it";
    EXPECT_EQ((SA94Tube{0, 11, 25}.least_flow()), -0.25F);
    EXPECT_EQ((SA94Tube{255, 255, 0}.diameter()), 10);
    EXPECT_EQ((SA94Tube{0, 0, 255}.least_flow()), 0.6375F);
}

// ---- current parameters

TEST(Sa94Parameter, AValueIsScaledAndTheClockIsLeft) {
    std::tm clock{};
    const SA94CurrentParameter times = {true, ParameterValue, 3600.0F, Multiply, "M1", 0};
    // 1.28 * 2^-11 is 0.000625.
    EXPECT_EQ(sa94::decode_parameter(times, sim::ByteVector{0x76, 0x23, 0xD7, 0x0A}, clock), 2.25F);
    const SA94CurrentParameter divided = {true, ParameterValue, 3600.0F, Divide, "IT1", 12};
    EXPECT_EQ(sa94::decode_parameter(divided, sim::ByteVector{0x8B, 0x61, 0x00, 0x00}, clock), 0.5F) << "1800";
    EXPECT_EQ(sa94::decode_parameter(divided, {}, clock), 0.0F) << "a lost reply";
    EXPECT_EQ(clock.tm_year, 0);
}

TEST(Sa94Parameter, DateAndTimeGoIntoTheClockWithoutTheirFirstByte) {
    std::tm clock{};
    EXPECT_FALSE(sa94::decode_parameter({true, ParameterDate, 1.0F, Multiply, "", 11},
                                        sim::ByteVector{0x99, 0x02, 0x03, 0x24}, clock));
    EXPECT_FALSE(sa94::decode_parameter({true, ParameterTime, 1.0F, Multiply, "", 10},
                                        sim::ByteVector{0x99, 0x10, 0x04, 0x58}, clock));
    EXPECT_EQ(clock.tm_mday, 2);
    EXPECT_EQ(clock.tm_mon, 2);
    EXPECT_EQ(clock.tm_year, 124);
    EXPECT_EQ(clock.tm_hour, 10);
    EXPECT_EQ(clock.tm_min, 4);
    EXPECT_EQ(clock.tm_sec, 58);
}

// ---- records

using Values = std::vector<std::pair<std::string, float>>;

TEST(Sa94Record, AnHourByHand) {
    const sim::ByteVector record = {0x00, 0x02, 0x03, 0x24,   // 2 March 2024
                                    0x16, 0x09,               // status, hour 9
                                    0x0E, 0x10,               // 3600 / 3600
                                    0x84, 0x48, 0x00, 0x00,   // 12.5
                                    0x87, 0x0E, 0x80, 0x00,   // 71.25
                                    0x00, 0x00, 0x00, 0x00,   //
                                    0xFF, 0xFF,               // the third temperature
                                    0x07, 0x08,               // 1800 / 1800
                                    0x03, 0x84,               // 900 / 1800
                                    0x00, 0x00,               // 0
                                    0x8B, 0x1A, 0x50, 0x00};  // 1234.5
    const SA94Record decoded = sa94::decode_record(record, *find_layout(HOURLY_DB, 10), true);
    EXPECT_EQ(decoded.values, (Values{{"A3", 1.0F},
                                      {"A12", 12.5F},
                                      {"A14", 71.25F},
                                      {"_A20", 0.0F},
                                      {"_A21", 0.0F},
                                      {"A22", std::bit_cast<float>(0x4423D666U)},  // 655.35: a word has no sign
                                      {"A26", 1.0F},
                                      {"A25", 0.5F},
                                      {"A24", 0.0F},
                                      {"A1", 1234.5F}}));
    EXPECT_EQ(decoded.tm.tm_mday, 2);
    EXPECT_EQ(decoded.tm.tm_hour, 9);
}

TEST(Sa94Record, WithoutAThirdTemperatureItsWordIsLeftOutAndTheRestKeepsItsPlace) {
    const auto record = Sa94Bytes(32).word(20, 500).word(22, 3600).word(24, 1800).bytes();
    for (const auto& [type, third] : {std::pair{HOURLY_DB, "A22"}, std::pair{DAILY_DB, "A50"}}) {
        Values all = sa94::decode_record(record, *find_layout(type, 10), true).values;
        EXPECT_EQ(std::erase_if(all, [&](const auto& value) { return value.first == third; }), 1U);
        EXPECT_EQ(sa94::decode_record(record, *find_layout(type, 10), false).values, all);
    }
    const auto real = Sa94Bytes(64).real(24, -100.0F).bytes();
    EXPECT_EQ(sa94::decode_record(real, *find_layout(HOURLY_DB, 6), false).values.at(2),
              (Values::value_type{"A22", -100.0F}))
        << "in a float it is taken as it comes";
}

TEST(Sa94Record, FourFirmwaresHaveNoLayout) {
    for (int id = 0; id < 18; ++id) {
        const bool none = id == 1 || id == 2 || id == 8 || id == 13;
        EXPECT_EQ(find_layout(HOURLY_DB, id) == nullptr, none) << id;
        EXPECT_EQ(find_layout(DAILY_DB, id) == nullptr, none) << id;
    }
}

TEST(Sa94Record, AnEventHasItsCodeAndWhetherItStarted) {
    for (const int byte : {0x00, 0x05, 0x7F, 0x80, 0x85, 0xFF}) {
        const auto bytes = Sa94Bytes(8).put(0, {static_cast<std::uint8_t>(byte)}).date(2, 3, 24).clock(8, 15, 30);
        const SA94Event event = sa94::decode_event(bytes.bytes());
        EXPECT_EQ(event.code, byte & 0x7F);
        EXPECT_EQ(event.started, byte < 0x80);
        EXPECT_EQ(event.tm.tm_mday * 1000000 + event.tm.tm_hour * 10000 + event.tm.tm_min * 100 + event.tm.tm_sec,
                  2081530);
    }
}

}  // namespace
