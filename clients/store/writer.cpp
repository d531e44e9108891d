#include "store/writer.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "contract/plain_text.h"

namespace store {

namespace {

constexpr std::size_t MostBadLines = 20;  // of a message that are kept: nobody shall fill the disk with them

std::string hex_of(std::string_view bytes) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string text = "\\x";
    text.reserve(2 + 2 * bytes.size());
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += Digits[byte >> 4];
        text += Digits[byte & 15];
    }
    return text;
}

}  // namespace

Writer::Writer(const std::string& conninfo) : database(conninfo), migration_count(migrate(database)) {
    for (const char* const table : {"record", "event"}) {
        database.run(fmt::format("CREATE TEMPORARY TABLE incoming_{0} (LIKE {0}) ON COMMIT DELETE ROWS", table));
    }
    months.make_ahead(database);
}

void Writer::write(int stream, std::vector<Item>& items, Counts& counts) {
    months.make_ahead(database);
    write(stream, items.begin(), items.end(), counts);
}

void Writer::write(int stream, Iterator begin, Iterator end, Counts& counts) {
    for (bool again = true;; again = false) {
        try {
            prepare(begin, end);
            transact(stream, begin, end, counts);
            return;
        } catch (const DatabaseError& error) {
            if (!error.is_of_data()) throw;
            if (database.in_transaction()) database.run_all("ROLLBACK");
            if (error.is_without_partition() && again) {
                months.forget();  // somebody has taken one away
                continue;
            }
            if (end - begin > 1) break;
            if (!begin->fault.empty()) throw;
            begin->fault = fmt::format("the database refuses it: {}", error.what());
        }
    }
    const Iterator middle = begin + (end - begin) / 2;
    write(stream, begin, middle, counts);
    write(stream, middle, end, counts);
}

void Writer::prepare(Iterator begin, Iterator end) {
    std::vector<const Message*> messages;
    std::set<int> needed;
    for (Iterator item = begin; item != end; ++item) {
        if (!item->fault.empty()) continue;
        messages.push_back(&item->message);
        std::int64_t last = -1;  // lines of a message are of few days
        for (const Line& line : item->message.lines) {
            const std::int64_t day = line.time / 86400;
            if (day != last) needed.insert(Months::month_of(line.time));
            last = day;
        }
    }
    dictionary.learn(database, messages);
    months.make(database, needed);
}

void Writer::transact(int stream, Iterator begin, Iterator end, Counts& counts) {
    records.clear();
    events.clear();
    for (Iterator item = begin; item != end; ++item) {
        if (!item->fault.empty()) continue;
        const Message& message = item->message;
        const std::int32_t system = dictionary.system(message);
        std::vector<Row>& rows = message.kind == "event" ? events : records;
        for (const Line& line : message.lines) {
            rows.push_back({system, dictionary.name(message.kind, line.name), line.time, line.quality, line.value,
                            written_at(stream, item->sequence, line.place)});
        }
    }
    Counts here{end - begin, static_cast<long>(records.size() + events.size()), 0};
    database.run_all("BEGIN");
    copy("record", records, false);
    copy("event", events, true);
    for (Iterator item = begin; item != end; ++item) here.rejected += reject(stream, *item);
    std::vector<std::int64_t> sequences;
    for (Iterator item = begin; item != end; ++item) sequences.push_back(item->sequence);
    mark_done(stream, sequences);  // last of all: other stores wait for this row
    database.run_all("COMMIT");
    counts.messages += here.messages;
    counts.lines += here.lines;
    counts.rejected += here.rejected;
}

std::vector<std::int64_t> Writer::missing(int stream, std::int64_t first, std::int64_t last, std::size_t most) {
    std::vector<std::int64_t> sequences;
    if (last < first) return sequences;
    const Result ranges = database.run(
        "SELECT lower(span), upper(span)"
        " FROM stream, unnest(int8multirange(int8range($2::bigint, $3::bigint, '[]')) - done) AS span"
        " WHERE number = $1::smallint ORDER BY 1 LIMIT 1000",
        {std::to_string(stream), std::to_string(first), std::to_string(last)});
    for (int row = 0; row < ranges.rows(); ++row) {
        for (long at = ranges.number(row, 0); at < ranges.number(row, 1) && sequences.size() < most; ++at) {
            sequences.push_back(at);
        }
    }
    return sequences;
}

void Writer::mark_done(int stream, const std::vector<std::int64_t>& sequences) {
    std::string spans;
    for (const std::int64_t sequence : sequences) {
        spans += fmt::format("{}[{},{}]", spans.empty() ? "" : ",", sequence, sequence);
    }
    database.run("UPDATE stream SET done = done + $2::int8multirange WHERE number = $1::smallint",
                 {std::to_string(stream), '{' + spans + '}'});
}

void Writer::copy(const char* table, std::vector<Row>& rows, bool are_events) {
    if (rows.empty()) return;
    put_in_order(rows, are_events);
    database.copy(fmt::format("COPY incoming_{} FROM STDIN (FORMAT binary)", table), encode(rows));
    database.run_all(fmt::format(
        "INSERT INTO {0} SELECT * FROM incoming_{0} ON CONFLICT {1}", table,
        are_events ? "DO NOTHING"
                   : "(system_id, time, name_id) DO UPDATE SET value = excluded.value, quality = excluded.quality, "
                     "written = excluded.written WHERE excluded.written > record.written"));
}

/// How many things of it were rejected.
long Writer::reject(int stream, const Item& item) {
    const auto insert = [&](std::string_view body, const std::string& reason, int line) {
        const std::string whole = body.size() > LargestBody ? fmt::format("{} (kept: 64 KiB)", reason) : reason;
        database.run(
            "INSERT INTO rejected (subject, sequence, reason, body, stream, line)"
            " VALUES ($1, $2::bigint, $3, $4::bytea, $5::smallint, $6::integer) ON CONFLICT DO NOTHING",
            {contract::valid_utf8(item.subject), std::to_string(item.sequence), contract::valid_utf8(whole),
             hex_of(body.substr(0, LargestBody)), std::to_string(stream), std::to_string(line)});
    };
    if (!item.fault.empty()) {
        insert(item.body, item.fault, -1);
        return 1;
    }
    const std::vector<BadLine>& bad = item.message.bad;
    const std::size_t kept = std::min(bad.size(), MostBadLines);
    for (std::size_t i = 0; i < kept; ++i) insert(bad[i].text, bad[i].reason, bad[i].place);
    if (kept < bad.size()) insert("", fmt::format("and {} more lines", bad.size() - kept), bad[kept].place);
    return static_cast<long>(bad.size());
}

}  // namespace store
