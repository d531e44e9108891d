#pragma once
// What differs between the firmwares of the SA-94: size of the memory, present values, the form of records. And what
// the numbers in them mean to a reader.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sa94_types.h"

namespace sim {

/// From a bare number to the unit of the archive files: times `by`, or divided by it, in single precision.
struct Sa94Scale {
    float by = 1.0F;
    bool divides = false;

    float filed(float bare) const { return divides ? bare / by : bare * by; }
    double bare(double filed) const { return divides ? filed * by : filed / by; }
};

/// How large a quantity is in a meter that is left to itself, in the unit of the archive files.
struct Sa94Quantity {
    std::string_view name;
    unsigned file;     ///< number of its hourly file, the daily one is 28 higher; 0: in no record
    double base;       ///< of a total: what it had when 2020 began
    double per_hour;   ///< growth of a total
    double swing;      ///< what it gains in the course of a day
    bool of_a_period;  ///< a sum over the hour, and 24 times as large for a day
};
/// IE IT IV1 IV2 IV3 IM1 IM2 IM3 are totals; E t V1 V2 V3 M1 M2 M3 are sums over the hour or day, w1 w2 w3 times in it
/// at which something was out of bounds; P1 P2 P3 T1 T2 T3 dT are means. Throws std::invalid_argument for another name.
const Sa94Quantity& sa94_quantity(std::string_view name);

/// A value in a record. The names are those of the quantities, but for p1, p2 and p3: the meter's status says which
/// quantity each is.
struct Sa94Column {
    unsigned offset;
    bool word;  ///< two bytes; a float of four otherwise
    std::string_view name;
    Sa94Scale scale = {};
};

/// A present value, told by its code on the wire.
struct Sa94Parameter {
    unsigned code;
    std::string_view name;      ///< what a test calls it
    std::string_view quantity;  ///< what it is when nobody has set it: that of a record, or a rate of one
    Sa94Scale scale = {};
};
inline constexpr unsigned Sa94ParameterCodes = 16;
inline constexpr unsigned Sa94CodeOfTime = 10;
inline constexpr unsigned Sa94CodeOfDate = 11;

/// A firmware. One that nobody knows has the id -1 and no tables.
struct Sa94Firmware {
    int id = -1;
    std::string_view name = {};
    bool extended = false;  ///< large segments
    std::span<const Sa94Parameter> parameters = {};
    std::span<const Sa94Column> hourly = {};
    std::span<const Sa94Column> daily = {};

    std::span<const Sa94Column> columns(Sa94Archive archive) const;
};
std::span<const Sa94Firmware> sa94_firmwares();
/// The one with the longest name that the text begins with, blanks left out.
Sa94Firmware sa94_firmware(const std::string& text);

}  // namespace sim
