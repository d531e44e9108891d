#include "support/modbus_scene.h"

#include <numeric>

namespace {

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

HCD_VISTmodbus& ModbusStand::start_driver(std::uint32_t serial) {
    driver = std::make_unique<HCD_VISTmodbus>(Uuid);
    driver->take_settings(settings_for(serial));
    driver->set_tty_fd(open_line(Port, LineOfVistModbus, driver->settings().tc_baud, driver->settings().tc_parity));
    return *driver;
}

void ModbusStand::leave_record(std::time_t time, int n) {
    for (const char* name : {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"}) {
        leave_staged(name, stored_line(time, 192, 1) + "\n", n);
    }
}

void ModbusStand::leave_header(std::time_t time, int n) {
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        leave_staged(name, stored_line(time, 192, 1) + "\n", n);
    }
}

Texts ModbusStand::asked() const {
    Texts all;
    for (const auto& exchange : machine.exchanges()) all.push_back(what_is_asked(exchange.request));
    return all;
}
