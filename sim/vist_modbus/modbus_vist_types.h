#pragma once
// What a test tells a simulated VIST meter that speaks Modbus, and what it hears back: configuration, records.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "modbus_frames.h"
#include "vist_types.h"  // for dates, formulas and the lines of archive files, which are those of any VIST

namespace sim {

inline constexpr std::size_t ModbusVistSystems = 3;

/// The limits of a channel: the upper one is divided by 10 to the `scale`, the lower one is so many times smaller.
struct ModbusVistChannel {
    std::uint32_t upper = 0;
    std::uint8_t scale = 0;
    std::uint16_t divisor = 1;
};

/// One heat system of a meter.
struct ModbusVistSystem {
    std::string name = "TS1";               ///< Windows-1251, up to 12 bytes; the zero behind it falls away at 12
    std::uint32_t parameters = 0x02373737;  ///< bit 25: weighted value; below, for each channel: Q, G, T, T, P, P, -, -
    VistFormula formula = {};
    std::array<ModbusVistChannel, 3> channels = {{{123456, 2, 100}, {60000, 1, 50}, {32, 0, 4}}};
    std::array<std::uint16_t, 3> temper = {9500, 7000, 500};
    std::array<std::uint16_t, 3> press = {60, 40, 20};
    std::array<std::uint16_t, 3> DU = {50, 40, 25};
    std::uint32_t errors = 0;
    std::uint32_t archive_mask = 0x007FFFFF;                ///< which of bits 0..22 a record holds
    std::optional<std::uint32_t> told_mask = std::nullopt;  ///< another mask in the register block
    std::array<std::uint8_t, 4> precision = {2, 1, 3, 4};   ///< p0..p3 of the archive
    /// Registers of present values by name, over the defaults: see modbus_vist_value_rows().
    std::map<std::string, std::uint32_t> values = {};
};

/// What a meter says of a record that its ring has a place for, but nobody has written yet.
enum class ModbusVistUnwritten { Zeros, Erased, Refused };

/// Everything a meter is when it comes from the factory. What the wire cannot carry throws std::invalid_argument.
struct ModbusVistConfig {
    std::uint32_t serial = 10001;                                  ///< its low byte is the slave address
    std::optional<std::string> serial_text = std::nullopt;         ///< another text in the place of the serial number
    std::string firmware = "V2.10";                                ///< up to 21 bytes
    std::string name = "\xD2\xD1-3";                               ///< Windows-1251, up to 21 bytes
    std::vector<ModbusVistSystem> systems = {ModbusVistSystem{}};  ///< one to three
    std::optional<std::uint8_t> claimed_systems = std::nullopt;    ///< another number in the register block
    std::size_t capacity = 1536;                                   ///< records of each ring; 1..65534
    ModbusVistUnwritten unwritten = ModbusVistUnwritten::Zeros;
    bool short_records = false;    ///< the length of a record counts bytes, and an odd one gets one more
    std::uint8_t filler = 0xA5;    ///< what stands where nobody has named anything
    long clock_offset = 0;         ///< seconds that the meter's clock is ahead
    double clock_drift_ppm = 0.0;  ///< parts per million that it gains, from the first time it hears of
    double answer_delay = 0.02;    ///< seconds from the end of a request to the answer
};

/// An hourly record to store, in units of the world; see modbus_vist_field_rows() for what the meter makes of them. A
/// value that has no room there throws std::invalid_argument. Fields in the order of the wire, so designated
/// initialisers come in this order. A field that the archive mask leaves out is lost.
struct ModbusVistRecord {
    VistWhen at = {};     ///< the beginning of its hour
    double worked = 1.0;  ///< bit 0, hours
    double V1 = 0.0;      ///< bits 1..3
    double V2 = 0.0;
    double V3 = 0.0;
    double M1 = 0.0;  ///< bits 4..6
    double M2 = 0.0;
    double M3 = 0.0;
    double T1 = 0.0;  ///< bits 7..10
    double T2 = 0.0;
    double T3 = 0.0;
    double T4 = 0.0;
    double P1 = 0.0;  ///< bits 11..13
    double P2 = 0.0;
    double P3 = 0.0;
    double E = 0.0;            ///< bit 14
    std::uint32_t status = 0;  ///< bit 15
    double share1 = 0.0;       ///< bits 16..19, hours
    double share2 = 0.0;
    double share3 = 0.0;
    double share4 = 0.0;
    std::uint32_t rest20 = 0;  ///< bit 20, three bytes
    std::uint8_t rest21 = 0;   ///< bit 21
    double share5 = 0.0;       ///< bit 22, hours
};

/// A record as the meter has it.
struct ModbusVistStored {
    std::time_t time = 0;          ///< the beginning of its hour; it is not on the wire
    VistNumbers numbers = {};      ///< by mask bit
    bool erased = false;           ///< reads as 0xFF
    std::size_t bad_readings = 0;  ///< so many readings have a wrong sum
};

/// The three counts of an archive header.
struct ModbusVistCounts {
    std::uint16_t held = 0;  ///< records in the ring
    std::uint16_t next = 0;  ///< place, from 0, of the record to be written next; in a full ring it is the oldest
    std::uint16_t most = 0;  ///< capacity

    bool operator==(const ModbusVistCounts&) const = default;
};

/// An archive header as the meter would give it now.
struct ModbusVistHeader {
    std::time_t time = 0;
    VistDate date = {};
    ModbusVistCounts counts = {};
    std::array<std::uint64_t, VistTotals> totals = {};  ///< V1 V2 V3 M1 M2 M3, 0.01 hours worked, E
};

/// A request that the meter took for its own.
struct ModbusHeard {
    std::time_t at = 0;  ///< by the clock that is right
    ModbusQuestion question = {};
};

}  // namespace sim
