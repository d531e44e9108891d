#include "drivers/vist/vist_base.h"

#include <cstdio>

VIST_base::VIST_base(const std::vector<std::string>& meters)
    : PortParent(meters, LineOfVist, {.pause_seconds = 5, .pause_first = true, .extds_seconds = "3600", .log = g_log}) {
}

void VIST_base::open_tty() {
    log_line(g_log, "Open tty = ", port_name);
    std::printf("Open tty = %s\n", port_name.c_str());
    PortParent::open_tty();
    if (tty_fd < 1) log_line(g_log, "VIST opening port - FAIL");
}

void VIST_base::prepare(HCD_VIST& driver, const std::string& meter) {
    driver.set_uuid(meter);
    log_line(g_log, "setUUID driver number ", int{prepared++}, ", uuid = ", meter);
    read_driver_config(driver);
    driver.set_tty_send(exchange_read_all, 0);
    driver.set_tty_fd(tty_fd);
    log_line(g_log, "tc_sernum = ", driver.settings().tc_sernum, ", uuid = ", meter, ", tty_fd = ", tty_fd);
}
