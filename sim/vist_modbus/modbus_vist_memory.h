#pragma once
// The memory of a simulated VIST meter that speaks Modbus: registers, rings of hourly records. And the tables that say
// what stands where.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "modbus_vist_types.h"

namespace sim {

/// A present value. It fills one or two input registers, unsigned.
struct ModbusVistValueRow {
    std::string_view name;
    std::uint16_t address;  ///< of heat system 0; each further system is 1024 higher
    std::uint16_t registers;
    std::uint32_t when_unset;  ///< in system 0; each further system is one higher
    std::uint32_t per_second;  ///< what it gains in each second of the current hour, unless it is set
};
std::span<const ModbusVistValueRow> modbus_vist_value_rows();

/// A field of an archive record; its mask bit is its place in the table.
struct ModbusVistFieldRow {
    std::string_view file;  ///< empty: nobody files it
    std::size_t width;      ///< bytes
    int precision;          ///< which of p0..p3 is its power of ten; -1: `power` is
    int power;
    bool is_signed;
};
std::span<const ModbusVistFieldRow, VistRecordFields> modbus_vist_field_rows();

/// A total of an archive header. All are always there.
struct ModbusVistTotalRow {
    std::string_view file;
    unsigned mask_bit;  ///< of the mask in the registers: whether it is filed
    bool always;        ///< it is filed in any case
    int precision;
    int power;
};
std::span<const ModbusVistTotalRow, VistTotals> modbus_vist_total_rows();

inline constexpr std::size_t ModbusVistStatusField = 15;

/// The word that is filed, or shown, for a status word of the meter.
std::uint32_t modbus_vist_status(std::uint32_t word);

/// What a meter puts into a record or a header by itself; see ModbusVistMeter.
std::int64_t modbus_vist_recorded_number(std::uint32_t serial, unsigned system, std::time_t record_time,
                                         std::size_t field);
std::uint64_t modbus_vist_recorded_total(std::uint32_t serial, unsigned system, std::time_t header_time,
                                         std::size_t total);

/// A ring of hourly records in places that count from 1, as the wire does.
class ModbusVistRing {
  public:
    explicit ModbusVistRing(std::size_t capacity) : places_(capacity) {}

    void push(const ModbusVistStored& record);
    void forget();

    ModbusVistCounts counts() const;
    std::size_t capacity() const { return places_.size(); }
    /// Null for a place that is not written; std::out_of_range for one outside the ring.
    ModbusVistStored* at(std::size_t place);
    const ModbusVistStored* at(std::size_t place) const;
    /// The place of the newest record of that time; throws std::out_of_range when there is none.
    std::size_t find(std::time_t time) const;
    /// Null when the ring is empty.
    const ModbusVistStored* newest() const;
    std::vector<ModbusVistStored> oldest_first() const;

  private:
    std::size_t place_of(std::size_t age) const;  // 1 is the newest

    std::vector<std::optional<ModbusVistStored>> places_;
    std::size_t pushed_ = 0;
};

/// All holding registers, as bytes: register n is bytes 2n and 2n + 1. By byte:
///
///     0      main configuration, 198 bytes: 4 firmware, 25 name, 46 serial number (texts), 105, 131 and 157 heat
///            systems (26 bytes each: 0 temper, 6 press, 12 DU, three times 2 bytes each), 197 number of systems
///     198    setup of system 0, 370 bytes; of systems 1 and 2 from 568 and 938 on: 0 name (12), 12 parameters
///            (4), 16, 49 and 82 channels (33 each: 3 divisor (2), 5 upper limit (4), 9 scale, 19 lower limit (4)), 119
///            formula selector, 120 iG1, 121 iT1, 122 iT2, 123 iG2, 124 iT3, 131 iG3, 132 iT4, 147 errors (4)
///     1308   archives of systems 0, 1 and 2, nine bytes each without a byte between them: 0 file, 2 mask (4), 6
///            capacity (2)
///     1335   one byte that fills the last register
ByteVector modbus_vist_holding(const ModbusVistConfig& config, std::span<const ModbusVistSystem> systems);

/// 62 bytes: 0 the number 1, 1 sum of all from 2 on, 2 and 3 the numbers 0 and 62, 4 the number 0, 5 the system, 6 mask
/// (4), 10 held, 12 next, 14 most (2 each), 16 hour minute second day month year, 22 to 49 seven totals (4 each), 50
/// the eighth (8), 58 to 61 p0..p3.
ByteVector modbus_vist_header_bytes(const ModbusVistSystem& system, const ModbusVistHeader& header, unsigned number);

/// 0 sum of all behind it, then each field that the mask names, by bit:
///
///     bit      bytes  unit
///     0        1      0.01 h               worked in the hour
///     1..3     4      10 to the -p0..p2    volumes of channels 1..3, signed
///     4..6     4      10 to the -p0..p2    masses, signed
///     7..10    2      0.1 degrees          temperatures, signed; -1000 is a broken sensor
///     11..13   1      0.1                  pressures
///     14       4      10 to the -p3        energy, signed
///     15       4                           status
///     16..19   1      0.01 h               shares of the hour
///     20, 21   3 1                         nobody has named them; where bit 22 is set they keep their places, as zeros
///                                          when they are not set themselves
///     22       1      0.01 h               another share
///
/// The sum and the size of a record know only of the fields whose bits are set, so it may end before bit 22 does. An
/// erased record is all 0xFF.
ByteVector modbus_vist_record_bytes(std::uint32_t mask, const ModbusVistStored& record);
/// The size of a record, as a reader reckons it: the sum, and the fields whose bits are set.
std::size_t modbus_vist_record_size(std::uint32_t mask);

/// The numbers of a record by the system's powers of ten.
ModbusVistStored modbus_vist_stored(const ModbusVistSystem& system, const ModbusVistRecord& record);

/// The lines that a reader ought to file for a record, each in its own file, at the record's own time.
std::vector<VistFileValue> modbus_vist_record_files(const ModbusVistSystem& system, const ModbusVistStored& record);
/// The same for the totals of a header, at the header's own time.
std::vector<VistFileValue> modbus_vist_header_files(const ModbusVistSystem& system, const ModbusVistHeader& header);

}  // namespace sim
