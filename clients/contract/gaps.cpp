#include "contract/gaps.h"

#include <algorithm>
#include <optional>
#include <set>

#include "contract/site.h"
#include "core/local_time.h"

namespace contract {

namespace {

constexpr std::int64_t Hour = 3600;
constexpr std::int64_t Day = 86400;

/// Hours and days, numbered.
class Calendar {
  public:
    /// Records come at the minute of the hour, or the time of the day, at which this one came.
    Calendar(Period period_of_records, std::int64_t record)
        : period(period_of_records), length(period == Period::Hour ? Hour : Day), first(record) {}

    std::int64_t number(std::int64_t time) const {
        if (period != Period::CalendarDay) {
            const std::int64_t since = time - first % length;
            return (since - ((since % length) + length) % length) / length;
        }
        std::tm day = local_time(static_cast<std::time_t>(time));
        day.tm_hour = day.tm_min = day.tm_sec = 0;
        return std::int64_t{::timegm(&day)} / Day;
    }

    std::int64_t time(std::int64_t number) const {
        if (period != Period::CalendarDay) return number * length + first % length;
        std::tm day = local_time(static_cast<std::time_t>(first));
        const std::int64_t days = number - this->number(first);
        day.tm_mday += static_cast<int>(days);
        day.tm_isdst = -1;
        const std::int64_t moment = make_time(day);
        return (moment > first) == (days > 0) ? moment : first + days * Day;  // that the clock cannot hold
    }

    /// The first record that comes at this time or later.
    std::int64_t number_from(std::int64_t moment) const {
        const std::int64_t number_then = number(moment);
        return time(number_then) >= moment ? number_then : number_then + 1;
    }

  private:
    Period period;
    std::int64_t length;
    std::int64_t first;
};

/// Looks through a file alone, for what stands there twice and for what is no line.
void look_through(const std::string& path, const std::string& name, const TimeSpan& span, Gaps& gaps) {
    struct Place {
        std::int32_t time;
        off_t offset;
    };
    File file = open_archive(path);
    struct stat status {};
    if (!file || !file.look(status)) return;
    std::vector<Place> places;
    ArchiveLines lines(file, begin_of(file, status.st_size, span.from), status.st_size);
    ArchiveLine line;
    while (lines.next(line)) {
        if (span.holds(line.time)) places.push_back({line.time, lines.position()});
    }
    gaps.unreadable += lines.unreadable();
    gaps.has_changed = gaps.has_changed || lines.is_short();
    std::ranges::stable_sort(places, {}, &Place::time);
    const auto same_time = [](const Place& one, const Place& other) { return one.time == other.time; };
    for (auto at = std::ranges::adjacent_find(places, same_time); at != places.end();) {
        Gaps::Contradiction contradiction{.time = at->time, .name = name, .values = {}};
        std::set<std::string, std::less<>> known;
        for (; at != places.end() && at->time == contradiction.time; ++at) {
            lines.go_to(at->offset);
            if (lines.next(line) && known.emplace(line.value).second) contradiction.values.emplace_back(line.value);
        }
        if (contradiction.values.size() > 1) gaps.contradictions.push_back(std::move(contradiction));
        at = std::adjacent_find(at, places.end(), same_time);
    }
}

}  // namespace

Gaps find_gaps(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question, bool staged) {
    ArchiveQuestion wanted = question;
    wanted.by_record = true;
    if (wanted.names.empty()) wanted.names = archive_names(folder, kind);
    Gaps gaps;
    std::ranges::sort(wanted.names, comes_before);
    wanted.names.erase(std::unique(wanted.names.begin(), wanted.names.end()), wanted.names.end());
    for (const std::string& name : wanted.names) look_through(folder + '/' + name, name, question.span, gaps);
    std::ranges::stable_sort(gaps.contradictions, {}, &Gaps::Contradiction::time);
    if (staged) {
        std::erase_if(wanted.names, [](const std::string& name) {
            const ArchiveEntry* const entry = find_archive(name);
            return entry != nullptr && entry->dating == Dating::End;
        });
        if (wanted.names.empty()) return gaps;
    }
    const Period period = period_of(folder, kind);
    ArchiveTable table(folder, kind, wanted);
    std::vector<std::int64_t> numbers;  // of the records that are there
    std::optional<Calendar> calendar;
    std::int64_t first = 0;
    std::int64_t last = 0;
    while (table.next()) {
        if (!calendar) {
            calendar.emplace(period, table.time());
            first = table.time();
        }
        last = table.time();
        const std::int64_t number = calendar->number(last);
        if (numbers.empty() || numbers.back() != number) numbers.push_back(number);
        Gaps::Incomplete record{.time = last, .missing = {}};
        for (std::size_t i = 0; i < table.cells().size(); ++i) {
            if (!table.cells()[i].there) record.missing.push_back(table.names()[i]);
        }
        if (!record.missing.empty()) gaps.incomplete.push_back(std::move(record));
    }
    gaps.has_changed = gaps.has_changed || table.has_changed();
    if (!calendar) calendar.emplace(period, std::max<std::int64_t>(0, question.span.from));
    const TimeSpan all;
    if (!numbers.empty()) {
        gaps.from = first;
        gaps.to = end_of_period(last, period);
    }
    if (question.span.from != all.from) gaps.from = question.span.from;
    if (question.span.to != all.to) gaps.to = question.span.to;
    if (!gaps.from || !gaps.to) return gaps;

    const std::int64_t begin = calendar->number_from(*gaps.from);
    const std::int64_t end = calendar->number_from(*gaps.to);
    gaps.expected = static_cast<std::size_t>(std::max<std::int64_t>(0, end - begin));
    numbers.push_back(end);
    std::int64_t next = begin;
    for (const std::int64_t number : numbers) {
        if (number > next) {
            gaps.holes.push_back(
                {calendar->time(next), calendar->time(number), static_cast<std::size_t>(number - next)});
        }
        next = std::max(next, number + 1);
    }
    gaps.present = numbers.size() - 1;
    return gaps;
}

}  // namespace contract
