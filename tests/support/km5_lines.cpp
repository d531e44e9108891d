#include "support/km5_lines.h"

#include <cstdio>

namespace {

std::string line_text(std::time_t time, int quality, double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%ld,%d,%f", static_cast<long>(time), quality, value);
    return text;
}

/// The local midnight in front of the day that ends at `midnight`.
std::time_t day_before(std::time_t midnight) {
    std::tm tm{};
    ::localtime_r(&midnight, &tm);
    tm.tm_mday -= 1;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

}  // namespace

const std::vector<Km5LinePlace>& km5_places(int model) {
    static const std::vector<Km5LinePlace> model_2 = {
        {7, "A12", "A40", true},  {8, "A14", "A42", true},  {10, "A6", "A34", true},  {11, "A8", "A36", true},
        {12, "A1", "A29", true},  {13, "A4", "A32", true},  {1, "A17", "A45", false}, {2, "A18", "A46", false},
        {4, "A20", "A48", false}, {5, "A21", "A49", false},
    };
    static const std::vector<Km5LinePlace> model_4 = {
        {7, "A12", "A40", true},  {8, "A14", "A42", true},  {10, "A6", "A34", true},  {11, "A8", "A36", true},
        {12, "A1", "A29", true},  {13, "A4", "A32", true},  {1, "A17", "A45", false}, {2, "A18", "A46", false},
        {3, "A19", "A47", false}, {4, "A20", "A48", false}, {5, "A21", "A49", false}, {6, "A22", "A50", false},
    };
    return model == 4 ? model_4 : model_2;
}

std::vector<Km5Line> km5_record_lines(int model, sim::Km5Archive archive, const sim::Km5StoredRecord& record) {
    const bool daily = archive == sim::Km5Archive::Daily;
    const std::time_t earlier = daily ? day_before(record.time) : record.time - 3600;
    std::vector<Km5Line> lines;
    for (const Km5LinePlace& place : km5_places(model)) {
        const std::time_t time = place.total ? record.time : earlier;
        lines.push_back({.file = daily ? place.daily : place.hourly,
                         .text = line_text(time, 192, static_cast<double>(record.values[place.field])),
                         .time = time,
                         .record_time = record.time});
    }
    return lines;
}

Km5Line km5_event_line(const sim::Km5StoredEvent& event) {
    const bool state = event.code >= 128;
    return {.file = "_A57",
            .text = line_text(event.time, state ? 192 : 0, state ? event.code - 128 : event.code),
            .time = event.time,
            .record_time = event.time};
}

void km5_count(Km5LineCounts& counts, const Km5Line& line, int times) {
    counts[line.file][line.text] += times;
}
