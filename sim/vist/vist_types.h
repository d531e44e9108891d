#pragma once
// What a test tells a simulated VIST meter, and what it hears back from it: configuration, values, records.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "km5_types.h"  // for its dates, which are those of any meter

namespace sim {

/// A date as it stands in a meter's memory: plain numbers, the year within the century, local time, never normalised.
using VistDate = Km5Date;
/// A moment: "2024-03-02 11:00" in local time, kept as it stands, or a time_t.
using VistWhen = Km5When;

inline constexpr std::size_t VistMaxDevices = 6;
inline constexpr std::size_t VistChannels = 3;
inline constexpr std::size_t VistRecordFields = 23;
inline constexpr std::size_t VistTotals = 8;

/// The order of the bytes of a number. The meter names it in bit 7 of `enumer`: set is Little.
enum class VistOrder { Big, Little };

/// A number and its decimal exponent, as a packet of present values carries it: {7125, 2} is 71.25.
struct VistValue {
    std::int64_t number = 0;
    std::uint8_t scale = 0;

    bool operator==(const VistValue&) const = default;
};

/// The limits of a channel; both are divided by 10 to the `scale`.
struct VistChannel {
    std::int32_t upper = 0;
    std::uint8_t scale = 0;
    std::int32_t lower = 0;
};

/// How heat is made of masses G and enthalpies H; the indices count from 0.
struct VistFormula {
    std::uint8_t selector = 0;  ///< 0..3 are formulas, others are none
    std::uint8_t iG1 = 0;
    std::uint8_t iT1 = 0;
    std::uint8_t iT2 = 1;
    std::uint8_t iG2 = 1;
    std::uint8_t iT3 = 2;
    std::uint8_t iG3 = 2;
    std::uint8_t iT4 = 3;
};

/// One virtual device (heat system) of a meter.
struct VistDevice {
    std::string name = "TS1";         ///< Windows-1251, up to 12 bytes; the zero behind it falls away at 12
    std::uint32_t type = 0x02000000;  ///< VDS TYPE; bit 25 says that the value is weighted
    VistFormula formula = {};
    std::array<VistChannel, VistChannels> channels = {{{123456, 2, 1200}, {60000, 1, 500}, {32, 0, -4}}};
    std::array<std::int16_t, 3> DN = {50, 40, 25};
    std::uint8_t pt4 = 1;
    std::int16_t dT = 300;
    std::uint8_t qpoint = 2;
    std::uint32_t active_errors = 0;
    std::uint32_t integrator_mask = 0xFF;  ///< which of bits 0..7 the packet holds; higher bits claim what is not there
    std::uint32_t moment_mask = 0x3FFF;    ///< the same for bits 0..13
    std::uint32_t archive_mask = 0x000FFFFF;               ///< the same for bits 0..22 of a record
    std::array<std::uint8_t, 4> precision = {2, 1, 3, 4};  ///< p0..p3 of the archive
    /// Present values by name, over the defaults: IT IQ1 IQ2 IQ3 IM1 IM2 IM3 IE, Q1 Q2 Q3 M1 M2 M3 T1 T2 T3 T4 P1 P2
    /// P3 E.
    std::map<std::string, VistValue> values = {};
    std::array<std::uint8_t, 4> status = {};  ///< e0..e3 of the moment packet
};

/// Everything a meter is when it comes from the factory. A number or a text that the wire cannot carry throws
/// std::invalid_argument.
struct VistConfig {
    int network = 1;                                        ///< the number that CALL names
    std::uint32_t serial = 10001;                           ///< also the seed of what the meter records by itself
    std::optional<std::string> serial_text = std::nullopt;  ///< another text in the place of the serial number
    std::string firmware = "V1.02";
    std::string model = "\xC2\xC8\xD1\xD2-2";  ///< Windows-1251; the Cyrillic letters VIST
    int version = 102;                         ///< from 102 on there is /MON TG, with a clock
    VistOrder order = VistOrder::Big;
    std::uint8_t enumer_rest = 0;                       ///< bits 0..6 of `enumer`, which nobody has named
    std::vector<VistDevice> devices = {VistDevice{}};   ///< one to six
    std::optional<int> claimed_devices = std::nullopt;  ///< another number in the answer to VDC
    bool last_device_repeats = false;                   ///< devices that are only claimed answer as the last true one
    bool answers_end = false;                           ///< END is answered with OK
    bool refuses_far_set = false;     ///< SET beyond the oldest record is an error, and does not go to the oldest
    bool plus_starts_at_set = false;  ///< the first + after a SET or OLD brings that record itself
    std::size_t capacity = 1536;      ///< hourly records of each device; 1..32767
    long clock_offset = 0;            ///< seconds that the meter's clock is ahead
    double clock_drift_ppm = 0.0;     ///< parts per million that it gains, from the first time it hears of
    double answer_delay = 0.02;       ///< seconds from the end of a request to the answer
};

/// An hourly record to store, in units of the world: the meter keeps each value times its power of ten, and a value
/// that then does not fit throws std::invalid_argument. Fields in the order of the wire, so designated initialisers
/// come in this order. A field that the device's archive mask leaves out is lost.
struct VistRecord {
    VistWhen at = {};
    double IT = 1.0;  ///< hours
    double IQ1 = 0.0;
    double IQ2 = 0.0;
    double IQ3 = 0.0;
    double IM1 = 0.0;
    double IM2 = 0.0;
    double IM3 = 0.0;
    double T1 = 0.0;
    double T2 = 0.0;
    double T3 = 0.0;
    double T4 = 0.0;
    double P1 = 0.0;
    double P2 = 0.0;
    double P3 = 0.0;
    double IE = 0.0;                          ///< may be negative
    std::array<std::uint8_t, 4> status = {};  ///< e0..e3
    double share1 = 0.0;                      ///< hours
    double share2 = 0.0;
    double share3 = 0.0;
    double share4 = 0.0;
    std::array<std::uint8_t, 5> rest = {};  ///< bits 20 (three bytes), 21 and 22
};

/// The numbers of a record by mask bit, as the wire carries them. Bits 15 and 20 are bytes; the first is the lowest.
using VistNumbers = std::array<std::int64_t, VistRecordFields>;

/// A record as the meter has it.
struct VistStoredRecord {
    std::time_t time = 0;
    VistDate date = {};
    VistNumbers numbers = {};
    bool erased = false;           ///< reads as 0xFF
    std::size_t bad_readings = 0;  ///< so many readings have a wrong inner sum
};
inline constexpr std::size_t VistForever = std::numeric_limits<std::size_t>::max();

/// The three counts of an archive header.
struct VistCounts {
    std::int16_t held = 0;    ///< RecNum: records in the ring
    std::int16_t newest = 0;  ///< RecNew: place of the newest in the ring, from 0
    std::int16_t most = 0;    ///< RecMax: capacity

    bool operator==(const VistCounts&) const = default;
};

/// An archive header as the meter would give it now.
struct VistHeader {
    std::time_t time = 0;
    VistDate date = {};
    VistCounts counts = {};
    std::array<std::int64_t, VistTotals> totals = {};
};

/// One line that a reader of the archive ought to file: in `file`, dated `time`.
struct VistFileValue {
    std::string file;
    std::time_t time = 0;
    int quality = 192;
    double value = 0.0;
    bool integer = false;  ///< the value is a word of bits

    bool operator==(const VistFileValue&) const = default;
};

/// A command that the meter took for its own.
struct VistHeard {
    std::time_t at = 0;   ///< by the clock that is right
    unsigned device = 0;  ///< selected once the command was done
    std::string line;     ///< without the carriage return
};

}  // namespace sim
