#include "support/km5_lines.h"

#include <utility>

namespace {

/// The local midnight in front of the day that ends at `midnight`.
std::time_t day_before(std::time_t midnight) {
    std::tm tm{};
    ::localtime_r(&midnight, &tm);
    tm.tm_mday -= 1;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

std::vector<Km5LinePlace> make_places(int model, bool gvs) {
    std::vector<Km5LinePlace> places = {{7, "A12", "A40", true}, {8, "A14", "A42", true}};
    if (model != 6) places.push_back({10, "A6", "A34", true});
    if (model == 3) {
        places.push_back({11, "A10", "A38", true});  // what this model measures there is its third volume
    } else if (model != 1 && model != 6) {
        places.push_back({11, "A8", "A36", true});
    }
    places.push_back({12, "A1", "A29", true});
    places.push_back({13, "A4", "A32", true});
    const bool hot_water = model == 1 && gvs;  // of model 1 alone: what comes back is the cold water
    const bool third_pressure = model == 3 || model == 4;
    const bool third_temperature = third_pressure || model == 5 || (model == 7 && gvs);
    places.push_back({1, "A17", "A45", false});
    places.push_back(hot_water ? Km5LinePlace{2, "A19", "A47", false} : Km5LinePlace{2, "A18", "A46", false});
    if (third_pressure) places.push_back({3, "A19", "A47", false});
    places.push_back({4, "A20", "A48", false});
    places.push_back(hot_water ? Km5LinePlace{5, "A22", "A50", false} : Km5LinePlace{5, "A21", "A49", false});
    if (third_temperature) places.push_back({6, "A22", "A50", false});
    return places;
}

}  // namespace

const std::vector<Km5LinePlace>& km5_places(int model, bool gvs) {
    static std::map<std::pair<int, bool>, std::vector<Km5LinePlace>> known;
    auto& places = known[{model, gvs}];
    if (places.empty()) places = make_places(model, gvs);
    return places;
}

std::vector<Km5Line> km5_record_lines(int model, sim::Km5Archive archive, const sim::Km5StoredRecord& record,
                                      bool gvs) {
    const bool daily = archive == sim::Km5Archive::Daily;
    const std::time_t earlier = daily ? day_before(record.time) : record.time - 3600;
    std::vector<Km5Line> lines;
    for (const Km5LinePlace& place : km5_places(model, gvs)) {
        const std::time_t time = place.total ? record.time : earlier;
        lines.push_back({.file = daily ? place.daily : place.hourly,
                         .text = stored_line(time, 192, static_cast<double>(record.values[place.field])),
                         .time = time,
                         .record_time = record.time});
    }
    return lines;
}

Km5Line km5_event_line(const sim::Km5StoredEvent& event) {
    const bool state = event.code >= 128;
    return {.file = "_A57",
            .text = stored_line(event.time, state ? 192 : 0, state ? event.code - 128 : event.code),
            .time = event.time,
            .record_time = event.time};
}

void km5_count(LineCounts& counts, const Km5Line& line, int times) {
    counts[line.file][line.text] += times;
}
