#include "driver/port_walk.h"

#include "core/gateway.h"
#include "core/uni_log.h"
#include "driver/flag_files.h"

void walk_port(const std::vector<HCDBaseDriver*>& drivers, const PortWalk& walk) {
    log_line(walk.log, "drivers size: ", static_cast<int>(drivers.size()));
    bool all_ok = false;
    if (walk.pause_first) gateway().sleep(walk.pause_seconds);
    while (true) {
        regulate_extds(all_ok, walk.extds_seconds);
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            HCDBaseDriver& driver = *drivers[i];
            log_line(walk.log, "driver number ", static_cast<int>(i), " start");
            log_line(walk.log, "Driver uuid = ", driver.get_uuid());
            if (!driver.is_update_due()) continue;
            log_line(walk.log, "its Time!");
            if (driver.need_init()) driver.do_init();
            if (!driver.need_init()) driver.run_main();
        }
        all_ok = true;
        for (HCDBaseDriver* const driver : drivers) all_ok = driver->is_all_archives_ok() && all_ok;
        gateway().sleep(walk.pause_seconds);
    }
}
