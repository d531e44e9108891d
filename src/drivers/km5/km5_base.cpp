#include "drivers/km5/km5_base.h"

KM5_base::KM5_base(const std::vector<std::string>& meters, bool km56i, bool isATT_mustbe)
    : PortParent(meters, LineOfKm5,
                 {.pause_seconds = 10, .pause_first = false, .extds_seconds = "7200", .log = nullptr}, km56i,
                 isATT_mustbe) {}

void KM5_base::prepare(KM5& driver, const std::string& /*meter*/) {
    read_driver_config(driver);
    driver.set_tty_send(exchange_read_bytes, 0);
    driver.set_tty(tty_fd);
}
