// One row of a table with its tries, and a whole table: when a meter counts as connected, what the log tells, and when
// nothing is decoded.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

constexpr const char* Clock = "Текущие Дата и Время прибора";

class ModbusRequests : public ModbusStand {
  protected:
    ModbusRequests() { machine.connect(Port, meter); }
    int send(const ModbusRequest& row, int system = 0, bool range = true) {
        int length = 0;
        quietly([&] { length = link.send_modbus_request(line, row, area, system, range); });
        return length;
    }
    bool batch(std::span<const ModbusRequest> rows) {
        bool came = false;
        const auto process = [this](const ModbusRequest& row, Bytes /*data*/) { processed.emplace_back(row.name); };
        quietly([&] { came = link.request_batch(line, rows, 0, true, process); });
        return came;
    }
    std::string fd() const { return std::to_string(line.fd); }

    const ModbusRequest& clock = reqValues[0];
    sim::ModbusVistMeter meter{{.serial = Serial}};
    const std::unique_ptr<UniLog> own_log = open_meter_log(Uuid, "txt");
    const VistModbusLink link{own_log.get(), [this](bool works) { is_connected = works; }};
    ModbusLine line{.fd = open_line(Port, LineOfVistModbus, 3, 2), .slave = Serial, .use_pause_flag = false};
    std::optional<bool> is_connected;
    Texts processed;
    VistModbusLink::Answer area{};
};

// ---- one row

TEST_F(ModbusRequests, ARowLeavesFunctionAndByteCountTurnedRoundAndTheDataAsOnTheLine) {
    area.fill(0x77);
    EXPECT_EQ(send(clock), 8);
    const std::vector<int> begin(area.begin(), area.begin() + 10);
    EXPECT_EQ(begin, (std::vector<int>{6, 4, 10, 5, 0, 2, 3, 24, 0, 0}));
    EXPECT_EQ(std::count(area.begin() + 8, area.end(), 0), 504) << "the rest is cleared";
}

TEST_F(ModbusRequests, TheLogTellsOfTheQuestionTheAnswerAndTheTries) {
    send(clock);
    EXPECT_EQ(log(), (Texts{
                         std::string("Sending req '") + Clock + "'...",
                         "Received: 8 bytes (6 awaiting).",
                         "Dumping packet:",
                         "  -2:0x06 -1:0x04 0:0x0a 1:0x05 2:0x00 3:0x02 4:0x03 5:0x18 ",
                         "Dumping packet done.",
                         "retries = 1, VISTMaxErrors = 30",
                     }));
}

TEST_F(ModbusRequests, ADumpHasSixteenBytesToALine) {
    const ModbusRequest row{"row", read_holding, 8, {52, 0, 0}, ModbusProcess::None, 0};  // a part of the first tubes
    EXPECT_EQ(send(row), 18);
    const auto lines = log();
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_TRUE(lines[3].starts_with("  -2:0x10 -1:0x03 0:0x00 1:0x25 ")) << lines[3];
    EXPECT_TRUE(lines[3].ends_with(" 12:0x14 13:0x00 ")) << lines[3];
    EXPECT_EQ(lines[4], "  14:0x32 15:0x00 ");
    EXPECT_EQ(lines[5], "Dumping packet done.");
}

TEST_F(ModbusRequests, ASilentMeterIsAskedThirtyTimesIn18Seconds) {
    machine.disconnect_all(Port);
    EXPECT_EQ(send(clock), -1);
    EXPECT_EQ(machine.exchanges().size(), 30U);
    EXPECT_NEAR(elapsed(), 18.0, 0.5);
    EXPECT_EQ(logged(std::string("Sending req '") + Clock + "'..."), 1);
    EXPECT_EQ(logged("Received: -1 bytes (6 awaiting)."), 30);
    EXPECT_EQ(logged("Dumping packet:"), 30);
    EXPECT_EQ(logged("Dumping packet done."), 30);
    EXPECT_EQ(log().back(), "retries = 30, VISTMaxErrors = 30");
    EXPECT_EQ(is_connected, false);
}

TEST_F(ModbusRequests, AnAnswerAtTheThirtiethTryIsUsedButTheMeterIsNotConnected) {
    meter.misbehave_next(29, sim::modbus_wrong_crc());
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(log().back(), "retries = 30, VISTMaxErrors = 30");
    EXPECT_EQ(is_connected, false);
}

TEST_F(ModbusRequests, AnAnswerAtTheTwentyNinthTryConnectsTheMeter) {
    meter.misbehave_next(28, sim::modbus_wrong_crc());
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(log().back(), "retries = 29, VISTMaxErrors = 30");
    EXPECT_EQ(is_connected, true);
}

TEST_F(ModbusRequests, AnExceptionIsAFailedTryWhateverItsCode) {
    for (const std::uint8_t code : {1, 2, 3, 4, 6}) meter.misbehave_next(1, sim::modbus_exception(code));
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(logged("Received: -1 bytes (6 awaiting)."), 5);
    EXPECT_EQ(logged("retries = 6, VISTMaxErrors = 30"), 1);
    EXPECT_LT(elapsed(), 0.5) << "no time-out is waited for";
}

TEST_F(ModbusRequests, AFailedAnswerOfEachKindIsOneTry) {
    const std::vector<sim::ModbusFault> faults = {
        sim::modbus_silence(),       sim::modbus_wrong_crc(),          sim::modbus_cut(5),
        sim::modbus_wrong_slave(18), sim::modbus_wrong_function(0x84), sim::modbus_wrong_function(3),
        sim::modbus_byte_count(251),
    };
    for (const auto& fault : faults) meter.misbehave_next(1, fault);
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(logged("Received: -1 bytes (6 awaiting)."), static_cast<int>(faults.size()));
    EXPECT_EQ(meter.faults_made(), faults.size());
}

TEST_F(ModbusRequests, NoiseBeforeAnAnswerCostsNoTry) {
    meter.misbehave_next(1, sim::modbus_noise({0x00, 0x12}));
    meter.misbehave_next(1, sim::modbus_pieces());
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(logged("retries = 1, VISTMaxErrors = 30"), 2);
}

TEST_F(ModbusRequests, ALateAnswerIsHeardInTheNextTry) {
    meter.misbehave_next(1, sim::modbus_slow(0.7));
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(logged("retries = 2, VISTMaxErrors = 30"), 1);
}

TEST_F(ModbusRequests, OfASlaveNumberTheLowByteIsTheMetersAddress) {
    sim::ModbusVistMeter other({.serial = 300});
    machine.connect(Port, other);
    line.slave = 300;
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(machine.exchanges().back().request[0], 44);
    EXPECT_EQ(meter.requests(), 0U);
}

TEST_F(ModbusRequests, WithoutARangeTheCountGoesAsItStands) {
    ModbusRequest row = reqArchiveRecordFile;
    row.count = 7;
    row.record_size = 20;
    send(row, 0, false);
    EXPECT_EQ(asked(), Texts{"20:0/7 (20)"});
    machine.forget_exchanges();
    send({"row", read_input, 519, {514, 0, 0}, ModbusProcess::None, 0}, 0, false);
    EXPECT_EQ(asked(), Texts{"4:514+6"}) << "it is taken for the last register";
}

TEST_F(ModbusRequests, WithARangeAHeaderHasItsLengthInEachFile) {
    meter.swap_for({.serial = Serial, .systems = {{}, {}, {}}});
    for (const int s : {0, 1, 2}) send(reqArchiveHeaderFile, s);
    EXPECT_EQ(asked(), (Texts{"20:0/0 (48)", "20:1/0 (48)", "20:2/0 (48)"}));
}

TEST_F(ModbusRequests, APortThatIsNotOpenCostsThirtyTriesButNoTime) {
    line.fd = -1;
    EXPECT_EQ(send(clock), -1);
    EXPECT_EQ(log().back(), "retries = 30, VISTMaxErrors = 30");
    EXPECT_LT(elapsed(), 0.1);
    EXPECT_EQ(is_connected, false);
}

// ---- pause flags

TEST_F(ModbusRequests, AHeldBusIsLookedAtEveryTenSeconds) {
    line.use_pause_flag = true;
    scene.touch("/tmp/pause_tvk");
    machine.at(25, [this] { scene.remove("/tmp/pause_tvk"); });
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(machine.sleeps(), (std::vector<unsigned>{10, 10, 10}));
}

TEST_F(ModbusRequests, ADriverThatIsNotToBeHeldBackGoesOn) {
    scene.touch("/tmp/pause_tvk");
    EXPECT_EQ(send(clock), 8);
    EXPECT_TRUE(machine.sleeps().empty());
}

TEST_F(ModbusRequests, AFlagBetweenTwoTriesHoldsTheNextOne) {
    meter.misbehave_next(3, sim::modbus_silence());
    machine.at(1, [this] { scene.touch("/tmp/pause_tvk_all"); });
    machine.at(5, [this] { scene.remove("/tmp/pause_tvk_all"); });
    EXPECT_EQ(send(clock), 8);
    EXPECT_EQ(machine.sleeps(), std::vector<unsigned>{10});
}

// ---- a whole table

template <int Length>
int read_of(int /*fd*/, std::span<std::uint8_t> /*answer*/, int /*slave*/, int /*first*/, int /*last*/, int timeout,
            int /*record_size*/) {
    EXPECT_EQ(timeout, 600);
    return Length;
}

template <int Length>
ModbusRequest row_of() {
    return {"row", read_of<Length>, 3, {0, 0, 0}, ModbusProcess::DateTime, 0};
}

TEST_F(ModbusRequests, AnAnswerOfLessThanThreeBytesIsNotTriedAgainButFailsItsRow) {
    for (const ModbusRequest& row : {row_of<0>(), row_of<1>(), row_of<2>()}) {
        clear_log();
        EXPECT_FALSE(batch({&row, 1}));
        EXPECT_TRUE(logged_in_order({"retries = 1, VISTMaxErrors = 30", "FAIL on 0 request. Over. fd = " + fd()}));
        EXPECT_EQ(logged("Processing 'row'"), 0);
        EXPECT_EQ(is_connected, true);
    }
    const ModbusRequest row = row_of<3>();
    EXPECT_TRUE(batch({&row, 1}));
    EXPECT_EQ(logged("Processing 'row'"), 1);
}

TEST_F(ModbusRequests, RowsAreDecodedAfterAllHaveCome) {
    EXPECT_TRUE(batch(reqValues));
    Texts expected;
    for (const auto& row : reqValues) expected.push_back(std::string("Sending req '") + row.name + "'...");
    for (const auto& row : reqValues) expected.push_back(std::string("Processing '") + row.name + "'");
    EXPECT_TRUE(logged_in_order(expected));
    EXPECT_EQ(logged_start("FAIL on "), 0);
}

TEST_F(ModbusRequests, ARowThatNobodyUnderstandsIsSkipped) {
    const std::vector<ModbusRequest> rows = {clock, {"mute", read_input, 1, {1078, 0, 0}, ModbusProcess::None, 0}};
    EXPECT_TRUE(batch(rows));
    EXPECT_TRUE(logged_in_order({std::string("Processing '") + Clock + "'", "SKIP on 1 request."}));
    EXPECT_EQ(processed, Texts{Clock});
}

TEST_F(ModbusRequests, ARowThatFailsLeavesTheWholeTableUndecoded) {
    meter.misbehave_next(30, sim::modbus_wrong_crc().on({.function = 4, .address = 518}));
    EXPECT_FALSE(batch(reqValues));
    EXPECT_EQ(logged("FAIL on 2 request. Over. fd = " + fd()), 1);
    EXPECT_EQ(logged_start("FAIL on "), 1);
    EXPECT_TRUE(processed.empty());
    for (const auto& row : reqValues) {
        EXPECT_EQ(meter.requests({.function = 4, .address = row.address[0]}), row.address[0] == 518 ? 30U : 1U);
    }
    EXPECT_EQ(is_connected, true) << "the rows behind it worked";
}

}  // namespace
