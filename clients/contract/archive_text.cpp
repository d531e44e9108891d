#include "contract/archive_text.h"

#include <algorithm>

#include <fmt/format.h>

#include "contract/json.h"

namespace contract {

namespace {

/// A name in a line of CSV: quoted where it would be read as something else.
std::string csv_name(const std::string& name) {
    if (name.find_first_of(",\"\r\n") == std::string::npos) return name;
    std::string text = "\"";
    for (const char letter : name) text += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return text + '"';
}

}  // namespace

void append_json_number(std::string_view value, std::string& text) {
    if (value.ends_with('f') || value.ends_with('n')) {
        text += "null";
        return;
    }
    if (value.starts_with('-')) {
        text += '-';
        value.remove_prefix(1);
    }
    const std::size_t digits = value.find('.');
    value.remove_prefix(std::min(value.find_first_not_of('0'), digits - 1));
    text += value;
}

std::string json_head(const ArchiveText::Shape& shape, const std::vector<std::string>& names) {
    std::string text = fmt::format(R"({{"meter":{},"system":{},"kind":"{}","names":[)", json_text(shape.meter.uuid),
                                   shape.meter.system, text_of(shape.kind));
    std::string_view comma;
    for (const std::string& name : names) {
        text.append(comma).append(json_text(name));
        comma = ",";
    }
    return text + R"(],"rows":[)";
}

ArchiveText::ArchiveText(ArchiveTable& rows, Shape form) : table(rows), shape(std::move(form)) {}

bool ArchiveText::next(std::string& text) {
    switch (step) {
        case Step::Head:
            head(text);
            step = Step::Rows;
            return true;
        case Step::Rows:
            if (table.next()) {
                row(text);
                first = false;
                return true;
            }
            if (shape.form == Form::Json) text += "]}\n";
            step = Step::Over;
            return shape.form == Form::Json;
        default:
            return false;
    }
}

void ArchiveText::head(std::string& text) const {
    if (shape.form == Form::Json) {
        text += json_head(shape, table.names());
        return;
    }
    if (shape.form == Form::Long) {
        text += "time,name,quality,value\n";
        return;
    }
    text += "time";
    for (const std::string& name : table.names()) {
        text += ',' + csv_name(name);
        if (shape.quality) text += ',' + csv_name(name + ".q");
    }
    text += '\n';
}

void ArchiveText::row(std::string& text) {
    if (shape.form == Form::Json) {
        text += first ? "[" : ",[";
        text += std::to_string(table.time());
        for (const ArchiveCell& cell : table.cells()) {
            text += ',';
            append_json_number(cell.there ? cell.value : "nan", text);
        }
        text += ']';
        return;
    }
    const std::string_view when = time_text(table.time());
    if (shape.form == Form::Csv) text += when;
    for (std::size_t i = 0; i < table.cells().size(); ++i) {
        const ArchiveCell& cell = table.cells()[i];
        if (shape.form == Form::Long) {
            if (!cell.there) continue;
            text += when;
            text += ',' + csv_name(table.names()[i]) + ',' + std::to_string(cell.quality) + ',';
            text += cell.value;
            text += '\n';
            continue;
        }
        text += ',';
        if (cell.there) text += cell.value;
        if (!shape.quality) continue;
        text += ',';
        if (cell.there) text += std::to_string(cell.quality);
    }
    if (shape.form == Form::Csv) text += '\n';
}

std::string_view ArchiveText::time_text(std::int64_t moment) {
    if (!shape.epoch) return moments.of(moment);
    seconds = std::to_string(moment);
    return seconds;
}

}  // namespace contract
