#pragma once
// What the answers of the KM5 family mean: bytes in, values out. Nothing here touches a line, a clock or a log; only
// broken-down dates go by the time zone. An `answer` begins with its first byte on the line; what is missing at its end
// reads as 0. Positions count from 0.

#include <array>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "core/bytes.h"
#include "drivers/km5/km5_tables.h"

/// A value under its driver name.
using KM5_value = std::pair<std::string, float>;

struct KM5_status {
    unsigned long long Gstatus = 0;  ///< the raw block, little-endian
    unsigned Cstatus = 0;            ///< the bits published for the meter's own
    int SC = 0;
    int TSMode = 0;  ///< 0 to 4
};

struct KM5_bounds {
    bool has_first_record;
    int first, last, count;
};

/// The fourteen floats stand in the order of a KM5_model_table.
struct KM5_record {
    std::tm date;
    std::array<float, 14> values;
};

/// What of a record a model stores: totals under the record's date, averages under that of average_date.
struct KM5_sorted {
    std::vector<KM5_value> totals, averages;
};

struct KM5_event {
    std::tm date;
    int code;
    bool state;
};

namespace km5 {

/// The date block at positions 5..12, packed BCD, in local time of the meter, which does not tell summer time. Nonsense
/// digits are not refused: range tests of the caller decide.
std::tm decode_date(Bytes answer);
KM5_status decode_status(Bytes answer);
KM5_bounds decode_bounds(Bytes answer);
/// The answer to the question for a date.
int decode_index(Bytes answer);
KM5_record decode_record(Bytes answer);
KM5_event decode_event(Bytes answer);
/// The values of one page of current values, a later one of a name replacing an earlier one. `hot_water`: the system's
/// configured type is one of hot water.
std::vector<KM5_value> decode_page(int cmd, int page, Bytes answer, const KM5_meter& meter, bool hot_water);

KM5_sorted sort_record(const KM5_record& record, int model, bool hot_water);
/// The date of a record's averages: one period before its totals.
std::tm average_date(std::tm date, int type);

}  // namespace km5
