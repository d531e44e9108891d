#pragma once
// What the replies of an SA-94 meter mean: bytes in, values out. Records of the archives are cut out of their blocks by
// SA94Memory.

#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "drivers/sa94/sa94_tables.h"

// ---- who the meter is

/// The firmware text of block 2 of segment 0, without its blanks.
std::string firmware_text(Bytes reply);
/// The first version that the text begins with; null when there is none.
const SA94Version* find_version(const std::string& firmware);

/// The status byte, which a connect is answered with.
struct SA94Status {
    int subsystem_type = 2;        ///< 0 or 1 once the status is known
    std::uint8_t status_byte = 0;  ///< without its top bit
    int sc_flag = 0;
    bool support_t3 = true;  ///< the meter measures a third temperature
};

/// One of the two tubes: its codes in block 0 of segment 0.
struct SA94Tube {
    int dn_code = 0;
    int q_max_code = 0;
    int q_min_code = 0;  ///< per cent of the greatest flow

    int diameter() const { return tube_diameter(dn_code); }
    float greatest_flow() const { return flow_limit(dn_code, q_max_code); }
    float least_flow() const { return static_cast<float>(q_min_code) / 100.0F * greatest_flow(); }
};

// ---- what it has stored

struct SA94Record {
    std::tm tm{};                                       ///< as in the record; of no date at all without a layout
    std::time_t date = -1;                              ///< its date alone
    std::vector<std::pair<std::string, float>> values;  ///< in the order of the columns, by the names of the layout
};
/// The layout of a firmware's hourly or daily records; null when it has none.
const SA94Layout* find_layout(int archive_type, int firmware_id);

struct SA94Event {
    int code = 0;
    bool started = false;  ///< else it is over
    std::tm tm{};
};

namespace sa94 {

SA94Status decode_status(std::uint8_t status, int firmware_id);
/// `number`: 1 or 2.
SA94Tube decode_tube(Bytes reply, int number);
/// A value in its unit. Date and time of day have none, and go into `clock`.
std::optional<float> decode_parameter(const SA94CurrentParameter& parameter, Bytes reply, std::tm& clock);
/// Without a third temperature the word for it is left out.
SA94Record decode_record(Bytes record, const SA94Layout& layout, bool support_t3);
SA94Event decode_event(Bytes record);

}  // namespace sa94
