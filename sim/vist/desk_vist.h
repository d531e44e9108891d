#pragma once
// VIST meters for a desk.

#include "desk_meter.h"

namespace sim {

MadeMeter make_vist(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);

}  // namespace sim
