#pragma once
// The archive files of a meter's system side by side: one row for each time, in order of time.

#include <memory>
#include <string>
#include <vector>

#include "contract/archive_reader.h"
#include "contract/catalogue.h"

namespace contract {

/// How records follow one another. A day has 23 to 25 hours where the meter's clock follows summer time; an SA-94 stays
/// at standard time.
enum class Period { Hour, Day, CalendarDay };
Period period_of(const std::string& folder, ArchiveKind kind);
/// The end of the period that begins then; a calendar day ends at the same time of the next one by the gateway's clock.
std::int64_t end_of_period(std::int64_t begin, Period period);

struct ArchiveCell {
    bool there = false;
    int quality = 0;
    std::string_view value;  ///< as it stands in the file
};

struct ArchiveQuestion {
    TimeSpan span;
    std::vector<std::string> names;  ///< empty: all of the kind that are there
    bool good = false;               ///< values of a quality other than 192 are left out
    ArchiveReader::Order order = ArchiveReader::Order::Looked;
    bool by_record = false;  ///< a row holds what belongs to one record of the meter, under the record's end
};

class ArchiveTable {
  public:
    ArchiveTable(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question);

    /// In natural order, those that were asked for also where there is no file.
    const std::vector<std::string>& names() const { return column_names; }
    /// The next row, whose values stand until the next call. False at the end.
    bool next();
    std::int64_t time() const { return row_time; }
    /// By the place of the name.
    const std::vector<ArchiveCell>& cells() const { return row; }

    /// One of the files at least could be opened.
    bool is_open() const;
    /// As of ArchiveReader, of all files together.
    bool was_in_order() const;
    std::size_t unreadable() const;
    bool has_changed() const;

  private:
    struct Column {
        std::unique_ptr<ArchiveReader> reader;
        ArchiveLine line;
        std::int64_t time = 0;  // of the row that it belongs to
        bool has_line = false;
        Dating dating = Dating::End;
    };
    void advance(Column& column);
    bool next_of_one();

    Period period;
    bool good;
    bool by_record;
    std::vector<std::string> column_names;
    std::vector<Column> columns;
    std::vector<ArchiveCell> row;
    std::int64_t row_time = 0;
    std::int64_t last_time = 0;  // of the span
};

/// The names of a kind that have a file in the folder, in natural order.
std::vector<std::string> archive_names(const std::string& folder, ArchiveKind kind);

}  // namespace contract
