#include "drivers/km5/km5_base.h"

#include "config/config_client.h"
#include "core/gateway.h"
#include "driver/flag_files.h"
#include "driver/line_settings.h"

namespace {

constexpr unsigned PassPauseSeconds = 10;
constexpr const char* ExtdsSeconds = "7200";

}  // namespace

KM5_base::KM5_base(const std::vector<std::string>& meters, bool km56i, bool isATT_mustbe) {
    for (const std::string& meter : meters) {
        drivers.push_back(std::make_unique<KM5>(meter, km56i, isATT_mustbe));
        uuid_list.push_back(meter);
    }
}

void KM5_base::open_tty() {
    tty_fd = open_line(port_name, LineOfKm5, tc_baud, tc_parity);
}

void KM5_base::run_main() {
    bool all_ok = false;
    for (const auto& driver : drivers) {
        read_driver_config(*driver);
        driver->set_tty_send(exchange_read_bytes, 0);
        driver->set_tty(tty_fd);
    }
    while (true) {
        regulate_extds(all_ok, ExtdsSeconds);
        for (const auto& driver : drivers) {
            if (!driver->is_update_due()) continue;
            if (!driver->has_description && !driver->get_description()) continue;
            driver->run_main();
        }
        all_ok = true;
        for (const auto& driver : drivers) all_ok = driver->is_all_archives_ok() && all_ok;
        gateway().sleep(PassPauseSeconds);
    }
}
