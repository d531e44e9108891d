#pragma once
// All VIST meters of a normal run that are asked over Modbus.

#include <string>
#include <vector>

#include "driver/port_parent.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

class VISTmodbus_base final : public PortParent<HCD_VISTmodbus> {
  public:
    explicit VISTmodbus_base(const std::vector<std::string>& meters);

    std::string get_driver_type() override { return "VISTmodbus"; }

  private:
    void prepare(HCD_VISTmodbus& driver, const std::string& meter) override;
};
