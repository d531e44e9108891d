#pragma once
// What a year is about: the meters on the line, and the process that polls them. Both are drawn from the seed.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "faults/year_meter.h"

namespace faults {

struct Installation {
    using Uuids = std::vector<std::string>;
    struct Place {
        std::unique_ptr<YearMeter> meter;
        bool is_read = true;  ///< whether the process reads its archives at all
    };

    std::vector<Place> places;
    /// The process: makes the drivers, reads their settings, opens the line, and polls for ever.
    std::function<void(const Uuids&)> live;
    bool is_single_bus = false;

    std::string models() const;
    /// How long a quiet stretch must be so that one pass over all archives fits into it, seconds.
    double least_calm() const;
};

/// "KM5", "VIST", "VISTmodbus", "SA94": one meter, or two of a family with a process of their own; "SingleBus": meters
/// of several families. Throws std::invalid_argument for another name.
Installation draw_installation(const std::string& family, std::uint64_t seed);
const std::vector<std::string>& family_names();

}  // namespace faults
