// The stored records of every firmware, byte for byte: which file each number goes to, in which unit and at what time.

#include <bit>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

/// One number of a record: a float of four bytes or a word of two, and what is done with it: multiplied, or divided.
struct Number {
    std::size_t at;
    char form;  ///< 'F' or 'W'
    std::string file;
    char operation = '*';
    float by = 1.0F;
};
using Numbers = std::vector<Number>;

const float Hundredth = std::bit_cast<float>(0x3C23D70AU);
const float Gcal = std::bit_cast<float>(0x3F5C1ECDU);
const float Atmospheres = std::bit_cast<float>(0x41232793U);

// What many records have in common.
const Numbers HourOfSmall = {
    {6, 'W', "A3", '/', 3600},
    {8, 'F', "A12"},
    {12, 'F', "A14"},
    {16, 'W', "_A20", '*', Hundredth},
    {18, 'W', "_A21", '*', Hundredth},
    {20, 'W', "A22", '*', Hundredth},
    {22, 'W', "A26", '/', 1800},
    {24, 'W', "A25", '/', 1800},
    {26, 'W', "A24", '/', 1800},
    {28, 'F', "A1"},
};
const Numbers DayOfSmall = {
    {4, 'F', "A32"},
    {8, 'F', "A40"},
    {12, 'F', "A42"},
    {16, 'W', "_A48", '*', Hundredth},
    {18, 'W', "_A49", '*', Hundredth},
    {20, 'W', "A50", '*', Hundredth},
    {22, 'W', "A54", '/', 1800},
    {24, 'W', "A53", '/', 1800},
    {26, 'W', "A52", '/', 1800},
    {28, 'F', "A29"},
};

Numbers with(Numbers numbers, const Numbers& more) {
    numbers.insert(numbers.end(), more.begin(), more.end());
    return numbers;
}

/// `numbers` without those at these places.
Numbers without(const Numbers& numbers, const std::set<std::size_t>& places) {
    Numbers rest;
    for (const Number& each : numbers) {
        if (!places.contains(each.at)) rest.push_back(each);
    }
    return rest;
}

const Numbers HourOf4 = with(HourOfSmall, {{32, 'F', "A17", '*', Atmospheres},
                                           {36, 'F', "A18", '*', Atmospheres},
                                           {40, 'F', "A5"},
                                           {44, 'F', "A7"},
                                           {48, 'F', "A6"},
                                           {52, 'F', "A8"},
                                           {56, 'F', "A4"}});
const Numbers HourOf6 = {
    {16, 'F', "_A20"},
    {20, 'F', "_A21"},
    {24, 'F', "A22"},
    {32, 'F', "A17", '*', Atmospheres},
    {36, 'F', "A18", '*', Atmospheres},
    {40, 'F', "A5"},
    {44, 'F', "A7"},
    {48, 'F', "A11"},
    {52, 'F', "A13"},
    {56, 'F', "A3"},
    {60, 'F', "A2", '*', Gcal},
};
const Numbers HourOf14 = with(without(HourOfSmall, {6}), {{32, 'F', "A17", '*', Atmospheres},
                                                          {36, 'F', "A18", '*', Atmospheres},
                                                          {52, 'F', "p3"},
                                                          {56, 'F', "A4"},
                                                          {60, 'F', "A19"}});
const Numbers HourOf15 = with(without(HourOf14, {8, 12}), {{8, 'F', "p1"}, {12, 'F', "p2"}});

const std::map<int, Numbers> HourlyRecords = {
    {0, {{8, 'F', "A5"}, {12, 'F', "A7"}, {16, 'F', "_A20"}, {20, 'F', "_A21"}, {24, 'F', "A22"}}},
    {3, HourOfSmall},
    {4, HourOf4},
    {5,
     {{8, 'F', "A5"},
      {12, 'F', "A7"},
      {16, 'F', "_A20", '*', Hundredth},
      {20, 'F', "_A21", '*', Hundredth},
      {24, 'F', "A22", '*', Hundredth}}},
    {6, HourOf6},
    {7, HourOf6},
    {9, HourOf6},
    {10, HourOfSmall},
    {11, without(HourOf4, {40, 44})},
    {12, without(HourOf4, {40, 44})},
    {14, HourOf14},
    {15, HourOf15},
    {16, HourOf14},
    {17, HourOf15},
};

const Numbers DayOf4 =
    with(DayOfSmall,
         {{32, 'F', "A45", '*', Atmospheres}, {36, 'F', "A46", '*', Atmospheres}, {48, 'F', "A34"}, {52, 'F', "A36"}});
const Numbers DayOf6 = {
    {4, 'F', "A29", '*', Gcal},
    {16, 'F', "_A48"},
    {20, 'F', "_A49"},
    {24, 'F', "A50"},
    {32, 'F', "A45", '*', Atmospheres},
    {36, 'F', "A46", '*', Atmospheres},
    {40, 'F', "A34"},
    {44, 'F', "A36"},
    {48, 'F', "A40"},
    {52, 'F', "A42"},
    {56, 'F', "A32"},
};
const Numbers DayOf14 =
    with(DayOfSmall,
         {{32, 'F', "A45", '*', Atmospheres}, {36, 'F', "A46", '*', Atmospheres}, {52, 'F', "p3"}, {60, 'F', "A47"}});
const Numbers DayOf15 = with(without(DayOf14, {8, 12}), {{8, 'F', "p1"}, {12, 'F', "p2"}});

const std::map<int, Numbers> DailyRecords = {
    {0,
     {{4, 'F', "A29", '*', Gcal},
      {8, 'F', "A33"},
      {12, 'F', "A35"},
      {16, 'F', "_A48"},
      {20, 'F', "_A49"},
      {24, 'F', "A50"}}},
    {3, DayOfSmall},
    {4, DayOf4},
    {5, {{4, 'F', "A29", '*', Gcal}, {16, 'F', "_A48"}, {20, 'F', "_A49"}, {24, 'F', "A50"}}},
    {6, DayOf6},
    {7, DayOf6},
    {9, with(without(DayOf6, {40, 44, 48, 52, 56}),
             {{40, 'F', "A33"}, {44, 'F', "A35"}, {48, 'F', "A39"}, {52, 'F', "A41"}, {56, 'F', "A31"}})},
    {10, DayOfSmall},
    {11, DayOf4},
    {12, DayOf4},
    {14, DayOf14},
    {15, DayOf15},
    {16, DayOf14},
    {17, DayOf15},
};

// The totals, which are dated by the end of their hour or day.
const std::set<std::string> Totals = {"A1",  "A4",  "A6",  "A8",  "A10", "A12", "A14", "A16",
                                      "A29", "A32", "A34", "A36", "A38", "A40", "A42", "A44"};

struct Flow {
    const char* mass[2];  ///< hourly, daily
    const char* volume[2];
};
const std::map<std::string, Flow> Flows = {{"p1", {{"A12", "A40"}, {"A6", "A34"}}},
                                           {"p2", {{"A14", "A42"}, {"A8", "A36"}}},
                                           {"p3", {{"A16", "A44"}, {"A10", "A38"}}}};

/// The file of a number at this status of the meter.
std::string file_of(const Number& number, int type, int status) {
    const auto found = Flows.find(number.file);
    if (found == Flows.end()) return number.file;
    const bool mass = number.file == "p3" ? (status & 0x2A) != 0 : (status & 0x44) != 0x44;
    return mass ? found->second.mass[type] : found->second.volume[type];
}

using Files = std::map<std::string, std::string>;

constexpr std::time_t HourlyTime = 1709370000;  // 2024-03-02 09:00 UTC
constexpr std::time_t DailyTime = 1709251200;   // 2024-03-01 00:00 UTC

class Sa94Layouts : public Sa94Bench, public ::testing::WithParamInterface<int> {
  protected:
    Sa94Layouts() { identify(GetParam()); }

    std::size_t record_size() const { return driver->extended ? 64 : 32; }
    const Numbers* numbers(int type) const {
        const auto& records = type == 0 ? HourlyRecords : DailyRecords;
        const auto found = records.find(GetParam());
        return found == records.end() ? nullptr : &found->second;
    }

    static float bare(const Number& number) {
        return number.form == 'W' ? static_cast<float>(7001 + number.at) : 100.25F + static_cast<float>(number.at);
    }
    /// A record with a number of its own at each place, and what must not be read everywhere else.
    Sa94Bytes record(int type) const {
        Sa94Bytes bytes(record_size(), 0x5B);
        bytes.date(type == 0 ? 2 : 1, 3, 24);
        if (type == 0) bytes.hour(9);
        for (const Number& number : *numbers(type)) {
            if (number.form == 'W') {
                bytes.word(number.at, static_cast<unsigned>(bare(number)));
            } else {
                bytes.real(number.at, bare(number));
            }
        }
        return bytes;
    }
    /// The files that the record must become.
    Files expected(int type, int status) const {
        Files files;
        const std::time_t time = type == 0 ? HourlyTime : DailyTime;
        for (const Number& number : *numbers(type)) {
            const std::string file = file_of(number, type, status);
            const float value = number.operation == '/' ? bare(number) / number.by : bare(number) * number.by;
            const std::time_t shift = !Totals.contains(file) ? 0 : type == 0 ? 3600 : 86400;
            files[file] += line(time + shift, value);
            if (file == "A1") files["_hPrevE"] = text(value);
            if (file == "A29") files["_dPrevE"] = text(value);
        }
        return files;
    }
    static std::string text(double value) {
        char digits[64];
        std::snprintf(digits, sizeof(digits), "%f", value);
        return digits;
    }
    static std::string line(std::time_t time, double value) {
        return std::to_string(time) + ",192," + text(value) + "\n";
    }

    /// The files of a block whose first record is this one and whose others are erased.
    Files take(int type, const Sa94Bytes& bytes, int status) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        driver->status_byte = static_cast<std::uint8_t>(status);
        int position = 0;
        newest = 0;
        EXPECT_FALSE(driver->parseBlock(type, sa94_bytes::reply_of({bytes}), position, newest))
            << "the erased record is the end";
        Files files;
        for (const std::string& name : archive_names()) files[name] = archive(name);
        return files;
    }

    std::time_t newest = 0;
};

TEST_P(Sa94Layouts, EachNumberOfAnHourlyRecordGoesToItsFile) {
    if (numbers(0) == nullptr) return;
    for (const int status : {0x00, 0x02, 0x04, 0x40, 0x44, 0x28, 0x7F}) {
        EXPECT_EQ(take(0, record(0), status), expected(0, status)) << status;
        EXPECT_EQ(newest, HourlyTime);
    }
}

TEST_P(Sa94Layouts, EachNumberOfADailyRecordGoesToItsFile) {
    if (numbers(1) == nullptr) return;
    for (const int status : {0x00, 0x08, 0x04, 0x40, 0x44, 0x20, 0x7F}) {
        EXPECT_EQ(take(1, record(1), status), expected(1, status)) << status;
        EXPECT_EQ(newest, DailyTime);
    }
}

TEST_P(Sa94Layouts, WithoutAThirdTemperatureOnlyItsWordIsDropped) {
    driver->support_t3 = false;
    for (const int type : {0, 1}) {
        if (numbers(type) == nullptr) continue;
        Files files = expected(type, 0);
        for (const Number& number : *numbers(type)) {
            if (number.form == 'W' && (number.file == "A22" || number.file == "A50")) files.erase(number.file);
        }
        EXPECT_EQ(take(type, record(type), 0), files) << type;
    }
}

TEST_P(Sa94Layouts, WithoutARowNothingIsWrittenAndTheRunEnds) {
    for (const int type : {0, 1}) {
        if (numbers(type) != nullptr) continue;
        const Sa94Bytes bytes = Sa94Bytes(record_size(), 0x5B).date(2, 3, 24).hour(9);
        EXPECT_EQ(take(type, bytes, 0), Files{}) << type;
        EXPECT_EQ(newest, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Firmware, Sa94Layouts, ::testing::Range(0, 18), ::testing::PrintToStringParamName());

TEST(Sa94LayoutsOfNobody, FourFirmwaresHaveNoRecords) {
    for (int id = 0; id < 18; ++id) {
        const bool none = id == 1 || id == 2 || id == 8 || id == 13;
        EXPECT_EQ(HourlyRecords.contains(id), !none) << id;
        EXPECT_EQ(DailyRecords.contains(id), !none) << id;
    }
}

}  // namespace
