#include "contract/thinning.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace contract {

namespace {

bool is_number(std::string_view value) {
    return !value.empty() && value.back() != 'f' && value.back() != 'n';
}

/// Eight characters, the first one highest.
std::uint64_t eight_at(const char* text) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, text, sizeof eight);
    static_assert(std::endian::native == std::endian::little);
    return __builtin_bswap64(eight);
}

/// Of two numbers without a sign and with six digits behind the point.
bool has_less_digits(std::string_view one, std::string_view other) {
    const auto strip = [](std::string_view& number) {
        while (number[0] == '0' && number[1] != '.') number.remove_prefix(1);
    };
    strip(one);
    strip(other);
    if (one.size() != other.size()) return one.size() < other.size();
    // Eight characters at least: most pairs differ in the first of them.
    const std::uint64_t front = eight_at(one.data());
    const std::uint64_t other_front = eight_at(other.data());
    return front != other_front ? front < other_front : one < other;
}

/// As is_less, of numbers.
bool is_less_number(std::string_view one, std::string_view other) {
    const bool one_is_negative = one.front() == '-';
    const bool other_is_negative = other.front() == '-';
    if (one_is_negative != other_is_negative) return one_is_negative;
    if (one_is_negative) return has_less_digits(other.substr(1), one.substr(1));
    return has_less_digits(one, other);
}

std::int64_t span_of(std::int64_t time, std::int64_t step) {
    return time / step - (time % step < 0 ? 1 : 0);
}

/// Rows side by side in one piece of memory.
class Rows {
  public:
    explicit Rows(std::size_t names) : columns(names) {}

    std::size_t count() const { return times.size(); }
    std::int64_t time(std::size_t row) const { return times[row]; }
    std::string_view value(std::size_t row, std::size_t column) const {
        const std::size_t cell = row * columns + column;
        return {text.data() + ends[cell], ends[cell + 1] - ends[cell]};
    }

    void add(std::int64_t time, const std::vector<ArchiveCell>& cells) {
        times.push_back(time);
        for (const ArchiveCell& cell : cells) add_value(cell.there ? cell.value : std::string_view());
    }
    void add(const Rows& other, std::size_t row) {
        times.push_back(other.time(row));
        for (std::size_t column = 0; column < columns; ++column) add_value(other.value(row, column));
    }
    void clear() {
        times.clear();
        ends.resize(1);
        text.clear();
    }

  private:
    void add_value(std::string_view value) {
        text += value;
        ends.push_back(static_cast<std::uint32_t>(text.size()));
    }

    std::size_t columns;
    std::vector<std::int64_t> times;
    std::vector<std::uint32_t> ends = {0};  // of the values in the text
    std::string text;
};

/// The rows of one span with the least and the greatest value of each name, as they come.
class Span {
  public:
    explicit Span(std::size_t names)
        : rows(names), least(names), greatest(names), least_value(names), greatest_value(names) {
        clear();
    }

    template <typename Value, typename Keep>
    void see(const Value& value_of, const Keep& keep) {
        bool is_kept = rows.count() == 0;
        const std::size_t row = rows.count();
        for (std::size_t i = 0; i < least.size(); ++i) {
            const std::string_view value = value_of(i);
            if (!is_number(value)) continue;
            const bool is_first = least[i] == None;
            const bool is_least = is_first || is_less_number(value, least_value[i]);
            const bool is_greatest = is_first || is_less_number(greatest_value[i], value);
            if (is_least) {
                least[i] = row;
                least_value[i] = value;
            }
            if (is_greatest) {
                greatest[i] = row;
                greatest_value[i] = value;
            }
            is_kept = is_kept || is_least || is_greatest;
        }
        if (!is_kept) return;
        keep(rows);
        if (rows.count() > MostRows) tidy();
    }

    /// Hands over what is kept, in order of time, and begins anew.
    void move_to(Rows& others) {
        for (const std::size_t row : extremes()) others.add(rows, row);
        clear();
    }

  private:
    static constexpr std::size_t None = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t MostRows = 1024;  // those among them that are extreme no more go

    std::vector<std::size_t> extremes() const {
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i < least.size(); ++i) {
            if (least[i] != None) found.insert(found.end(), {least[i], greatest[i]});
        }
        if (found.empty() && rows.count() != 0) found.push_back(0);
        std::ranges::sort(found);
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }
    void tidy() {
        const std::vector<std::size_t> kept = extremes();
        Rows left = std::move(rows);
        rows = Rows(least.size());
        for (const std::size_t row : kept) rows.add(left, row);
        for (std::vector<std::size_t>* const places : {&least, &greatest}) {
            for (std::size_t& place : *places) {
                if (place == None) continue;
                place = static_cast<std::size_t>(std::ranges::lower_bound(kept, place) - kept.begin());
            }
        }
    }
    void clear() {
        rows.clear();
        std::ranges::fill(least, None);
        std::ranges::fill(greatest, None);
    }

    Rows rows;
    std::vector<std::size_t> least;  // places among the rows
    std::vector<std::size_t> greatest;
    std::vector<std::string> least_value;
    std::vector<std::string> greatest_value;
};

/// All rows as long as there is room for them, then those of spans that grow with what comes.
class Thinner {
  public:
    Thinner(std::size_t names, std::size_t most_rows) : columns(names), most(most_rows), rows(names), span(names) {}

    void see(std::int64_t time, const std::vector<ArchiveCell>& cells) {
        if (step_now == 0) {
            rows.add(time, cells);
            if (rows.count() > most) {
                // As long as it would have to be if the rows so far were all, and were even.
                const std::int64_t range = rows.time(rows.count() - 1) - rows.time(0);
                step_now = ShortestStep;
                while (step_now * static_cast<std::int64_t>(most) < range * static_cast<std::int64_t>(2 * columns)) {
                    step_now *= 2;
                }
                thin();
            }
            return;
        }
        if (time >= span_end) end_span(time);
        const auto value_of = [&](std::size_t i) { return cells[i].there ? cells[i].value : std::string_view(); };
        span.see(value_of, [&](Rows& kept) { kept.add(time, cells); });
    }

    /// No more will come.
    const Rows& finish() {
        span.move_to(rows);
        while (rows.count() > most) {
            double_step();
            span.move_to(rows);
        }
        return rows;
    }
    std::int64_t step() const { return step_now; }

  private:
    static constexpr std::int64_t ShortestStep = 3600;

    void end_span(std::int64_t time) {
        span.move_to(rows);
        while (rows.count() > most) double_step();
        if (time < span_end) return;
        span.move_to(rows);
        span_end = (span_of(time, step_now) + 1) * step_now;
    }
    void double_step() {
        span.move_to(rows);
        step_now *= 2;
        thin();
    }
    /// What has come so far, by spans of the step; the last one goes on.
    void thin() {
        Rows all = std::move(rows);
        rows = Rows(columns);
        for (std::size_t row = 0; row < all.count(); ++row) {
            if (row == 0 || span_of(all.time(row), step_now) != span_of(all.time(row - 1), step_now))
                span.move_to(rows);
            span.see([&](std::size_t i) { return all.value(row, i); }, [&](Rows& kept) { kept.add(all, row); });
        }
        span_end = (span_of(all.time(all.count() - 1), step_now) + 1) * step_now;
    }

    std::size_t columns;
    std::size_t most;
    Rows rows;  // without those of the span
    Span span;
    std::int64_t step_now = 0;
    std::int64_t span_end = 0;
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
    Marks(Period records, bool may_miss)
        : period(records), half(period == Period::Hour ? 1800 : 43200), counts_holes(may_miss) {}

    void see(std::int64_t time, int quality) {
        // A record may come half a period late.
        if (counts_holes && time - last > 2 * half && has_last && time > end_of_period(last, period) + half) {
            holes.emplace_back(last, time);
        }
        last = time;
        has_last = true;
        if (quality == 192) {
            is_bad = false;
        } else if (is_bad) {
            bad.back().second = time;
        } else {
            bad.emplace_back(time, time);
            is_bad = true;
        }
    }

    std::size_t count() const { return holes.size() + bad.size(); }
    void join(std::int64_t step) {
        contract::join(holes, step);
        contract::join(bad, step);
    }

    std::vector<Thinned::Times> holes;
    std::vector<Thinned::Times> bad;

  private:
    Period period;
    std::int64_t half;  // of it, seconds
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
    Thinner thinner(columns, most);
    std::vector<Marks> marks;
    const Period period = period_of(folder, kind);
    for (const std::string& name : thinned.names) {
        const ArchiveEntry* const entry = find_archive(name);
        const bool is_total = entry != nullptr && entry->dating == Dating::End;
        marks.emplace_back(period, kind != ArchiveKind::Events && !(staged && is_total));
    }
    for (bool first = true; table.next(); first = false) {
        if (first) thinned.from = table.time();
        thinned.to = table.time();
        thinner.see(table.time(), table.cells());
        for (std::size_t i = 0; i < columns; ++i) {
            if (!table.cells()[i].there) continue;
            marks[i].see(table.time(), table.cells()[i].quality);
            if (marks[i].count() > 4 * most) marks[i].join(thinner.step());
        }
    }
    const Rows& rows = thinner.finish();
    thinned.step = thinner.step();
    for (std::size_t row = 0; row < rows.count(); ++row) {
        ThinRow& kept = thinned.rows.emplace_back();
        kept.time = rows.time(row);
        for (std::size_t i = 0; i < columns; ++i) kept.values.emplace_back(rows.value(row, i));
    }
    for (Marks& mark : marks) mark.join(thinned.step);
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
    return is_number(one) && is_number(other) && is_less_number(one, other);
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
