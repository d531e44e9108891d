#pragma once
// SA-94 meters for a desk.

#include "desk_meter.h"

namespace sim {

MadeMeter make_sa94(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);

}  // namespace sim
