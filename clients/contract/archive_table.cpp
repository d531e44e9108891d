#include "contract/archive_table.h"

#include <algorithm>

#include "contract/site.h"
#include "core/local_time.h"

namespace contract {

std::vector<std::string> archive_names(const std::string& folder, ArchiveKind kind) {
    std::vector<std::string> names = names_in(folder);
    std::erase_if(names, [kind](const std::string& name) {
        const ArchiveEntry* const entry = find_archive(name);
        return entry == nullptr || entry->kind != kind;
    });
    return names;
}

Period period_of(const std::string& folder, ArchiveKind kind) {
    if (kind != ArchiveKind::Daily) return Period::Hour;
    const auto is_of_sa94 = [](const std::string& name) {
        const ArchiveEntry* const entry = find_archive(name);
        return entry != nullptr && entry->families == SA94;
    };
    return std::ranges::any_of(names_in(folder), is_of_sa94) ? Period::Day : Period::CalendarDay;
}

std::int64_t end_of_period(std::int64_t begin, Period period) {
    constexpr std::int64_t Hour = 3600;
    constexpr std::int64_t Day = 86400;
    if (period != Period::CalendarDay) return begin + (period == Period::Hour ? Hour : Day);
    std::tm day = local_time(static_cast<std::time_t>(begin));
    std::tm midnight = day;
    midnight.tm_hour = midnight.tm_min = midnight.tm_sec = 0;
    midnight.tm_isdst = -1;
    // A KM5 dates the means of the day of 25 hours at 23:00, an hour in front of the day's end.
    if (begin - make_time(midnight) == Day) return begin + Hour;
    ++day.tm_mday;
    day.tm_isdst = -1;
    const std::int64_t end = make_time(day);
    return end > begin ? end : begin + Day;  // of the last day that the clock can hold
}

ArchiveTable::ArchiveTable(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question)
    : period(period_of(folder, kind)),
      good(question.good),
      by_record(question.by_record),
      column_names(question.names) {
    if (column_names.empty()) column_names = archive_names(folder, kind);
    std::ranges::sort(column_names, comes_before);
    column_names.erase(std::unique(column_names.begin(), column_names.end()), column_names.end());
    row.resize(column_names.size());
    for (const std::string& name : column_names) {
        Column& column = columns.emplace_back();
        TimeSpan span = question.span;
        const ArchiveEntry* const entry = find_archive(name);
        if (by_record && entry != nullptr) column.dating = entry->dating;
        if (column.dating == Dating::Beginning) {
            // What begins a period before the span belongs to a record in it.
            constexpr std::int64_t LongestPeriod = 2 * 86400;
            if (span.from > std::numeric_limits<std::int32_t>::min()) span.from -= LongestPeriod;
        }
        column.reader = std::make_unique<ArchiveReader>(folder + '/' + name, span, question.order);
        do {
            advance(column);
        } while (column.has_line && column.time < question.span.from);
    }
    last_time = question.span.to;
}

void ArchiveTable::advance(Column& column) {
    do {
        column.has_line = column.reader->next(column.line);
    } while (column.has_line && good && column.line.quality != 192);
    column.time = column.line.time;
    if (column.dating == Dating::Beginning) column.time = end_of_period(column.time, period);
}

bool ArchiveTable::next() {
    if (columns.size() == 1) return next_of_one();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (row[i].there) advance(columns[i]);
        row[i].there = false;
    }
    row_time = last_time;
    for (const Column& column : columns) {
        if (column.has_line) row_time = std::min(row_time, column.time);
    }
    if (row_time >= last_time) return false;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        Column& column = columns[i];
        if (column.has_line && column.time == row_time) {
            row[i] = {.there = true, .quality = column.line.quality, .value = column.line.value};
        }
    }
    return true;
}

bool ArchiveTable::next_of_one() {
    Column& column = columns.front();
    if (row[0].there) advance(column);
    row[0] = {.there = column.has_line && column.time < last_time,
              .quality = column.line.quality,
              .value = column.line.value};
    row_time = column.time;
    return row[0].there;
}

bool ArchiveTable::is_open() const {
    return std::ranges::any_of(columns, [](const Column& column) { return column.reader->is_open(); });
}

bool ArchiveTable::was_in_order() const {
    return std::ranges::all_of(columns, [](const Column& column) { return column.reader->was_in_order(); });
}

std::size_t ArchiveTable::unreadable() const {
    std::size_t count = 0;
    for (const Column& column : columns) count += column.reader->unreadable();
    return count;
}

bool ArchiveTable::has_changed() const {
    return std::ranges::any_of(columns, [](const Column& column) { return column.reader->has_changed(); });
}

}  // namespace contract
