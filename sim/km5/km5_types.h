#pragma once
// What a test tells a simulated KM5 meter, and what it hears back from it: configuration, dates, records, events.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim_meter.h"

namespace sim {

/// The archives of a meter, numbered as on the wire.
enum class Km5Archive : std::uint8_t { Hourly = 0, Daily = 1, Monthly = 2, Yearly = 3, Errors = 4 };
inline constexpr std::size_t Km5ArchiveCount = 5;
inline constexpr std::size_t Km5MaxSubsystems = 3;
inline constexpr std::size_t Km5FieldCount = 14;

/// The floats of an archive record in the order of the wire; field k lies at answer position 13 + 4k.
inline constexpr std::array<std::string_view, Km5FieldCount> Km5FieldNames = {
    "ta", "P1", "P2", "P3", "T1", "T2", "T3", "IM1", "IM2", "Vi", "IV1", "IV2", "IQ", "IT"};
using Km5Floats = std::array<float, Km5FieldCount>;

/// A date as it stands in a meter's memory: plain numbers, local time, never normalised. Each must be 0..99 to survive
/// the BCD of the wire; the century is 2000.
struct Km5Date {
    int year = 0;  ///< within the century
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;

    auto operator<=>(const Km5Date&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is compared
};

/// A moment, as a test likes to write it: "2024-03-02 11:00", with or without ":30" behind it, in local time (the
/// process's TZ at the moment of use), or a time_t. A text is kept as it stands, also one that no calendar holds
/// ("2024-02-30 25:00"). A text of another form throws std::invalid_argument.
class Km5When {
  public:
    Km5When() = default;
    Km5When(const char* text);         // NOLINT(google-explicit-constructor): `.at = "2024-03-02 11:00"`
    Km5When(const std::string& text);  // NOLINT(google-explicit-constructor)
    Km5When(std::time_t time);         // NOLINT(google-explicit-constructor)

    /// Both throw std::invalid_argument when nothing was given.
    Km5Date date() const;
    std::time_t time() const;  ///< of a text: mktime, which chooses in the doubled hour of autumn

  private:
    std::optional<Km5Date> date_;
    std::optional<std::time_t> time_;
};

/// An archive record to store; fields in the order of the wire, so designated initialisers come in this order.
/// Pressures in the meter's unit, temperatures in degrees Celsius, masses in t, volumes in m3, IQ in Gcal, IT in hours.
struct Km5Record {
    Km5When at = {};
    float ta = 0.0F;
    float P1 = 0.0F;
    float P2 = 0.0F;
    float P3 = 0.0F;
    float T1 = 0.0F;
    float T2 = 0.0F;
    float T3 = 0.0F;
    float IM1 = 0.0F;
    float IM2 = 0.0F;
    float Vi = 0.0F;
    float IV1 = 0.0F;
    float IV2 = 0.0F;
    float IQ = 0.0F;
    float IT = 0.0F;

    Km5Floats floats() const { return {ta, P1, P2, P3, T1, T2, T3, IM1, IM2, Vi, IV1, IV2, IQ, IT}; }
};

/// A record as the meter has it.
struct Km5StoredRecord {
    std::time_t time = 0;
    Km5Date date = {};
    Km5Floats values = {};
};

/// An event as the meter has it; bit 7 of the code is the state bit, bits 0..6 are the kind.
struct Km5StoredEvent {
    std::time_t time = 0;
    Km5Date date = {};
    std::uint8_t code = 0;
};

/// What a meter says about the extent of a ring. `flag` has bit 7 set when there is no first record: the ring is empty.
struct Km5Bounds {
    std::uint8_t flag = 0;
    std::uint16_t first = 0;  ///< index of the oldest record
    std::uint16_t last = 0;   ///< index of the newest record; below `first` when the ring has turned
    std::uint16_t count = 0;  ///< records held; the capacity once the ring is full

    bool operator==(const Km5Bounds&) const = default;
};

/// Records that each ring holds; 1..65535.
struct Km5Capacities {
    std::size_t hourly = 768;
    std::size_t daily = 128;
    std::size_t monthly = 32;
    std::size_t yearly = 8;
    std::size_t errors = 128;
};

/// Everything a meter is when it comes from the factory. A bad number or text throws std::invalid_argument.
struct Km5Config {
    std::uint32_t serial = 12345678;  ///< up to eight digits; its BCD pairs are the address, the lowest pair first
    int model = 1;                    ///< 1..7; the identity answer counts it from 0
    bool att = false;                 ///< an AT-T: type letters "ATT" and the model's digit
    bool km56i = false;               ///< a KM5-6i: type letters "KM5I"; overrules `att`
    unsigned subsystems = 1;          ///< 1..3; more than one only for a KM5-6i, others have one
    std::string firmware = "2.15";    ///< exactly four characters
    /// Type letters other than those that follow from the above; exactly four characters.
    std::optional<std::string> type_letters = std::nullopt;
    /// A model index other than `model` - 1 in the identity answer.
    std::optional<std::uint8_t> model_index = std::nullopt;
    /// Parameters by number, over the defaults for 68, 70, 73, 75 and 108..119; the same in all subsystems.
    std::map<int, float> eeprom = {};
    /// Answer positions 5..11 of the status.
    std::array<std::uint8_t, 7> status = {0x10, 0x20, 0x00, 0x01, 0x00, 0x00, 0x40};
    long clock_offset = 0;        ///< seconds that the meter's clock is ahead
    double clock_drift_ppm = 0;   ///< parts per million that it gains, from the first time it hears of
    Km5Capacities capacity = {};  ///< the same in all subsystems
    double answer_delay = 0.02;   ///< seconds from the end of a request to the answer
};

/// A request that was meant for the meter and had right sums.
struct Km5Heard {
    std::time_t at = 0;  ///< by the clock that is right
    unsigned subsystem = 0;
    std::array<std::uint8_t, 16> frame = {};

    std::uint8_t command() const { return frame[4]; }
    std::uint8_t data(std::size_t k) const { return frame.at(5 + k); }  ///< k is 0..8
};

}  // namespace sim
