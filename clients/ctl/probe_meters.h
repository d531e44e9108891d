#pragma once
// Is a meter of a family there, and who is it? Asked with the family's own link code, on a line that is ours for the
// moment. Nothing is published and no log is written.

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "contract/catalogue.h"
#include "driver/line_settings.h"

namespace ctl {

/// What a family is asked with.
struct ProbeFamily {
    contract::Family family;
    const LineSettings* line;
    bool needs_serial;                ///< a meter is asked by its serial number alone
    std::uint32_t first, last;        ///< addresses that a scan tries; 0: none
    std::vector<std::uint8_t> close;  ///< what ends a dialog
};
const ProbeFamily& probe_family(contract::Family family);

/// A speed and a parity as the daemon can set them in this family.
struct LineChoice {
    unsigned speed = 0;
    char parity = 'N';  ///< of the line: N, E or O
    char told = 'N';    ///< what the configuration service is to tell for it
    int speed_code = 0;
    int parity_code = 0;

    std::string text() const;
};
std::vector<LineChoice> line_choices(const ProbeFamily& family);

struct ProbedMeter {
    std::uint32_t address = 0;  ///< what it is asked by
    std::string model = {};
    std::string firmware = {};
    std::string serial = {};
    std::optional<std::tm> clock = {};
    std::int64_t clock_asked = 0;  ///< when it was asked for, seconds since the epoch
    std::string remark = {};
};

/// The meter with this address, or serial number. Nothing: no right answer. `brief`: one try each, for a scan.
std::optional<ProbedMeter> ask_meter(const ProbeFamily& family, int fd, std::uint32_t address, bool brief);

}  // namespace ctl
