#pragma once
// What a test tells a simulated SA-94 meter, and what it hears back from it: configuration, dates, records, requests.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>

#include "km5_types.h"  // for its dates, which are those of any meter

namespace sim {

/// A date as it stands in a meter's memory: plain numbers, the year within the century, never normalised.
using Sa94Date = Km5Date;

/// The clock of an SA-94 knows no summer time: it shows local standard time all the year round.
Sa94Date sa94_date(std::time_t time);
/// The moment that a date in standard time names, by the process's TZ; -1 for one beyond signed 32 bits.
std::time_t sa94_time(const Sa94Date& date);

/// The face of the meter's clock as a number: seconds since 1970-01-01 00:00 on the face, without any zone.
std::int64_t sa94_face(const Sa94Date& date);
Sa94Date sa94_date_of_face(std::int64_t face);
/// The same for many faces in a row, which is quicker where neighbours share a day.
class Sa94Calendar {
  public:
    const Sa94Date& date_of_face(std::int64_t face);

  private:
    std::int64_t midnight_ = -1;
    Sa94Date date_;
};

/// A moment: "2024-03-02 11:00" on the face of the meter's clock, with or without ":30" behind it, or a time_t. A text
/// is kept as it stands, also one that no calendar holds ("2024-02-30 25:00"). A text of another form throws
/// std::invalid_argument, and so does the use of a moment that was never given.
class Sa94When {
  public:
    Sa94When() = default;
    Sa94When(const char* text) : date_(Km5When(text).date()) {}         // NOLINT(google-explicit-constructor)
    Sa94When(const std::string& text) : date_(Km5When(text).date()) {}  // NOLINT(google-explicit-constructor)
    Sa94When(std::time_t time) : date_(sa94_date(time)) {}              // NOLINT(google-explicit-constructor)

    Sa94Date date() const;
    std::time_t time() const { return sa94_time(date()); }

  private:
    std::optional<Sa94Date> date_;
};

/// The archives of a meter. Each is a ring of two segments of memory.
enum class Sa94Archive : std::uint8_t { Hourly = 0, Daily = 1, Errors = 4 };

/// What a ring does with the old records when it comes round to a segment again.
enum class Sa94Turning : std::uint8_t {
    /// The whole segment is erased when its first record is written, as flash memory is. So in each segment the blocks
    /// in use stand before those that are not, in the order of time. A reader that looks for a record, or for the end,
    /// by halving can rely on its steps in such a ring only; so it is the usual one. A turn costs the older half.
    EraseSegment,
    /// Only the block behind the one that is being written is erased: a single null block goes round the ring. Halving
    /// meets it by chance, and may look for new records among the old ones behind it.
    EraseBlockAhead,
    /// Nothing is erased. Once the ring has turned it has no null record, and a walk through it ends nowhere but at a
    /// record that the reader knows already.
    Overwrite,
};

/// The pipes, as the meter has them in its service block.
struct Sa94Tubes {
    std::uint8_t DN1 = 4;  ///< code of the nominal diameter
    std::uint8_t Q1max = 8;
    std::uint8_t Q1min = 4;  ///< per cent of the maximum
    std::uint8_t DN2 = 4;
    std::uint8_t Q2max = 8;
    std::uint8_t Q2min = 4;
};

/// Everything a meter is when it comes from the factory. A number or a text that the wire cannot carry throws
/// std::invalid_argument.
struct Sa94Config {
    std::uint32_t address = 1;  ///< on the bus, 20 bits; also tells the values of one meter from those of another
    /// Up to 14 characters. Decides over the memory, the parameters and the form of records; one that no table holds
    /// makes a meter with small segments and records without values.
    std::string firmware = "M301 1.05";
    std::optional<bool> extended = std::nullopt;  ///< the size of the memory, where it is to belie the firmware
    std::uint8_t status = 0x06;
    Sa94Tubes tubes = {};
    long clock_offset = 0;       ///< seconds that the meter's clock is ahead
    double clock_drift_ppm = 0;  ///< parts per million that it gains, from the first time it hears of
    bool sway = false;           ///< present values that are no totals move with time as well
    Sa94Turning turning = Sa94Turning::EraseSegment;
    double answer_delay = 0.02;  ///< seconds from the end of a request to the answer
};

/// A record to store. The values are the bare numbers of the record, in the meter's own units, by the names of
/// sa94_tables.h; a word is a whole number 0..65535. What is not named is 0.
struct Sa94Record {
    Sa94When at = {};  ///< beginning of the hour or day that it covers
    std::map<std::string, double> values = {};
    std::optional<std::uint8_t> status = std::nullopt;  ///< of an hourly record; the meter's present one otherwise
};

struct Sa94Event {
    Sa94When at = {};
    std::uint8_t code = 0;  ///< 0..127
    bool stopped = false;
};

/// How to fill a ring at once.
struct Sa94Fill {
    std::size_t records = 0;     ///< as if so many had been written one by one; more than it holds make it turn
    Sa94When newest = {};        ///< date of the last one
    long step = 0;               ///< seconds between two; 0: an hour, a day, or ten minutes between errors
    bool begin_in_high = false;  ///< the first one goes to the start of the high segment
    bool bare = false;           ///< date, status and hour only: fast
};

/// Where a record lies, and the time that its bytes say; -1 when they say none.
struct Sa94StoredRecord {
    std::time_t time = 0;
    unsigned segment = 0;
    unsigned block = 0;
    unsigned position = 0;

    bool operator==(const Sa94StoredRecord&) const = default;
};

/// A line that a reader of the archive ought to file.
struct Sa94FileValue {
    std::string file;
    std::time_t time = 0;
    int quality = 192;
    double value = 0.0;

    bool operator==(const Sa94FileValue&) const = default;
};

}  // namespace sim
