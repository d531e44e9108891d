#include "drivers/vist_modbus/vistmodbus_base.h"

VISTmodbus_base::VISTmodbus_base(const std::vector<std::string>& meters)
    : PortParent(meters, LineOfVistModbus,
                 {.pause_seconds = 5, .pause_first = true, .extds_seconds = "3600", .log = nullptr}) {}

void VISTmodbus_base::prepare(HCD_VISTmodbus& driver, const std::string& meter) {
    driver.set_uuid(meter);
    read_driver_config(driver);
    driver.set_tty_send(exchange_read_bytes, 0);
    driver.set_tty(tty_fd);
}
