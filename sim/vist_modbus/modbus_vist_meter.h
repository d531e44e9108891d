#pragma once
// A simulated VIST heat meter that speaks Modbus RTU, as it stands on a serial line.
//
// In a test:
//
//     sim::ModbusVistMeter meter({.serial = 40123});                         // slave 187, the low byte
//     gateway.connect("/dev/ttyS1", meter);                                  // or meter.hear(request, now) by hand
//     meter.set_value("T1", 7125);                                           // registers, as numbers: 71.25 degrees
//     meter.store_hourly({.at = "2024-03-02 10:00", .V1 = 120.5, .T1 = 71.2});  // the hour that ends at 11:00
//     meter.record_archives(true, "2024-03-02 00:00");                       // records by itself from then on
//     meter.spoil_record("2024-03-02 10:00", 2);                             // a wrong sum, twice
//     meter.misbehave_next(5, sim::modbus_silence().on({.function = 20, .record = 7}));
//     meter.misbehave_next(30, sim::modbus_wrong_crc().on({.function = 4, .address = 518}));
//     EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 1U);
//     for (const auto& line : meter.record_files(meter.records().back())) ...  // what ought to be in the archive files
//
// The last argument of most calls is the heat system, counted from 0.
//
// The wire. The meter answers its own address, and speaks only when asked; a request is all that came up to a silence,
// and one with a wrong CRC is not heard. Function 3 reads holding registers, 4 input registers, 20 one record of a
// file:
//
//     holding 0..667     configuration and setup of three systems, see modbus_vist_memory.h; there is memory
//                        for three whether they exist or not
//     input 0..2         hour minute, second day, month year
//     input 514..1078    present values of system 0; 1538..2102 of system 1, 2562..3126 of system 2
//     file 0..2          record 0 is the archive header of the system, the others are its ring
//
// A file's answer is: length (of what follows it), 6, and the record. The length of a record counts registers, so an
// answer has as many bytes as twice that, whatever the record needs: behind the record stands filler.
//
// Exceptions: 1 for an unknown function; 2 for a register, file, system or record that is not there, and for a
// reference type other than 6; 3 for a count of 0 or above 125 (of a record: 124), and for a request of a wrong length.
//
// The archive. Each system has a ring of hourly records in places 1 to `capacity`, written in turn. A record has no
// time of its own; it is known by its place. The header is dated at the end of the newest record's hour (of an empty
// ring: at the last full hour of the meter's clock), so with n = next + 1 the record of place n - k (n - k + capacity
// when that is below 1) began k hours before the header's time, for k = 1 to `held`. Place n itself, an hour later, is
// the oldest record of a full ring, and in another ring not written yet. An hour that was missed moves all the older
// ones up.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "meter_life.h"
#include "modbus_vist_faults.h"
#include "modbus_vist_memory.h"
#include "modbus_vist_types.h"

namespace sim {

/// Function, address and record of a request.
using ModbusPlace = std::tuple<std::uint8_t, std::uint16_t, std::uint16_t>;

class ModbusVistMeter final : public MeterLife<ModbusFault, ModbusHeard, ModbusPlace> {
  public:
    explicit ModbusVistMeter(ModbusVistConfig config = {});

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    /// The low byte of the serial number. A meter with address 0 is never asked: that is everybody's.
    std::uint8_t address() const { return static_cast<std::uint8_t>(config_.serial); }

    // ---- present state

    /// Names as in modbus_vist_value_rows(). Another name, or a number too wide, throws std::invalid_argument.
    void set_value(const std::string& name, std::uint32_t number, unsigned system = 0);
    /// The registers at `now`; those of the current hour grow with its seconds while they are not set.
    std::uint32_t value(const std::string& name, std::time_t now, unsigned system = 0) const;
    /// The system as it is set up now, to be changed at will. What is stored keeps its numbers.
    ModbusVistSystem& system(unsigned system = 0);
    /// The configuration claims so many systems from now on; std::nullopt ends it.
    void claim_systems(std::optional<std::uint8_t> count) { config_.claimed_systems = count; }

    // ---- clock

    /// What the meter's clock shows when a right clock shows `now`.
    std::time_t clock(std::time_t now) const;
    /// From `now` on the clock shows `shown`, and drifts from there. Records are neither made up nor taken back.
    void set_clock(const VistWhen& shown, std::time_t now);

    // ---- archive

    void store_hourly(const ModbusVistRecord& record, unsigned system = 0);

    /// With `on` the meter stores by itself, in every system, a record at each full hour of its own clock, the first
    /// one after `from`, for the hour that ends then; numbers are those of recorded_number. It is done when the meter
    /// next hears anything (or on catch_up), so that a record is there whenever somebody can ask for it.
    void record_archives(bool on, const VistWhen& from = {});
    void catch_up(std::time_t now);
    /// The record of the hour that begins then will not be made, in no system.
    void miss_hour(const VistWhen& at);

    /// The number of field k (mask bit) in a record that a meter stored by itself. Systems differ at any one time.
    /// T3 is -1000 (broken) in every 24th hour, the status says something in another.
    static std::int64_t recorded_number(std::uint32_t serial, unsigned system, std::time_t record_time,
                                        std::size_t field);
    /// Total k of an archive header of that time, in the wire's order, when set_totals has not said otherwise. Totals
    /// grow with time; the last one takes more than 32 bits.
    static std::uint64_t recorded_total(std::uint32_t serial, unsigned system, std::time_t header_time,
                                        std::size_t total);

    /// Each names the newest record of the hour that begins then; std::out_of_range when there is none.
    void spoil_record(const VistWhen& at, std::size_t readings = VistForever, unsigned system = 0);  ///< its sum
    void erase_record(const VistWhen& at, unsigned system = 0);  ///< reads as 0xFF from now on
    void erase_archive(unsigned system = 0);

    /// The header tells these from now on; std::nullopt ends it. A total that is too wide throws std::invalid_argument.
    void claim_counts(std::optional<ModbusVistCounts> counts, unsigned system = 0);
    void set_header_time(std::optional<VistWhen> time, unsigned system = 0);
    void set_totals(std::optional<std::array<std::uint64_t, VistTotals>> totals, unsigned system = 0);

    // ---- another meter

    /// Another meter hangs in this one's place, with its own clock and nothing stored. Misbehaviour and what was heard
    /// stay.
    void swap_for(ModbusVistConfig config);

    // ---- what a test looks at

    const ModbusVistConfig& config() const { return config_; }  ///< as it came; systems may have changed since
    /// The records held, oldest first.
    std::vector<ModbusVistStored> records(unsigned system = 0) const;
    /// The record at a place of the ring, from 1; null when none was written there.
    const ModbusVistStored* record_at(std::size_t place, unsigned system = 0) const;
    ModbusVistHeader header(std::time_t now, unsigned system = 0) const;
    /// The size of a record, as a reader reckons it.
    std::size_t record_size(unsigned system = 0) const;

    /// What a reader of the archive ought to file, by this meter's own tables.
    std::vector<VistFileValue> record_files(const ModbusVistStored& record, unsigned system = 0) const;
    std::vector<VistFileValue> header_files(std::time_t now, unsigned system = 0) const;

    /// Requests that the meter took for its own.
    std::size_t requests(const ModbusWhich& which = {}) const;

  private:
    struct Memory {
        ModbusVistRing ring;
        std::optional<ModbusVistCounts> claimed_counts = std::nullopt;
        std::optional<VistWhen> header_time = std::nullopt;
        std::optional<std::array<std::uint64_t, VistTotals>> totals = std::nullopt;
    };

    ModbusReply answer(const ModbusQuestion& question, std::time_t now);
    ModbusReply holding(const ModbusQuestion& question) const;
    ModbusReply input(const ModbusQuestion& question, std::time_t now) const;
    ModbusReply file(const ModbusQuestion& question, std::time_t now);
    ByteVector values_of(unsigned system, std::time_t now) const;
    ModbusReply data(const ModbusQuestion& question, std::span<const std::uint8_t> bytes) const;
    ModbusReply refusal(const ModbusQuestion& question, std::uint8_t code) const;
    ModbusReply file_record(const ModbusQuestion& question, ByteVector record) const;
    void record_at_hour(std::time_t end);

    ModbusVistConfig config_;
    std::vector<ModbusVistSystem> systems_;
    std::vector<Memory> memories_;

    RecordTimes hours_;  // missed ones by their beginning
};

}  // namespace sim
