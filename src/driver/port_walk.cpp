#include "driver/port_walk.h"

#include "core/gateway.h"
#include "core/uni_log.h"
#include "driver/flag_files.h"

void walk_port(const std::vector<HCDBaseDriver*>& drivers, unsigned pause_seconds, const char* extds_seconds,
               UniLog* log) {
    bool all_ok = false;
    while (true) {
        gateway().sleep(pause_seconds);
        regulate_extds(all_ok, extds_seconds);
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            log_line(log, "driver number ", static_cast<int>(i), " start");
            log_line(log, "Driver uuid = ", drivers[i]->get_uuid());
            if (!drivers[i]->is_update_due()) continue;
            log_line(log, "its Time!");
            drivers[i]->run_main();
        }
        all_ok = true;
        for (HCDBaseDriver* const driver : drivers) all_ok = driver->is_all_archives_ok() && all_ok;
    }
}
