#include "drivers/vist_modbus/vistmodbus_base.h"

#include "config/config_client.h"
#include "driver/line_settings.h"
#include "driver/port_walk.h"

namespace {

constexpr unsigned PassPauseSeconds = 5;
constexpr const char* ExtdsSeconds = "3600";

}  // namespace

VISTmodbus_base::VISTmodbus_base(const std::vector<std::string>& meters) {
    for (const std::string& meter : meters) {
        uuid_list.push_back(meter);
        drivers.push_back(std::make_unique<HCD_VISTmodbus>(meter));
    }
}

void VISTmodbus_base::open_tty() {
    tty_fd = open_line(port_name, LineOfVistModbus, tc_baud, tc_parity);
}

void VISTmodbus_base::run_main() {
    std::vector<HCDBaseDriver*> in_turn;
    for (std::size_t i = 0; i < drivers.size(); ++i) {
        HCD_VISTmodbus& driver = *drivers[i];
        in_turn.push_back(&driver);
        driver.set_uuid(uuid_list[i]);
        read_driver_config(driver);
        driver.set_tty_send(exchange_read_bytes, 0);
        driver.set_tty(tty_fd);
    }
    walk_port(in_turn, PassPauseSeconds, ExtdsSeconds, nullptr);
}
