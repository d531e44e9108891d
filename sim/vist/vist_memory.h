#pragma once
// The memory of one virtual device of a simulated VIST meter: present values, status, ring of hourly records. And the
// tables that say what stands where.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vist_types.h"

namespace sim {

/// A value of a packet of present values; its mask bit is its place in the table.
struct VistPresentRow {
    std::string_view name;
    std::size_t width;     ///< bytes; a single byte is unsigned, others are signed
    VistValue when_unset;  ///< in device 0; each further device is one higher
};
std::span<const VistPresentRow> vist_integrator_rows();
std::span<const VistPresentRow> vist_moment_rows();

/// What makes a filed value doubtful: quality 0 in the place of 192.
enum class VistDoubt { Never, From500, AtZero };

/// A field of an archive record; its mask bit is its place in the table.
struct VistFieldRow {
    std::string_view file;  ///< empty: nobody files it
    std::size_t width;      ///< bytes
    int precision;          ///< which of p0..p3 is its power of ten; -1: `power` is
    int power;
    bool is_signed;
    VistDoubt doubt;
};
std::span<const VistFieldRow, VistRecordFields> vist_field_rows();

/// A total of an archive header. All are always there; the mask bit says whether it is filed.
struct VistTotalRow {
    std::string_view file;
    unsigned mask_bit;
    int precision;
    int power;
};
std::span<const VistTotalRow, VistTotals> vist_total_rows();

inline constexpr std::size_t VistStatusField = 15;

/// The 32-bit word that is filed (or shown, when not for the archive) for status bytes e0..e3.
std::uint32_t vist_status_word(const std::array<std::uint8_t, 4>& status, bool for_archive);

/// What a meter puts into a record or a header by itself; see VistMeter.
std::int64_t vist_recorded_number(std::uint32_t serial, unsigned device, std::time_t record_time, std::size_t field);
std::int64_t vist_recorded_total(std::uint32_t serial, unsigned device, std::time_t header_time, std::size_t total);

/// A ring of hourly records. Each record has a sequence number that it keeps while it is held, whatever comes after it.
class VistRing {
  public:
    using Sequence = std::uint64_t;

    explicit VistRing(std::size_t capacity) : capacity_(capacity) {}

    void push(const VistStoredRecord& record);
    void forget();
    /// The record is gone, and those after it move up.
    void remove(Sequence sequence);

    bool empty() const { return records_.empty(); }
    VistCounts counts() const;
    Sequence oldest() const { return first_; }
    Sequence newest() const { return first_ + records_.size() - 1; }  ///< one before the oldest when empty
    VistStoredRecord& at(Sequence sequence) { return records_.at(sequence - first_); }
    /// The newest record of that date; throws std::out_of_range when there is none.
    Sequence find(const VistDate& date) const;
    const std::deque<VistStoredRecord>& records() const { return records_; }

  private:
    std::size_t capacity_;
    std::deque<VistStoredRecord> records_;
    Sequence first_ = 1;
};

/// Everything a virtual device keeps for itself.
class VistMemory {
  public:
    VistMemory(VistDevice device, unsigned number, std::size_t capacity);

    /// Both throw std::invalid_argument for a name that no packet has; the first also for a number that does not fit.
    void set_value(const std::string& name, VistValue value);
    VistValue value(std::string_view name) const;

    /// The numbers of a record by the device's powers of ten.
    VistStoredRecord stored(const VistRecord& record) const;

    VistDevice device;
    VistRing ring;
    std::optional<VistCounts> claimed_counts;
    std::optional<VistWhen> header_time;
    std::optional<std::array<std::int64_t, VistTotals>> totals;
    std::size_t header_bad_readings = 0;

  private:
    unsigned number_;
};

/// The lines that a reader ought to file for a record: each in its own file, an hour before the record's full hour.
std::vector<VistFileValue> vist_record_files(const VistDevice& device, const VistStoredRecord& record);
/// The same for the totals of a header, at the header's own time.
std::vector<VistFileValue> vist_header_files(const VistDevice& device, const VistHeader& header);

}  // namespace sim
