#include "drivers/vist_modbus/modbus_exchange.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "core/gateway.h"
#include "driver/leds.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace {

constexpr std::size_t ReceiveBytes = 300;

/// Reads until the parser is done, the time is over or the area is full. Bytes received; -1 when nothing came.
int receive(int fd, ModbusParser& parser, int timeout) {
    std::array<std::uint8_t, ReceiveBytes> area{};
    std::size_t received = 0;
    const auto so_far = [&received] { return received > 0 ? static_cast<int>(received) : -1; };
    const std::int64_t deadline = gateway().steady_microseconds() + std::int64_t{timeout} * 1000;
    while (received < area.size()) {
        const std::int64_t left = std::max<std::int64_t>(deadline - gateway().steady_microseconds(), 0);
        const int ready = gateway().wait_readable(fd, left);
        if (ready == 0) {
            if (gateway().steady_microseconds() < deadline) continue;  // woken early
            return so_far();
        }
        if (ready < 0) {
            if (errno == EINTR) continue;
            return so_far();
        }
        const ssize_t got = gateway().read_port(fd, std::span(area).subspan(received));
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (got <= 0) return so_far();
        led_rx_pulse();
        const Bytes bytes = Bytes(area).subspan(received, static_cast<std::size_t>(got));
        received += bytes.size();
        if (parser.take(bytes)) return so_far();
    }
    return so_far();
}

/// "Send: 0x11 0x03 "
std::string sent_text(Bytes frame) {
    constexpr const char* Digits = "0123456789ABCDEF";
    std::string text = "Send: ";
    for (const std::uint8_t byte : frame) text.append({'0', 'x', Digits[byte >> 4], Digits[byte & 0x0F], ' '});
    return text;
}

int ask(int fd, const std::vector<std::uint8_t>& frame, std::span<std::uint8_t> answer, int slave,
        std::uint8_t function, int timeout) {
    gateway().flush_port(fd);
    if (function == ReadHolding) {
        std::puts(sent_text(frame).c_str());
    }
    if (gateway().write_port(fd, frame) != static_cast<ssize_t>(frame.size())) return -1;
    led_tx_pulse();
    ModbusParser parser(answer, slave, function);
    const int received = receive(fd, parser, timeout);
    gateway().end_exchange(fd);
    if (!parser.complete()) return -1;
    return received < 1 ? received : parser.length();
}

}  // namespace

int read_holding(int fd, std::span<std::uint8_t> answer, int slave, int first, int last, int timeout,
                 int /*record_size*/) {
    return ask(fd, register_frame(slave, ReadHolding, first, last - first + 1), answer, slave, ReadHolding, timeout);
}

int read_input(int fd, std::span<std::uint8_t> answer, int slave, int first, int last, int timeout,
               int /*record_size*/) {
    return ask(fd, register_frame(slave, ReadInput, first, last - first + 1), answer, slave, ReadInput, timeout);
}

int read_archive_record(int fd, std::span<std::uint8_t> answer, int slave, int file, int record, int timeout,
                        int record_size) {
    return ask(fd, record_frame(slave, file, record, record_size), answer, slave, ReadFileRecord, timeout);
}

int read_archive_header(int fd, std::span<std::uint8_t> answer, int slave, int file, int last, int timeout,
                        int /*record_size*/) {
    return ask(fd, record_frame(slave, file, 0, last - file + 1), answer, slave, ReadFileRecord, timeout);
}
