// A VIST meter on Modbus whose registers and archive files may hold anything: every decoder on any block, and whole
// passes.
//
// Input: a byte of scene (1 summer time). Then, as long as bytes are left, a byte for an operation
// (see operate) and what it needs. A block is told by a byte for the count of its words and the words; decoders get it
// with and without the zeros that stand behind it in the area of an answer. Passes go over the line of modbus_line.h,
// and end with the input.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "modbus_line.h"
#include "vist_line.h"

namespace {

using namespace vist_modbus;

constexpr std::size_t DataBytes = sizeof(VistModbusLink::Answer) - 2;
constexpr int LongestRecord = 54;
constexpr std::size_t MostFields = 21;
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

std::vector<std::uint8_t> block(FuzzInput& input) {
    const auto given = input.bytes(2U * input.byte());
    return {given.begin(), given.end()};
}

/// A record of any mask, whose sum is right when the byte before it is odd.
void decode_any_record(FuzzInput& input) {
    std::vector<std::uint8_t> head(70);
    const std::uint32_t mask = input.word();
    for (std::size_t i = 0; i < 4; ++i) head[8 + i] = static_cast<std::uint8_t>(mask >> (24 - 8 * i));
    const ArchiveHeader header = decode_header(head);
    expect(header.arch_mask == mask && header.arch_record_size <= LongestRecord, "a header tells of its records");
    const bool right = input.byte() % 2 != 0;
    auto data = block(input);
    data.resize(DataBytes);
    if (right) data[2] = checksum(Bytes(data).subspan(3, static_cast<std::size_t>(header.arch_record_size) - 1));
    const ArchiveRecord record = decode_record(data, header);
    expect(record.sum == record.crc || !right, "a record with a right sum is taken");
    expect(record.values.size() <= MostFields, "a record has no more values than fields");
}

std::size_t decode_block(Bytes data, char kind, int system) {
    return decode_main_config(data).model.size() + decode_tc_specs(data).limits.size() +
           decode_archive_specs(data, system).hasV.size() + decode_array16(data, kind).size() +
           decode_array32(data, kind, decode_words(data), {true, false, true}).size() +
           decode_record(data, decode_header(data)).values.size();
}

void decode_any_block(FuzzInput& input) {
    const std::uint8_t chosen = input.byte();
    const auto kind = static_cast<char>(chosen);
    auto data = block(input);
    const std::size_t cut = decode_block(data, kind, chosen % HeatSystems);
    data.resize(std::max(data.size(), DataBytes));
    expect(decode_block(data, kind, chosen % HeatSystems) == cut, "zeros behind a block change nothing");
}

void operate(HCD_VISTmodbus& driver, FuzzInput& input) {
    switch (input.byte() % 12) {
        case 7:
        case 8:
            return decode_any_record(input);
        case 9:
        case 10:
            driver.get_archive(input.byte() % HeatSystems);
            return;
        case 11:
            gateway().sleep(601);
            return driver.run_main();
        default:
            return decode_any_block(input);
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
        while (!input.empty()) operate(driver, input);
    } catch (const RunEnded&) {
    }
    check_vist_files();
    empty_directories();
    return 0;
}
