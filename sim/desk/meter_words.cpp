#include "meter_words.h"

#include <sstream>
#include <stdexcept>

namespace sim {

namespace {

template <typename Number, typename Convert>
Number converted(const std::string& key, const std::string& word, Convert convert) {
    try {
        std::size_t used = 0;
        const Number number = convert(word, &used);
        if (used == word.size()) return number;
    } catch (const std::exception&) {  // told below, in the user's words
    }
    throw std::invalid_argument(key + "=" + word + ": not a number");
}

}  // namespace

MeterWords::MeterWords(const std::string& text) {
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, ',');) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0) throw std::invalid_argument(word + ": not key=value");
        if (!words_.emplace(word.substr(0, equals), word.substr(equals + 1)).second) {
            throw std::invalid_argument(word + ": said twice");
        }
    }
}

std::string MeterWords::text(const std::string& key, const std::string& otherwise) {
    const auto node = words_.extract(key);
    return node ? node.mapped() : otherwise;
}

long MeterWords::number(const std::string& key, long otherwise) {
    const auto node = words_.extract(key);
    if (!node) return otherwise;
    return converted<long>(key, node.mapped(), [](const auto& word, auto* used) { return std::stol(word, used); });
}

double MeterWords::fraction(const std::string& key, double otherwise) {
    const auto node = words_.extract(key);
    if (!node) return otherwise;
    return converted<double>(key, node.mapped(), [](const auto& word, auto* used) { return std::stod(word, used); });
}

void MeterWords::finish() const {
    if (!words_.empty()) throw std::invalid_argument(words_.begin()->first + ": a meter has no such setting");
}

}  // namespace sim
