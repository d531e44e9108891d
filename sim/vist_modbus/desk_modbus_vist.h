#pragma once
// VIST meters that speak Modbus, for a desk.

#include "desk_meter.h"

namespace sim {

MadeMeter make_modbus_vist(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);

}  // namespace sim
