#include "support/modbus_scene.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <sstream>

#include "config/config_client.h"
#include "driver/line_settings.h"
#include "support/child.h"

namespace {

constexpr std::size_t PrefixLength = 24;  // "DD/MM/YY hh:mm:ss.mmm : "
constexpr int SpeedCode9600 = 3;
constexpr int NoParity = 2;

bool has_prefix(const std::string& line) {
    return line.size() >= PrefixLength && line[2] == '/' && line.compare(PrefixLength - 3, 3, " : ") == 0;
}

std::string what_is_asked(const sim::ByteVector& frame) {
    const auto word = [&frame](std::size_t at) { return std::to_string(frame.at(at) << 8U | frame.at(at + 1)); };
    const std::string function = std::to_string(frame.at(1)) + ":";
    if (frame[1] == 20) return function + word(4) + "/" + word(6) + " (" + word(8) + ")";
    return function + word(2) + "+" + word(4);
}

}  // namespace

namespace modbus_bytes {

sim::ByteVector answer(int slave, int function, const sim::ByteVector& data) {
    sim::ByteVector bytes = {static_cast<std::uint8_t>(slave), static_cast<std::uint8_t>(function),
                             static_cast<std::uint8_t>(data.size())};
    bytes.insert(bytes.end(), data.begin(), data.end());
    return sim::modbus_sealed(std::move(bytes));
}

sim::ByteVector refusal(int slave, int function, int code) {
    return sim::modbus_sealed({static_cast<std::uint8_t>(slave), static_cast<std::uint8_t>(function | 0x80),
                               static_cast<std::uint8_t>(code)});
}

sim::ByteVector joined(sim::ByteVector first, const sim::ByteVector& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace modbus_bytes

ModbusBlock& ModbusBlock::n(std::size_t at, std::uint64_t value, int width) {
    for (int k = 0; k < width; ++k) {
        bytes_.at(at + static_cast<std::size_t>(k)) = static_cast<std::uint8_t>(value >> 8 * (width - 1 - k));
    }
    return *this;
}

ModbusBlock& ModbusBlock::text(std::size_t at, const std::string& text) {
    for (const char letter : text) bytes_.at(at++) = static_cast<std::uint8_t>(letter);
    return *this;
}

ModbusBlock& ModbusBlock::sum(std::size_t at, std::size_t count) {
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at) + 1;
    bytes_.at(at) = static_cast<std::uint8_t>(std::accumulate(begin, begin + static_cast<std::ptrdiff_t>(count), 0));
    return *this;
}

std::string modbus_line(std::time_t time, int quality, double value) {
    char text[80];
    std::snprintf(text, sizeof(text), "%ld,%d,%f", static_cast<long>(time), quality, value);
    return text;
}

ModbusBench::ModbusBench(const std::string& start, const std::string& zone) : scene(start, zone) {
    scene.make_tree(Uuid);
    machine.add_device(Port);
    start_ = machine.seconds();
}

HCD_VISTmodbus& ModbusBench::start_driver(std::uint32_t serial) {
    driver = std::make_unique<HCD_VISTmodbus>(Uuid);
    driver->tc_sernum = serial;
    driver->tc_baud = SpeedCode9600;
    driver->tc_parity = NoParity;
    driver->tty_fd = open_line(Port, LineOfVistModbus, SpeedCode9600, NoParity);
    return *driver;
}

void ModbusBench::quietly(const std::function<void()>& work) {
    stdout_of(work);
}

std::string ModbusBench::item(const std::string& name, int n, const std::string& uuid) const {
    std::string text = scene.item(uuid, n, name).value_or("(none)\n");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string ModbusBench::connected() const {
    std::string all;
    for (int n = 1; n <= 6; ++n) all += item("Connected", n);
    return all;
}

std::string ModbusBench::staged(const std::string& name, int n) const {
    return scene.archive(Uuid, n, name, "tmp_archives").value_or("");
}

ModbusLineCounts ModbusBench::lines_in(const std::string& directory, int n) const {
    ModbusLineCounts counts;
    for (const std::string& name : scene.list(std::string("/mnt/storage/m1/") + std::to_string(n) + "/" + directory)) {
        std::istringstream stream(scene.archive(Uuid, n, name, directory).value_or(""));
        for (std::string line; std::getline(stream, line);) ++counts[name][line];
    }
    return counts;
}

void ModbusBench::leave_staged(const std::string& name, const std::string& text, int n) {
    scene.write("/mnt/storage/m1/" + std::to_string(n) + "/tmp_archives/" + name, text);
}

void ModbusBench::leave_record(std::time_t time, int n) {
    for (const char* name : {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"}) {
        leave_staged(name, modbus_line(time, 192, 1) + "\n", n);
    }
}

void ModbusBench::leave_header(std::time_t time, int n) {
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        leave_staged(name, modbus_line(time, 192, 1) + "\n", n);
    }
}

ModbusTexts ModbusBench::log() const {
    std::string text = scene.file("/tmp/uni_logs.m1.txt").value_or("");
    std::erase(text, '\0');
    ModbusTexts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(has_prefix(line) ? line.substr(PrefixLength) : line);
    }
    return lines;
}

int ModbusBench::logged(const std::string& line) const {
    const auto lines = log();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

int ModbusBench::logged_start(const std::string& line) const {
    const auto lines = log();
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&line](const std::string& each) { return each.starts_with(line); }));
}

::testing::AssertionResult ModbusBench::logged_in_order(const ModbusTexts& lines) const {
    const auto all = log();
    auto from = all.begin();
    for (const std::string& line : lines) {
        from = std::find(from, all.end(), line);
        if (from == all.end()) return ::testing::AssertionFailure() << "not there, or too early: " << line;
        ++from;
    }
    return ::testing::AssertionSuccess();
}

ModbusTexts ModbusBench::asked() const {
    ModbusTexts all;
    for (const auto& exchange : machine.exchanges()) all.push_back(what_is_asked(exchange.request));
    return all;
}

ModbusDaemon::ModbusDaemon(const std::vector<std::string>& uuids) : base(uuids) {
    read_driver_config(base);
    base.open_tty();
}
