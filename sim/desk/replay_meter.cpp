#include "replay_meter.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <sstream>
#include <stdexcept>

namespace sim {

namespace {

constexpr double SilenceInAnswer = 0.7;  // seconds; a trace has a row for each part of an answer, and no right clock

std::uint8_t byte_of(const std::string& word) {
    unsigned value = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, value, 16);
    if (error != std::errc{} || rest != end || word.size() != 2) throw std::invalid_argument(word + ": no byte");
    return static_cast<std::uint8_t>(value);
}

std::string hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char word[4];
        std::snprintf(word, sizeof word, "%02X ", byte);
        text += word;
    }
    if (!text.empty()) text.pop_back();
    return text;
}

}  // namespace

ReplayMeter::ReplayMeter(std::istream& trace, const std::string& link, bool strict) : strict_(strict) {
    std::map<std::string, std::vector<Exchange>> lines;
    std::size_t number = 0;
    for (std::string row; std::getline(trace, row);) {
        ++number;
        if (row.empty() || row[0] == '#') continue;
        std::istringstream words(row);
        std::string date, time, line, way;
        words >> date >> time >> line >> way;
        try {
            if (way != ">" && way != "<") throw std::invalid_argument("no row of a trace");
            ByteVector bytes;
            for (std::string word; words >> word;) bytes.push_back(byte_of(word));
            std::vector<Exchange>& exchanges = lines[line];
            if (way == ">") {
                exchanges.push_back({.row = number, .question = std::move(bytes), .answer = {}});
            } else if (!exchanges.empty()) {
                Answer& answer = exchanges.back().answer;
                answer.push_back({.delay_seconds = answer.empty() ? 0.0 : SilenceInAnswer, .bytes = std::move(bytes)});
            }
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument("row " + std::to_string(number) + ": " + error.what());
        }
    }
    const auto own = lines.size() == 1 ? lines.begin() : lines.find(link);
    if (own == lines.end()) throw std::invalid_argument("nothing was said on " + link);
    exchanges_ = std::move(own->second);
}

Answer ReplayMeter::hear(std::span<const std::uint8_t> request, std::time_t /*now*/) {
    const auto is_asked = [&](const Exchange& exchange) { return std::ranges::equal(exchange.question, request); };
    const auto next = exchanges_.begin() + static_cast<std::ptrdiff_t>(next_);
    if (strict_) {
        if (next == exchanges_.end()) return {};
        if (!is_asked(*next)) {
            throw std::runtime_error("asked " + hex(request) + ", and not " + hex(next->question) + " of row " +
                                     std::to_string(next->row) + " of the trace");
        }
        ++next_;
        return next->answer;
    }
    auto found = std::find_if(next, exchanges_.end(), is_asked);
    if (found == exchanges_.end()) found = std::find_if(exchanges_.begin(), next, is_asked);
    if (found == exchanges_.end() || !is_asked(*found)) return {};
    next_ = static_cast<std::size_t>(found - exchanges_.begin()) + 1;
    return found->answer;
}

}  // namespace sim
