#pragma once
// Single-bus mode: meters of different families on one line. One driver for each uuid, walked in turn on a single
// descriptor; the line is set anew for every driver in every pass. What a driver does with the line is its own
// business.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/config_client.h"
#include "driver/hcd_base_driver.h"

class SingleBus {
  public:
    /// Makes the driver of one uuid for a manufacturer text; null for a manufacturer that nobody knows.
    using DriverMaker =
        std::function<std::unique_ptr<HCDBaseDriver>(const std::string& manufacturer, const std::string& uuid)>;

    explicit SingleBus(DriverMaker maker);

    /// Reads the settings of each uuid and makes its driver. A manufacturer that nobody knows makes none, and its
    /// settings go to the driver before it, as they always have, or to nobody. Uuids that make no driver at all end the
    /// process with status 1.
    void add_drivers(const std::vector<std::string>& uuids);

    /// Walks the drivers for ever.
    [[noreturn]] void run();

    /// Opens the device once and for ever, and sets the line for `record`. True when it is open.
    bool open_line(const PortRecord& record);

  private:
    DriverMaker make_driver;
    int tty_fd = -1;  ///< shared, never closed once open
    std::vector<std::unique_ptr<HCDBaseDriver>> drivers;
    std::map<std::string, std::unique_ptr<PortRecord>> ports;
};
