#pragma once
// Changes to the settings of a driver, as a configuration would bring them.

#include "driver/hcd_base_driver.h"

/// `change` gets the settings that the driver has now.
template <typename Change>
void reconfigure(HCDBaseDriver& driver, Change change) {
    MeterSettings settings = driver.settings();
    change(settings);
    driver.take_settings(settings);
}

inline void set_serial(HCDBaseDriver& driver, std::uint32_t serial) {
    reconfigure(driver, [serial](MeterSettings& settings) { settings.tc_sernum = serial; });
}

inline void set_pause_flag(HCDBaseDriver& driver, bool use) {
    reconfigure(driver, [use](MeterSettings& settings) { settings.use_pause_flag = use; });
}

inline void set_port_name(HCDBaseDriver& driver, const std::string& name) {
    reconfigure(driver, [&name](MeterSettings& settings) { settings.port_name = name; });
}
