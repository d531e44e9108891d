#pragma once
// One archive file in order of time: of each time the line that was written last. Lines are out of order where a
// meter's records were read again, where a clock was wrong for a while, in the doubled hour of autumn.
//
// A file in order is streamed, whatever its length. One that is not keeps 16 bytes in memory for each line.

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "contract/archive_lines.h"

namespace contract {

/// `from` is included, `to` is not.
struct TimeSpan {
    std::int64_t from = std::numeric_limits<std::int64_t>::min();
    std::int64_t to = std::numeric_limits<std::int64_t>::max();

    bool holds(std::int64_t time) const { return time >= from && time < to; }
};

/// Where the lines from this time on begin in a file of this size, looked for from its end: nothing in front of it is
/// newer. The search ends at a stretch of 64 KiB that holds older lines only. That is three months of hourly lines,
/// more than any meter remembers, so a repeated reading is found whole; a line in every further stretch is looked at
/// for a clock that was ahead for as long.
off_t begin_of(File& file, off_t size, std::int64_t from);

class ArchiveReader {
  public:
    enum class Order {
        Looked,   ///< the file is looked through first
        Trusted,  ///< it is read once; `was_in_order` tells at the end whether what has come is right
    };

    /// Looks through the file as far as the span needs. A file that cannot be opened has no lines.
    ArchiveReader(const std::string& path, const TimeSpan& span, Order order = Order::Looked);
    /// What the file held when it was opened.
    ArchiveReader(File file, const TimeSpan& span, Order order = Order::Looked);
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    /// The next line, whose value stands until the next call; false at the end.
    bool next(ArchiveLine& line);

    bool is_open() const { return file.is_open(); }
    /// Lines of the span's part of the file that are none.
    std::size_t unreadable() const { return trusts ? lines.unreadable() : unreadable_count; }
    /// Of one that was trusted, when all has come.
    bool was_in_order() const { return in_order; }
    /// The file was emptied or replaced while it was read: what has come is not the whole.
    bool has_changed() const { return lines.is_short() || changed; }

  private:
    struct Place {
        std::int32_t time;
        off_t offset;
    };

    bool is_in_order(off_t begin, off_t size);
    void put_in_order(off_t begin, off_t size);

    File file;
    TimeSpan span;
    bool trusts;
    bool in_order = true;
    std::int64_t last_time = std::numeric_limits<std::int64_t>::min();  // of one that is trusted
    bool changed = false;
    std::vector<Place> places;  // of a file that is not in order
    std::size_t next_place = 0;
    std::size_t unreadable_count = 0;
    ArchiveLines lines;
};

}  // namespace contract
