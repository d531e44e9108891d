#pragma once
// Makers of the KM5 family, for the table of meter types.

#include "desk_meter.h"

namespace sim {

MadeMeter make_km5(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);
MadeMeter make_km56i(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);
MadeMeter make_att(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);

}  // namespace sim
