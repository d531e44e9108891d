#include "view/request.h"

namespace view {

namespace {

int hex_digit(char letter) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    return -1;
}

/// Once, not again: what is coded twice stays coded once.
bool decode(std::string_view coded, bool is_query, std::string& text) {
    for (std::size_t i = 0; i < coded.size(); ++i) {
        char letter = coded[i];
        if (letter == '%') {
            if (coded.size() - i < 3) return false;
            const int high = hex_digit(coded[i + 1]);
            const int low = hex_digit(coded[i + 2]);
            if (high < 0 || low < 0) return false;
            letter = static_cast<char>(high * 16 + low);
            i += 2;
        } else if (letter == '+' && is_query) {
            letter = ' ';
        }
        if (letter == '\0') return false;
        text += letter;
    }
    return true;
}

/// Takes what stands in front of the next separator, or all.
std::string_view take_part(std::string_view& text, char separator) {
    const std::size_t end = text.find(separator);
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return part;
}

}  // namespace

std::string Request::word(std::string_view name, std::string_view otherwise) const {
    const auto found = words.find(name);
    return found == words.end() ? std::string(otherwise) : found->second;
}

bool Request::flag(std::string_view name) const {
    const auto found = words.find(name);
    return found != words.end() &&
           (found->second.empty() || found->second == "1" || found->second == "true" || found->second == "yes");
}

std::optional<Request> parse_target(std::string_view target) {
    if (target.size() > LongestTarget || !target.starts_with('/')) return std::nullopt;
    Request request;
    std::string_view path = take_part(target, '?');
    path.remove_prefix(1);
    while (!path.empty()) {
        std::string& part = request.path.emplace_back();
        if (!decode(take_part(path, '/'), false, part)) return std::nullopt;
        if (part.empty() || part == "." || part == ".." || part.find('/') != std::string::npos) return std::nullopt;
    }
    while (!target.empty()) {
        std::string_view value = take_part(target, '&');
        std::string name;
        std::string text;
        if (value.empty()) continue;
        if (!decode(take_part(value, '='), true, name) || !decode(value, true, text)) return std::nullopt;
        if (!request.words.try_emplace(std::move(name), std::move(text)).second) return std::nullopt;
    }
    return request;
}

}  // namespace view
