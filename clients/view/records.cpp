#include "view/records.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include <fmt/format.h>

#include "contract/archive_text.h"
#include "contract/events.h"
#include "contract/json.h"
#include "contract/moments.h"
#include "contract/newest.h"
#include "contract/plain_text.h"
#include "contract/thinning.h"
#include "contract/units.h"

namespace view {

namespace {

using contract::ArchiveKind;
using contract::ArchiveQuestion;
using contract::ArchiveTable;
using contract::ArchiveText;
using contract::MeterSystem;

constexpr std::size_t MostNames = 64;
constexpr std::size_t MostPoints = 10000;
constexpr std::size_t MostCells = 100'000;  // of an answer with points, which is made in memory
constexpr int MostOpenTables = 4;

struct Refused {
    std::string text;
};

std::int64_t moment_of(const std::string& text, std::int64_t now) {
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    constexpr std::size_t DigitsOfYear = 4;
    const bool is_number = error == std::errc{} && end == text.data() + text.size() && text.size() > DigitsOfYear;
    const auto moment = contract::parse_moment(is_number ? '@' + text : text, now);
    if (!moment)
        throw Refused{"no time: \"" + text + "\" (such as 2026-11-01, 2026-11-01T10:00, -7d, now, 1700000000)"};
    return *moment;
}

contract::TimeSpan span_of(const Request& request, std::int64_t now) {
    contract::TimeSpan span;
    if (const std::string from = request.word("from"); !from.empty()) span.from = moment_of(from, now);
    if (const std::string to = request.word("to"); !to.empty()) span.to = moment_of(to, now);
    return span;
}

ArchiveKind kind_of(const Request& request) {
    const std::string word = request.word("kind", "hourly");
    for (const ArchiveKind kind : {ArchiveKind::Hourly, ArchiveKind::Daily, ArchiveKind::Events}) {
        if (word == text_of(kind)) return kind;
    }
    throw Refused{"no kind: \"" + word + "\" (hourly, daily, events)"};
}

std::vector<std::string> names_of(const Request& request) {
    std::vector<std::string> names;
    std::string text = request.word("names");
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(','), text.size());
        std::string name = text.substr(0, end);
        text.erase(0, end + 1);
        if (name.empty()) continue;
        if (!contract::is_meter_name(name)) throw Refused{"no name of an archive: \"" + name + '"'};
        names.push_back(std::move(name));
        if (names.size() > MostNames) throw Refused{"too many names"};
    }
    return names;
}

std::size_t points_of(const Request& request) {
    const std::string text = request.word("points");
    std::size_t points = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), points);
    if (error != std::errc{} || end != text.data() + text.size() || points < 2 || points > MostPoints) {
        throw Refused{fmt::format("points: a number from 2 to {}", MostPoints)};
    }
    return points;
}

/// Rows while they are read.
class Rows : public Source {
  public:
    Rows(std::unique_ptr<ArchiveTable> rows, const ArchiveText::Shape& shape, std::shared_ptr<std::atomic<int>> count)
        : table(std::move(rows)), text_of_rows(*table, shape), open_tables(std::move(count)) {}
    ~Rows() override { --*open_tables; }

    Piece next(std::string& text) override {
        if (text_of_rows.next(text)) return Piece::More;
        return table->has_changed() ? Piece::Broken : Piece::End;
    }

  private:
    std::unique_ptr<ArchiveTable> table;
    ArchiveText text_of_rows;
    std::shared_ptr<std::atomic<int>> open_tables;
};

/// "m1-1-hourly.csv", of letters that every system takes as a file's name.
std::string file_name(const MeterSystem& meter, ArchiveKind kind) {
    std::string name = fmt::format("{}-{}-{}.csv", meter.uuid, meter.system, text_of(kind));
    const auto is_plain = [](unsigned char letter) {
        return letter < 0x80 && (std::isalnum(letter) != 0 || letter == '-' || letter == '.' || letter == '_');
    };
    std::ranges::replace_if(
        name, [&](char letter) { return !is_plain(static_cast<unsigned char>(letter)); }, '_');
    return name;
}

void append_stretches(std::string& text, const char* name, const contract::Thinned& thinned,
                      const std::vector<std::vector<contract::Thinned::Times>>& stretches) {
    text += fmt::format(",\"{}\":{{", name);
    for (std::size_t i = 0; i < stretches.size(); ++i) {
        text += (i == 0 ? "" : ",") + contract::json_text(thinned.names[i]) + ":[";
        for (std::size_t j = 0; j < stretches[i].size(); ++j) {
            text += fmt::format("{}[{},{}]", j == 0 ? "" : ",", stretches[i][j].first, stretches[i][j].second);
        }
        text += ']';
    }
    text += '}';
}

Answer thinned_answer(const MeterSystem& meter, ArchiveKind kind, const ArchiveQuestion& question, std::size_t points) {
    const std::string folder = contract::archive_folder(meter.uuid, meter.system);
    const std::size_t names =
        question.names.empty() ? contract::archive_names(folder, kind).size() : question.names.size();
    const std::size_t most = std::min(points, MostCells / std::max<std::size_t>(1, names));
    const bool staged = !folder.ends_with("/tc_archives");
    const contract::Thinned thinned = contract::thin(folder, kind, question, most, staged);
    if (!thinned.is_open) return refusal(404, "there are no such archives");
    if (thinned.has_changed) return refusal(503, "a file was emptied or replaced while it was read: ask again");
    Answer answer;
    std::string& text = answer.body;
    text = contract::json_head({.form = ArchiveText::Form::Json, .meter = meter, .kind = kind}, thinned.names);
    for (const contract::ThinRow& row : thinned.rows) {
        text += (&row == &thinned.rows.front() ? "[" : ",[") + std::to_string(row.time);
        for (const std::string& value : row.values) {
            text += ',';
            contract::append_json_number(value.empty() ? "nan" : value, text);
        }
        text += ']';
    }
    text += fmt::format("],\"step\":{},\"from\":{},\"to\":{}", thinned.step, thinned.from, thinned.to);
    append_stretches(text, "holes", thinned, thinned.holes);
    append_stretches(text, "bad", thinned, thinned.bad);
    text += "}\n";
    return answer;
}

Answer whole_answer(const MeterSystem& meter, ArchiveKind kind, const ArchiveQuestion& question, const Request& request,
                    const std::shared_ptr<std::atomic<int>>& open_tables) {
    const std::string format = request.word("format", "json");
    if (format != "json" && format != "csv") throw Refused{"no format: \"" + format + "\" (json, csv)"};
    if (++*open_tables > MostOpenTables) {
        --*open_tables;
        Answer busy = refusal(503, "too many archives are being read: ask again");
        busy.headers.emplace_back("Retry-After", "5");
        return busy;
    }
    ArchiveText::Shape shape{.meter = meter, .kind = kind};
    if (format == "json") {
        shape.form = ArchiveText::Form::Json;
    } else if (request.flag("long")) {
        shape.form = ArchiveText::Form::Long;
    }
    shape.quality = request.flag("quality");
    shape.epoch = request.flag("epoch");
    auto table = std::make_unique<ArchiveTable>(contract::archive_folder(meter.uuid, meter.system), kind, question);
    const bool is_open = !table->names().empty() && table->is_open();
    Answer answer;
    answer.source = std::make_unique<Rows>(std::move(table), shape, open_tables);
    if (!is_open) return refusal(404, "there are no such archives");
    if (format == "csv") {
        answer.type = "text/csv; charset=utf-8";
        answer.headers.emplace_back("Content-Disposition",
                                    fmt::format("attachment; filename=\"{}\"", file_name(meter, kind)));
    }
    return answer;
}

}  // namespace

Answer archives_answer(const MeterSystem& meter) {
    const std::string folder = contract::archive_folder(meter.uuid, meter.system);
    const contract::Units units = contract::read_units();
    Json::Value all(Json::arrayValue);
    for (const ArchiveKind kind : {ArchiveKind::Hourly, ArchiveKind::Daily, ArchiveKind::Events}) {
        for (const std::string& name : contract::archive_names(folder, kind)) {
            const contract::ArchiveEntry& entry = *contract::find_archive(name);
            const auto extent = contract::extent_of(folder + '/' + name);
            Json::Value& one = all.append(Json::objectValue);
            one["name"] = name;
            one["kind"] = std::string(text_of(kind));
            one["title"] = std::string(entry.title);
            one["quantity"] = std::string(text_of(entry.quantity));
            one["nature"] = std::string(text_of(entry.nature));
            one["dating"] = std::string(text_of(entry.dating));
            one["unit"] = units.unit_of(meter.uuid, meter.system, name, entry.unit);
            one["from"] = extent ? Json::Value(Json::Int64(extent->from)) : Json::Value();
            one["to"] = extent ? Json::Value(Json::Int64(extent->to)) : Json::Value();
        }
    }
    Json::Value whole;
    whole["archives"] = std::move(all);
    return {.body = contract::json_line(whole) + '\n'};
}

Answer events_answer(const MeterSystem& meter, const Request& request, std::int64_t now) try {
    std::size_t unreadable = 0;
    const auto events =
        contract::read_events(contract::archive_folder(meter.uuid, meter.system), span_of(request, now), unreadable);
    Json::Value all(Json::arrayValue);
    const auto json_of = [](const std::optional<std::int64_t>& time) {
        return time ? Json::Value(Json::Int64(*time)) : Json::Value();
    };
    for (const contract::Event& event : events) {
        Json::Value& one = all.append(Json::objectValue);
        one["code"] = contract::valid_utf8(event.code);
        one["begin"] = json_of(event.begin);
        one["end"] = json_of(event.end);
    }
    Json::Value whole;
    whole["events"] = std::move(all);
    return {.body = contract::json_line(whole) + '\n'};
} catch (const Refused& refused) {
    return refusal(400, refused.text);
}

Answer archive_answer(const MeterSystem& meter, const Request& request, std::int64_t now,
                      const std::shared_ptr<std::atomic<int>>& open_tables) try {
    const ArchiveKind kind = kind_of(request);
    const std::string by = request.word("by", "time");
    if (by != "time" && by != "record") throw Refused{"by: time or record"};
    const ArchiveQuestion question{.span = span_of(request, now),
                                   .names = names_of(request),
                                   .good = request.flag("good"),
                                   .by_record = by == "record"};
    if (request.words.contains("points")) return thinned_answer(meter, kind, question, points_of(request));
    return whole_answer(meter, kind, question, request, open_tables);
} catch (const Refused& refused) {
    return refusal(400, refused.text);
}

}  // namespace view
