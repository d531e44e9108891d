#include "driver/single_bus.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/gateway.h"
#include "core/uni_log.h"
#include "driver/flag_files.h"
#include "driver/line_settings.h"

namespace {

constexpr const char* ExtdsSeconds = "7200";

}  // namespace

SingleBus::SingleBus(DriverMaker maker) : make_driver(std::move(maker)) {}

void SingleBus::add_drivers(const std::vector<std::string>& uuids) {
    for (const std::string& uuid : uuids) {
        auto record = std::make_unique<PortRecord>();
        read_port_config(uuid, *record);
        const PortRecord& port = *(ports[uuid] = std::move(record));
        if (auto driver = make_driver(port.manufacturer, port.uuid)) drivers.push_back(std::move(driver));
        if (drivers.empty()) {
            log_line(g_log, "Unknown manufacturer \"", port.manufacturer, "\" of ", uuid,
                     ", nobody takes its settings.");
            continue;
        }
        drivers.back()->set_tty_send(exchange_read_bytes, 0);
        drivers.back()->take_settings(settings_of(port));
    }
    if (drivers.empty() && !uuids.empty()) {
        // Who started the process may start it again, when the service perhaps knows more.
        log_line(g_log, "No meter of a known manufacturer. Exit.");
        std::fprintf(stderr, "No meter of a known manufacturer.\n");
        std::exit(1);
    }
}

bool SingleBus::open_line(const PortRecord& record) {
    // Once open, the device of the first driver stays the device of all.
    if (tty_fd < 1) tty_fd = gateway().open_port(record.port_name.c_str());
    if (tty_fd <= 0) return false;
    gateway().set_line(tty_fd, line_termios(LineOfScheduler, record.speed, record.parity));
    return true;
}

void SingleBus::run() {
    bool all_ok = false;
    while (true) {
        regulate_extds(all_ok, ExtdsSeconds);
        all_ok = true;
        for (const auto& driver : drivers) {
            open_line(*ports[driver->get_uuid()]);
            driver->set_tty_fd(tty_fd);
            // Only a driver without its description wants a turn; that is how this mode is meant.
            if (driver->need_init()) {
                driver->do_init();
                driver->run_main();
            }
            all_ok = driver->is_all_archives_ok() && all_ok;
        }
    }
}
