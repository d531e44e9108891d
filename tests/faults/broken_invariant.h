#pragma once

#include <stdexcept>

namespace faults {

/// Something that holds at every moment did not. The text tells what.
struct BrokenInvariant : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace faults
