#pragma once
// All KM5 meters of a normal run: owns the serial port and one driver for each uuid, and walks them for ever.

#include <memory>
#include <string>
#include <vector>

#include "driver/hcd_base_driver.h"
#include "drivers/km5/km5.h"

class KM5_base final : public HCDBaseDriver {
  public:
    KM5_base(const std::vector<std::string>& meters, bool km56i, bool isATT_mustbe);

    void open_tty() override;
    std::string get_driver_type() override { return "KM5"; }
    int get_buffer_limit() override { return 768; }
    void on_tick(int /*value*/) override {}
    /// Never returns.
    void run_main() override;
    std::string get_uuid() override { return uuid_list.empty() ? "" : uuid_list.front(); }

  private:
    std::vector<std::unique_ptr<KM5>> drivers;
};
