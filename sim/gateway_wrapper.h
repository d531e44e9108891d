#pragma once

#include "core/gateway_wrapper.h"

namespace sim {

using ::GatewayWrapper;

}  // namespace sim
