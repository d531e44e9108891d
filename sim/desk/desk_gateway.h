#pragma once
// The system's machine with another folder for "/": real clock, real (pseudo-)terminals, real files.

#include <string>
#include <utility>

#include "gateway_wrapper.h"

namespace sim {

/// In use as long as it lives. `root` must exist.
class DeskGateway : public GatewayWrapper {
  public:
    explicit DeskGateway(std::string root) : GatewayWrapper(system_machine()) { root_folder = std::move(root); }

  private:
    static Gateway& system_machine() {
        set_gateway(nullptr);
        return gateway();
    }
};

}  // namespace sim
