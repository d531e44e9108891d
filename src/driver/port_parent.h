#pragma once
// The driver of all meters of one family on one port: owns the port and one driver for each uuid, and walks them for
// ever. The families give it their names and say what differs.

#include <memory>
#include <string>
#include <vector>

#include "driver/hcd_base_driver.h"
#include "driver/line_settings.h"
#include "driver/port_walk.h"

template <typename Driver>
class PortParent : public HCDBaseDriver {
  public:
    /// A driver for each uuid, made with these flags behind it.
    template <typename... Flags>
    PortParent(const std::vector<std::string>& meters, const LineSettings& line_of_family,
               const PortWalk& walk_of_family, Flags... flags)
        : line(line_of_family), walk(walk_of_family) {
        uuid_list = meters;
        for (const std::string& meter : meters) drivers.push_back(std::make_unique<Driver>(meter, flags...));
    }

    void open_tty() override { tty_fd = open_line(port_name, line, tc_baud, tc_parity); }
    int get_buffer_limit() override { return 768; }
    std::string get_uuid() override { return uuid_list.empty() ? "" : uuid_list.front(); }
    /// Never returns.
    void run_main() override {
        std::vector<HCDBaseDriver*> in_turn;
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            prepare(*drivers[i], uuid_list[i]);
            in_turn.push_back(drivers[i].get());
        }
        walk_port(in_turn, walk);
    }

  protected:
    /// Gives a driver its settings and the port.
    virtual void prepare(Driver& driver, const std::string& meter) = 0;

  private:
    const LineSettings& line;
    PortWalk walk;
    std::vector<std::unique_ptr<Driver>> drivers;
};
