#pragma once
// The stand of the longer Modbus tests: the process on the line of a scene, and the lines that ought to stand in the
// archive files, reckoned by the meter's own tables.

#include <ctime>
#include <string>
#include <vector>

#include "support/modbus_scene.h"

class ModbusMonthStand : public ModbusStand {
  protected:
    static constexpr std::time_t Hour = 3600;

    /// `start` is local time in `zone`.
    explicit ModbusMonthStand(const std::string& start, const std::string& zone = "UTC");

    /// Neither logs, items nor LEDs are looked at; without them a month takes a few seconds.
    void be_quiet(const std::vector<std::string>& uuids);
    /// The process for so many seconds, or less when the power fails: then false. A new one each time.
    bool live(const std::vector<std::string>& uuids, double seconds);

    /// As lines_in, of any meter; zero bytes that a power cut has left are no lines.
    LineCounts lines_of(const std::string& uuid, int n, const std::string& directory = "tmp_archives") const;
    /// The time at which a staged file ends.
    std::time_t last_time(const std::string& uuid, int n, const std::string& name) const;
};

/// The lines of a record that a meter stored by itself, in the order in which they are written.
std::vector<sim::VistFileValue> modbus_record_lines(const sim::ModbusVistMeter& meter, unsigned system,
                                                    std::time_t time);
/// The same for the header of that time.
std::vector<sim::VistFileValue> modbus_header_lines(sim::ModbusVistMeter& meter, unsigned system, std::time_t time);

void count_lines(LineCounts& counts, const std::vector<sim::VistFileValue>& lines);
