#pragma once
// Records of a simulated SA-94 meter: how the bytes of one are made, and what a reader ought to file for them.
//
//     byte      hourly    daily     error
//     0         0         0         code 0..127; top bit: the event is over
//     1, 2, 3   day, month, year of this century, in BCD
//     4         status    values    0
//     5         hour      values    hour
//     6, 7      values    values    minute, second
//     8..       values    values
//
// An hourly record names the hour that it covers and is written at its end, a daily one the day. Which values stand
// where is told in sa94_tables.h. Bytes without a value are 0.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "sa94_tables.h"
#include "sa94_types.h"

namespace sim {

/// Room for any record; those of small memories use half of it, errors 8 bytes.
using Sa94Bytes = std::array<std::uint8_t, 64>;

/// All throw std::invalid_argument for what cannot be written: a number in a date beyond 0..99, a name that this
/// firmware's records do not have, a word that is not whole or beyond 0..65535, a float beyond all bounds.
Sa94Bytes sa94_record(const Sa94Firmware& firmware, Sa94Archive archive, const Sa94Record& record,
                      std::uint8_t meter_status);
Sa94Bytes sa94_event(const Sa94Event& event);

/// How large a quantity is at a moment of the meter's clock; of a period, at its end.
double sa94_amount(const Sa94Quantity& quantity, std::uint32_t address, std::int64_t face, double period_hours);

/// Makes the records that a meter writes of itself.
class Sa94Chronicle {
  public:
    Sa94Chronicle(const Sa94Firmware& firmware, Sa94Archive archive, std::uint32_t address, std::uint8_t status);
    /// The record of the hour or day that begins at `face`.
    Sa94Bytes record(std::int64_t face);
    /// The same with nothing but its head: date, hour, status.
    Sa94Bytes bare_record(std::int64_t face);

  private:
    struct Part {
        Sa94Column column;
        const Sa94Quantity* quantity;
    };
    Sa94Archive archive_;
    std::uint32_t address_;
    std::uint8_t status_;
    std::vector<Part> parts_;
    Sa94Calendar calendar_;
};

/// The quantity of a column, by the meter's status.
std::string_view sa94_meaning(std::string_view column, std::uint8_t status);
/// Whether a meter measures T3, by its status.
bool sa94_has_third_temperature(int firmware_id, std::uint8_t status);

/// The lines that a reader ought to file for the bytes of a record, read at that status of the meter; a heat total of
/// 0 is told as it stands. Nothing for a record without a time.
std::vector<Sa94FileValue> sa94_record_files(const Sa94Firmware& firmware, Sa94Archive archive,
                                             std::span<const std::uint8_t> record, std::uint8_t meter_status);

}  // namespace sim
