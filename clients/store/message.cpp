#include "store/message.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <fmt/format.h>
#include <simdjson.h>

#include "contract/gzip.h"

namespace store {

namespace {

namespace json = simdjson::ondemand;

constexpr std::int64_t MostInt = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t LeastInt = std::numeric_limits<std::int32_t>::min();

std::string explain(simdjson::error_code error) {
    return fmt::format("no JSON: {}", simdjson::error_message(error));
}

/// What is wrong with a name, "" if nothing is.
std::string fault_of(std::string_view what, std::string_view text) {
    if (text.empty()) return fmt::format("an empty {}", what);
    if (text.size() > LongestText) return fmt::format("a {} of {} bytes", what, text.size());
    if (text.find('\0') != std::string_view::npos) return fmt::format("a zero byte in a {}", what);
    return "";
}

bool take_value(json::value element, double& value) {
    std::string_view text;
    if (element.get_double().get(value) == simdjson::SUCCESS) return std::isfinite(value);
    if (element.get_string().get(text) != simdjson::SUCCESS) return false;
    constexpr double Infinity = std::numeric_limits<double>::infinity();
    if (text == "inf") {
        value = Infinity;
    } else if (text == "-inf") {
        value = -Infinity;
    } else if (text == "nan" || text == "-nan") {
        value = std::numeric_limits<double>::quiet_NaN();
    } else {
        return false;
    }
    return true;
}

/// ["A1",1709377200,192,12.345000]. What is wrong with it, "" if nothing is.
std::string take_line(json::value element, Line& line) {
    json::array fields;
    if (element.get_array().get(fields) != simdjson::SUCCESS) return "a line that is no array";
    int place = 0;
    for (auto result : fields) {
        json::value field;
        if (result.get(field) != simdjson::SUCCESS) return "no JSON in a line";
        std::string_view name;
        std::int64_t number = 0;
        switch (place++) {
            case 0:
                if (field.get_string().get(name) != simdjson::SUCCESS) return "a name that is no text";
                if (const std::string fault = fault_of("name", name); !fault.empty()) return fault;
                line.name = name;
                break;
            case 1:
                if (field.get_int64().get(number) != simdjson::SUCCESS) return "a time that is no number";
                if (number < LeastInt || number > MostInt) return "a time out of range";
                line.time = static_cast<std::int32_t>(number);
                break;
            case 2:
                if (field.get_int64().get(number) != simdjson::SUCCESS) return "a quality that is no number";
                if (number < 0 || number > MostInt) return "a quality out of range";
                line.quality = static_cast<std::int32_t>(number);
                break;
            case 3:
                if (!take_value(field, line.value)) return "a value that is no number, or out of range";
                break;
            default:
                return "a line of more than four fields";
        }
    }
    return place == 4 ? "" : "a line of fewer than four fields";
}

bool is_kind(std::string_view kind) {
    return kind == "hourly" || kind == "daily" || kind == "event";
}

std::string take_lines(json::value value, Message& message) {
    json::array lines;
    if (value.get_array().get(lines) != simdjson::SUCCESS) return "lines that are no array";
    int place = 0;
    for (auto result : lines) {
        json::value element;
        if (const auto error = result.get(element)) return explain(error);
        if (place == MostLines) return fmt::format("more than {} lines", MostLines);
        Line& line = message.lines.emplace_back();
        line.place = place++;
        if (std::string fault = take_line(element, line); !fault.empty()) {
            message.bad.push_back({"", std::move(fault), line.place});
            message.lines.pop_back();
        }
    }
    return "";
}

std::string take_text(json::value value, std::string_view what, std::string& text) {
    std::string_view found;
    if (value.get_string().get(found) != simdjson::SUCCESS) return fmt::format("a {} that is no text", what);
    text = found;
    return fault_of(what, text);
}

std::string take_system(json::value value, std::int32_t& system) {
    std::int64_t number = 0;
    if (value.get_int64().get(number) != simdjson::SUCCESS) return "a system that is no number";
    if (number < 0 || number > MostInt) return "a system out of range";
    system = static_cast<std::int32_t>(number);
    return "";
}

enum Field : unsigned { Gateway = 1, Meter = 2, System = 4, KindField = 8, Lines = 16, All = 31 };

unsigned field_of(std::string_view key) {
    if (key == "gateway") return Gateway;
    if (key == "meter") return Meter;
    if (key == "system") return System;
    if (key == "kind") return KindField;
    return key == "lines" ? unsigned{Lines} : 0U;
}

std::string take_field(unsigned field, json::value value, Message& message) {
    switch (field) {
        case Gateway:
            return take_text(value, "gateway", message.gateway);
        case Meter:
            return take_text(value, "meter", message.meter);
        case System:
            return take_system(value, message.system);
        case Lines:
            return take_lines(value, message);
        default:
            break;
    }
    const std::string fault = take_text(value, "kind", message.kind);
    return fault.empty() && !is_kind(message.kind) ? "a kind that is none" : fault;
}

std::string take_object(json::document& document, Message& message) {
    json::object object;
    if (const auto error = document.get_object().get(object)) return explain(error);
    unsigned seen = 0;
    for (auto result : object) {
        json::field pair;
        std::string_view key;
        if (const auto error = std::move(result).get(pair)) return explain(error);
        if (const auto error = pair.unescaped_key().get(key)) return explain(error);
        const unsigned field = field_of(key);
        if (field == 0) continue;
        if ((seen & field) != 0) return fmt::format("{} twice", key);
        seen |= field;
        if (std::string fault = take_field(field, pair.value(), message); !fault.empty()) return fault;
    }
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) return "something behind the message";
    return seen == All ? "" : "not all of gateway, meter, system, kind and lines";
}

std::string_view without_end(std::string_view text) {
    return text.substr(0, text.find_last_not_of(" \t\r\n,") + 1);
}

/// The texts of bad lines, out of a document that has been looked at already.
void find_texts(json::document& document, std::vector<BadLine>& bad) {
    json::array lines;
    if (document["lines"].get_array().get(lines) != simdjson::SUCCESS) return;
    int place = 0;
    auto wanted = bad.begin();
    for (auto result : lines) {
        if (wanted == bad.end()) return;
        if (place++ != wanted->place) continue;
        std::string_view text;
        if (simdjson::to_json_string(result).get(text) == simdjson::SUCCESS) wanted->text = without_end(text);
        ++wanted;
    }
}

}  // namespace

struct Decoder::Parser {
    json::parser parser;
    simdjson::dom::parser strict;
    std::string padded;
};

Decoder::Decoder() : parser(std::make_unique<Parser>()) {}
Decoder::~Decoder() = default;

std::string Decoder::decode(std::string_view subject, std::string_view body, Message& message) {
    message = Message();
    if (body.size() > LargestBody) return fmt::format("{} bytes", body.size());
    // The parser reads further than the text is long.
    parser->padded.assign(body);
    parser->padded.append(simdjson::SIMDJSON_PADDING, ' ');
    const auto open = [this, body](json::document& document) {
        return parser->parser.iterate(parser->padded.data(), body.size(), parser->padded.size()).get(document);
    };
    json::document document;
    if (const auto error = open(document)) return explain(error);
    if (std::string fault = take_object(document, message); !fault.empty()) return fault;
    if (subject != subject_of(message)) return "a subject that contradicts its message";
    if (message.bad.empty()) return "";
    // The parser looks at what it is asked for alone. A line may be bad because the whole is none; but a number that is
    // out of range is the matter of its line.
    const auto error = parser->strict.parse(parser->padded.data(), body.size(), false).error();
    if (error != simdjson::SUCCESS && error != simdjson::NUMBER_ERROR) return explain(error);
    if (open(document) == simdjson::SUCCESS) find_texts(document, message.bad);
    return std::ranges::any_of(message.bad, &std::string::empty, &BadLine::text) ? "no JSON in its lines" : "";
}

std::string unpack(std::string_view encoding, std::string_view body, std::string& text) {
    text = body;
    if (encoding.empty()) return "";
    if (encoding != "gzip") return fmt::format("an encoding \"{}\"", encoding.substr(0, LongestText));
    auto unpacked = contract::gunzip(body, LargestBody);
    if (!unpacked) return fmt::format("no gzip of at most {} bytes", LargestBody);
    text = std::move(*unpacked);
    return "";
}

std::string token_of(std::string_view text) {
    std::string token;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool stays = (byte >= '0' && byte <= '9') || ((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z') ||
                           byte == '-' || byte == '_';
        if (stays) {
            token += character;
        } else {
            token += fmt::format("%{:02X}", byte);
        }
    }
    return token;
}

std::string subject_of(const Message& message) {
    return fmt::format("heatmeter.{}.{}.{}.record.{}", token_of(message.gateway), token_of(message.meter),
                       message.system, message.kind);
}

}  // namespace store
