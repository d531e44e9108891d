#include "drivers/vist/vist_base.h"

#include <cstdio>

#include "config/config_client.h"
#include "driver/line_settings.h"
#include "driver/port_walk.h"

namespace {

constexpr unsigned PassPauseSeconds = 5;
constexpr const char* ExtdsSeconds = "3600";

}  // namespace

VIST_base::VIST_base(const std::vector<std::string>& meters) {
    for (const std::string& meter : meters) {
        uuid_list.push_back(meter);
        drivers.push_back(std::make_unique<HCD_VIST>(meter));
    }
}

void VIST_base::open_tty() {
    log_line(g_log, "Open tty = ", port_name);
    std::printf("Open tty = %s\n", port_name.c_str());
    tty_fd = open_line(port_name, LineOfVist, tc_baud, tc_parity);
    if (tty_fd < 1) log_line(g_log, "VIST opening port - FAIL");
}

void VIST_base::run_main() {
    std::vector<HCDBaseDriver*> in_turn;
    for (std::size_t i = 0; i < drivers.size(); ++i) {
        HCD_VIST& driver = *drivers[i];
        in_turn.push_back(&driver);
        driver.set_uuid(uuid_list[i]);
        log_line(g_log, "setUUID driver number ", static_cast<int>(i), ", uuid = ", uuid_list[i]);
        read_driver_config(driver);
        driver.set_tty_send(exchange_read_all, 0);
        driver.set_tty_fd(tty_fd);
        log_line(g_log, "tc_sernum = ", driver.tc_sernum, ", uuid = ", uuid_list[i], ", tty_fd = ", tty_fd);
    }
    log_line(g_log, "drivers size: ", static_cast<int>(drivers.size()));
    walk_port(in_turn, PassPauseSeconds, ExtdsSeconds, g_log);
}
