#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "desk_meter.h"
#include "sa94_asking.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)
using sim::make_desk_meter;

class SimSa94Desk : public Sa94Test {
  protected:
    static std::string dump(const sim::DeskMeter& desk) {
        std::ostringstream out;
        desk.made.dump(out, desk.uuid);
        return out.str();
    }
    static ByteVector ask(sim::DeskMeter& desk, const ByteVector& request) {
        const Answer answer = desk.made.meter->hear(request, Eleven);
        return answer.empty() ? ByteVector{} : answer.front().bytes;
    }
    const sim::DeskRules rules{.now = Eleven, .line = "/tmp/line"};
};

TEST_F(SimSa94Desk, SerialNumberIsTheAddressAndTheManufacturerIsToldToTheService) {
    sim::DeskMeter desk = make_desk_meter("type=sa94,serial=74565,status=149,firmware=M300 1.0", 1, rules);
    EXPECT_EQ(desk.settings.serial, 0x12345U);
    EXPECT_EQ(desk.settings.manufacturer, "sa-94-2m");
    EXPECT_EQ(ask(desk, Connect12345), ByteVector{0x95});
    EXPECT_EQ(part(ask(desk, {0xA0, 0x02}), 1, 4), (ByteVector{'M', '3', '0', '0'}));
}

TEST_F(SimSa94Desk, WideSerialNumberLosesItsTop) {
    sim::DeskMeter desk = make_desk_meter("type=sa94,serial=12345678", 1, rules);  // BC614E
    EXPECT_EQ(ask(desk, {0xF1, 0x42, 0x4E}).size(), 1U);                           // C614E
}

TEST_F(SimSa94Desk, HasAPastOfSoManyHours) {
    const sim::DeskMeter desk = make_desk_meter("uuid=b,type=sa94,firmware=200,hours=12,events=2", 1, rules);
    const std::string text = dump(desk);
    const auto count = [&](const std::string& word) {
        std::size_t rows = 0;
        for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++rows;
        return rows;
    };
    EXPECT_EQ(count("b 1 line A5 "), 12U);
    EXPECT_EQ(count("b 1 line _A48 "), 1U);
    EXPECT_EQ(count("b 1 line _A57 "), 2U);
    EXPECT_NE(text.find("b 1 line A5 1709334000 192 "), std::string::npos);  // 2024-03-01 23:00
}

TEST_F(SimSa94Desk, PresentValuesMayBeGiven) {
    sim::DeskMeter desk = make_desk_meter("type=sa94,serial=74565,firmware=M451,T1=1,p1=0.5", 1, rules);
    ask(desk, Connect12345);
    EXPECT_EQ(ask(desk, {0x82}), (ByteVector{0x81, 0x00, 0x00, 0x00}));
    EXPECT_EQ(ask(desk, {0x88}), (ByteVector{0x80, 0x00, 0x00, 0x00}));
}

TEST_F(SimSa94Desk, WordsThatMakeNoMeterAreRefused) {
    for (const char* words : {"type=sa94,status=256", "type=sa94,turning=over", "type=sa94,hours=-1",
                              "type=sa94,firmware=M300,P1=1", "type=sa94,firmware=a text that is too long"}) {
        EXPECT_THROW(make_desk_meter(words, 1, rules), std::invalid_argument) << words;
    }
}

}  // namespace
