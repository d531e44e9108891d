// A VIST meter on Modbus whose registers and archive files may hold anything: every decoder on any block, in any order,
// and whole passes.
//
// Input: a byte of scene (1 summer time). Then, as long as bytes are left, a byte for an operation
// (see operate) and what it needs. A block is told by a byte for the count of its words and the words; what is behind
// them is zero, as in the area of an answer. Passes go over the line of modbus_line.h, and end with the input.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "core/local_time.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "modbus_line.h"
#include "vist_line.h"

namespace {

constexpr std::size_t DataBytes = HCD_VISTmodbus::AnswerBytes - 2;
constexpr int LongestRecord = 54;
constexpr int MostExchanges = 200;

struct RunEnded {};

class EndingLine final : public ModbusScriptedLine {
  public:
    using ModbusScriptedLine::ModbusScriptedLine;

    ssize_t write_port(int fd, std::span<const std::uint8_t> request) override {
        if (exchanges_left_-- == 0) throw RunEnded{};
        return ModbusScriptedLine::write_port(fd, request);
    }

  protected:
    void at_end() override { throw RunEnded{}; }

  private:
    int exchanges_left_ = MostExchanges;
};

std::array<std::uint8_t, DataBytes> block(FuzzInput& input) {
    std::array<std::uint8_t, DataBytes> data{};
    const auto given = input.bytes(2U * input.byte());
    std::copy(given.begin(), given.end(), data.begin());
    return data;
}

std::tm moment(FuzzInput& input) {
    return local_time(static_cast<std::int32_t>(input.word()));
}

/// A record of any mask, at any time, whose sum is right when the byte before it is odd.
void decode_record(HCD_VISTmodbus& driver, FuzzInput& input) {
    driver.arch_mask = input.word();
    driver.record_tm = moment(input);
    arch_record_size = input.byte() % (LongestRecord + 1);
    const bool right = input.byte() % 2 != 0;
    auto data = block(input);
    if (right) {
        data[2] = checksum(Bytes(data).subspan(3, static_cast<std::size_t>(std::max(arch_record_size, 1) - 1)));
    }
    driver.process_archive_record(data, reqArchiveRecordFile);
    expect(driver.record_ok || !right, "a record with a right sum is taken");
}

void decode_block(HCD_VISTmodbus& driver, FuzzInput& input, int which) {
    ModbusRequest row = reqValues[input.byte() % reqValues.size()];
    if (input.byte() % 4 == 0) row.kind = static_cast<char>(input.byte());
    using Process = ModbusProcess;
    constexpr std::array<Process, 7> Decoders = {
        &HCD_VISTmodbus::process_main_config,   &HCD_VISTmodbus::process_tc_specs,
        &HCD_VISTmodbus::process_datetime,      &HCD_VISTmodbus::process_array16,
        &HCD_VISTmodbus::process_array32,       &HCD_VISTmodbus::process_archive_specs,
        &HCD_VISTmodbus::process_archive_header};
    (driver.*Decoders[static_cast<std::size_t>(which) % Decoders.size()])(block(input), row);
}

void operate(HCD_VISTmodbus& driver, FuzzInput& input) {
    const int operation = input.byte() % 12;
    switch (operation) {
        case 7:
        case 8:
            decode_record(driver, input);
            break;
        case 9:
            driver.selected_subsystem = input.byte() % HCD_VISTmodbus::HeatSystems;
            break;
        case 10:
            driver.get_archive();
            break;
        case 11:
            gateway().sleep(601);
            driver.run_main();
            break;
        default:
            decode_block(driver, input, operation);
            break;
    }
}

void check(const HCD_VISTmodbus& driver) {
    expect(driver.virtdev_count >= 0 && driver.virtdev_count <= HCD_VISTmodbus::HeatSystems, "three systems at most");
    expect(driver.selected_subsystem >= 0 && driver.selected_subsystem < HCD_VISTmodbus::HeatSystems, "one of three");
    for (const std::time_t time : driver.last_request_date) {
        expect(time >= -1 - 0x7FFFFFFFL && time <= 0x7FFFFFFF, "a date fits 32 bits");
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    // A log that cannot be opened is not written: the words are formed all the same.
    std::filesystem::create_directories(full_root() + "/tmp/uni_logs." + FuzzUuid + ".txt");
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t scene = input.byte();
    ::setenv("TZ", (scene & 1) != 0 ? "EET-2EEST,M3.5.0/3,M10.5.0/4" : "UTC0", 1);
    ::tzset();
    // A pass that is whole is handed over, so there must be a staging directory.
    EndingLine line(full_root(), input);
    HCD_VISTmodbus driver(FuzzUuid);
    driver.take_settings({.tc_sernum = 17});
    driver.set_tty_fd(ModbusScriptedLine::Descriptor);
    try {
        while (!input.empty()) {
            operate(driver, input);
            check(driver);
        }
    } catch (const RunEnded&) {
        check(driver);
    }
    check_vist_files();
    empty_directories();
    return 0;
}
