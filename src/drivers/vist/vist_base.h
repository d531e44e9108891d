#pragma once
// All VIST meters of a normal run.

#include <string>
#include <vector>

#include "driver/port_parent.h"
#include "drivers/vist/hcd_vist.h"

class VIST_base final : public PortParent<HCD_VIST> {
  public:
    explicit VIST_base(const std::vector<std::string>& meters);

    void open_tty() override;
    std::string get_driver_type() override { return "VISThydralink"; }

  private:
    void prepare(HCD_VIST& driver, const std::string& meter) override;

    int prepared = 0;  ///< drivers, for the log
};
