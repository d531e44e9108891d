#pragma once
// All KM5 meters of a normal run.

#include <string>
#include <vector>

#include "driver/port_parent.h"
#include "drivers/km5/km5.h"

class KM5_base final : public PortParent<KM5> {
  public:
    KM5_base(const std::vector<std::string>& meters, bool km56i, bool isATT_mustbe);

    std::string get_driver_type() override { return "KM5"; }

  private:
    void prepare(KM5& driver, const std::string& meter) override;
};
