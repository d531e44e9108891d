#include "driver/exchange.h"

#include "core/files.h"
#include "core/gateway.h"
#include "driver/leds.h"

namespace {

constexpr unsigned PauseSeconds = 10;

/// Both routines' frame; `read` fills the buffer and returns how many bytes came.
template <typename Read>
int exchange(int fd, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause, Read read) {
    rx.assign(static_cast<std::size_t>(rx_max), 0);
    std::size_t received = 0;
    wait_for_pause_flags(pause);
    if (fd > 0 && gateway().write_port(fd, tx) == static_cast<ssize_t>(tx.size())) {
        led_tx_pulse();
        gateway().drain_port(fd);
        received = read(std::span(rx));
    }
    rx.resize(received);
    return 0;
}

}  // namespace

void wait_for_pause_flags(const bool& pause) {
    while (exists("/tmp/pause_tvk") && pause) gateway().sleep(PauseSeconds);
    while (exists("/tmp/pause_tvk_all")) gateway().sleep(PauseSeconds);
}

int exchange_read_all(int fd, int /*timeout*/, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause) {
    return exchange(fd, tx, rx, rx_max, pause, [fd](std::span<std::uint8_t> buffer) {
        std::size_t received = 0;
        for (ssize_t got = 0; (got = gateway().read_port(fd, buffer.subspan(received))) >= 1;) {
            received += static_cast<std::size_t>(got);
            led_rx_pulse();
        }
        return received;
    });
}

int exchange_read_bytes(int fd, int /*timeout*/, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause) {
    return exchange(fd, tx, rx, rx_max, pause, [fd](std::span<std::uint8_t> buffer) {
        std::size_t received = 0;
        while (received < buffer.size() && gateway().read_port(fd, buffer.subspan(received, 1)) >= 1) ++received;
        if (received > 0) led_rx_pulse();
        return received;
    });
}
