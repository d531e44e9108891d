#include "contract/thinning.h"

#include <algorithm>

namespace contract {

namespace {

bool is_number(std::string_view value) {
    return !value.empty() && value.back() != 'f' && value.back() != 'n';
}

/// Of two numbers without a sign and with as many digits behind the point.
bool has_less_digits(std::string_view one, std::string_view other) {
    const auto strip = [](std::string_view& number) {
        while (number.size() > 1 && number[0] == '0' && number[1] != '.') number.remove_prefix(1);
    };
    strip(one);
    strip(other);
    return one.size() != other.size() ? one.size() < other.size() : one < other;
}

/// Rows side by side in one piece of memory.
class Rows {
  public:
    explicit Rows(std::size_t names) : columns(names) {}

    std::size_t count() const { return times.size(); }
    std::int64_t time(std::size_t row) const { return times[row]; }
    std::string_view value(std::size_t row, std::size_t column) const {
        const std::size_t cell = row * columns + column;
        return std::string_view(text).substr(ends[cell], ends[cell + 1] - ends[cell]);
    }

    void begin_row(std::int64_t time) { times.push_back(time); }
    void add_value(std::string_view value) {
        text += value;
        ends.push_back(static_cast<std::uint32_t>(text.size()));
    }

    /// Leaves of each span of so many seconds the rows with the least and the greatest value of each name.
    void thin(std::int64_t step) {
        Rows left(columns);
        for (std::size_t begin = 0, end = 0; begin < count(); begin = end) {
            const std::int64_t span = span_of(begin, step);
            while (end < count() && span_of(end, step) == span) ++end;
            for (const std::size_t row : extremes(begin, end)) {
                left.begin_row(time(row));
                for (std::size_t column = 0; column < columns; ++column) left.add_value(value(row, column));
            }
        }
        *this = std::move(left);
    }

  private:
    std::int64_t span_of(std::size_t row, std::int64_t step) const {
        const std::int64_t span = times[row] / step;
        return times[row] % step < 0 ? span - 1 : span;
    }

    std::vector<std::size_t> extremes(std::size_t begin, std::size_t end) const {
        std::vector<std::size_t> found;
        for (std::size_t column = 0; column < columns; ++column) {
            std::size_t least = end;
            std::size_t greatest = end;
            for (std::size_t row = begin; row < end; ++row) {
                const std::string_view of_row = value(row, column);
                if (!is_number(of_row)) continue;
                if (least == end || is_less(of_row, value(least, column))) least = row;
                if (greatest == end || is_less(value(greatest, column), of_row)) greatest = row;
            }
            if (least == end) continue;
            found.push_back(least);
            found.push_back(greatest);
        }
        if (found.empty()) found.push_back(begin);
        std::ranges::sort(found);
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }

    std::size_t columns;
    std::vector<std::int64_t> times;
    std::vector<std::uint32_t> ends = {0};  // of the values in the text
    std::string text;
};

/// Stretches of time one after the other; what is nearer than a step to the last one makes that one longer.
void join(std::vector<Thinned::Times>& stretches, std::int64_t step) {
    std::vector<Thinned::Times> joined;
    for (const Thinned::Times& stretch : stretches) {
        if (!joined.empty() && stretch.first - joined.back().second < step) {
            joined.back().second = stretch.second;
        } else {
            joined.push_back(stretch);
        }
    }
    stretches = std::move(joined);
}

/// What one column tells beside its values.
class Marks {
  public:
    Marks(Period records, bool may_miss) : period(records), counts_holes(may_miss) {}

    void see(std::int64_t time, int quality) {
        const std::int64_t half = period == Period::Hour ? 1800 : 43200;
        if (counts_holes && has_last && time - last > 2 * half && time > end_of_period(last, period) + half) {
            holes.emplace_back(last, time);
        }
        if (quality != 192) {
            if (is_bad) {
                bad.back().second = time;
            } else {
                bad.emplace_back(time, time);
            }
        }
        is_bad = quality != 192;
        last = time;
        has_last = true;
    }

    std::vector<Thinned::Times> holes;
    std::vector<Thinned::Times> bad;

  private:
    Period period;
    bool counts_holes;
    bool has_last = false;
    bool is_bad = false;
    std::int64_t last = 0;
};

Thinned read(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question, std::size_t most,
             bool staged, bool& in_order) {
    Thinned thinned;
    ArchiveTable table(folder, kind, question);
    thinned.names = table.names();
    const std::size_t columns = thinned.names.size();
    most = std::max(most, 2 * columns);
    Rows rows(columns);
    std::vector<Marks> marks;
    const Period period = period_of(folder, kind);
    for (const std::string& name : thinned.names) {
        const ArchiveEntry* const entry = find_archive(name);
        const bool is_total = entry != nullptr && entry->dating == Dating::End;
        marks.emplace_back(period, kind != ArchiveKind::Events && !(staged && is_total));
    }
    constexpr std::int64_t ShortestStep = 3600;
    const auto thin_to = [&](std::size_t count) {
        if (thinned.step == 0) thinned.step = ShortestStep;
        rows.thin(thinned.step);
        while (rows.count() > count) {
            thinned.step *= 2;
            rows.thin(thinned.step);
        }
        for (Marks& mark : marks) {
            join(mark.holes, thinned.step);
            join(mark.bad, thinned.step);
        }
    };
    for (bool first = true; table.next(); first = false) {
        if (rows.count() == 2 * most) thin_to(most);
        if (first) thinned.from = table.time();
        thinned.to = table.time();
        rows.begin_row(table.time());
        for (std::size_t i = 0; i < columns; ++i) {
            const ArchiveCell& cell = table.cells()[i];
            rows.add_value(cell.there ? cell.value : std::string_view());
            if (cell.there) marks[i].see(table.time(), cell.quality);
        }
    }
    if (rows.count() > most) thin_to(most);
    for (std::size_t row = 0; row < rows.count(); ++row) {
        ThinRow& kept = thinned.rows.emplace_back();
        kept.time = rows.time(row);
        for (std::size_t i = 0; i < columns; ++i) kept.values.emplace_back(rows.value(row, i));
    }
    for (Marks& mark : marks) {
        thinned.holes.push_back(std::move(mark.holes));
        thinned.bad.push_back(std::move(mark.bad));
    }
    thinned.is_open = table.is_open();
    thinned.unreadable = table.unreadable();
    thinned.has_changed = table.has_changed();
    in_order = table.was_in_order();
    return thinned;
}

}  // namespace

bool is_less(std::string_view one, std::string_view other) {
    if (!is_number(one) || !is_number(other)) return false;
    const bool one_is_negative = one.front() == '-';
    const bool other_is_negative = other.front() == '-';
    if (one_is_negative != other_is_negative) return one_is_negative;
    if (one_is_negative) return has_less_digits(other.substr(1), one.substr(1));
    return has_less_digits(one, other);
}

Thinned thin(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question, std::size_t most,
             bool staged) {
    bool in_order = true;
    ArchiveQuestion once = question;
    once.order = ArchiveReader::Order::Trusted;
    Thinned thinned = read(folder, kind, once, most, staged, in_order);
    return in_order ? thinned : read(folder, kind, question, most, staged, in_order);
}

}  // namespace contract
