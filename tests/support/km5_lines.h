#pragma once
// Which archive lines the records of a simulated KM5 meter must become, worked out without the driver.

#include <ctime>
#include <string>
#include <vector>

#include "km5_meter.h"
#include "support/stored_lines.h"

/// Where one field of a record goes. Field numbers are those of Km5FieldNames.
struct Km5LinePlace {
    std::size_t field;
    const char* hourly;
    const char* daily;
    bool total;  ///< dated as the record; an average is dated one period earlier
};

/// The places of a record of models 1 to 6, or of a subsystem of a KM5-6i, 7, in the order of writing: totals, then
/// averages. `gvs`: the configuration calls the system one of hot water.
const std::vector<Km5LinePlace>& km5_places(int model, bool gvs = false);

struct Km5Line {
    std::string file;
    std::string text;  ///< without its end
    std::time_t time = 0;
    std::time_t record_time = 0;
};

/// The lines of one hourly or daily record, in the order of writing.
std::vector<Km5Line> km5_record_lines(int model, sim::Km5Archive archive, const sim::Km5StoredRecord& record,
                                      bool gvs = false);
Km5Line km5_event_line(const sim::Km5StoredEvent& event);

void km5_count(LineCounts& counts, const Km5Line& line, int times = 1);
