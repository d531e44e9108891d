#pragma once
// All VIST meters of a normal run that are asked over Modbus: owns the serial port and one driver for each uuid, and
// walks them for ever.

#include <memory>
#include <string>
#include <vector>

#include "driver/hcd_base_driver.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

class VISTmodbus_base final : public HCDBaseDriver {
  public:
    explicit VISTmodbus_base(const std::vector<std::string>& meters);

    void open_tty() override;
    std::string get_driver_type() override { return "VISTmodbus"; }
    int get_buffer_limit() override { return 768; }
    void on_tick(int /*value*/) override {}
    /// Never returns.
    void run_main() override;
    std::string get_uuid() override { return uuid_list.empty() ? "" : uuid_list.front(); }

  private:
    std::vector<std::unique_ptr<HCD_VISTmodbus>> drivers;
};
