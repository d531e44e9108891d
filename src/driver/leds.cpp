#include "driver/leds.h"

#include <fcntl.h>

#include "core/files.h"
#include "core/gateway.h"

namespace {

constexpr long PulseNanoseconds = 50;

struct Led {
    const char* path;
    int fd = 0;  // 0: not opened yet; -1: no such LED
    bool state = false;

    bool is_there() const { return fd > 0; }

    void set(bool on) {
        if (fd == 0) fd = gateway().open_file(path, O_WRONLY | O_CLOEXEC, 0);
        state = on;
        if (is_there()) gateway().write_file(fd, on ? "1" : "0");
    }

    void pulse() {
        set(true);
        if (is_there()) gateway().sleep_nanoseconds(PulseNanoseconds);
        set(false);
    }
};

Led g_led_tx{"/proc/leds/kr_red"};
Led g_led_rx{"/proc/leds/lan"};

}  // namespace

void set_led_tx(bool state) {
    g_led_tx.set(state);
}
void set_led_rx(bool state) {
    g_led_rx.set(state);
}
void led_tx_pulse() {
    g_led_tx.pulse();
}
void led_rx_pulse() {
    g_led_rx.pulse();
}

void leds_off() {
    overwrite_file(g_led_tx.path, "0\n");
    overwrite_file(g_led_rx.path, "0\n");
}
