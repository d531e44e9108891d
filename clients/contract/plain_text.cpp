#include "contract/plain_text.h"

#include <cstdint>
#include <cwchar>

namespace contract {

namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";

struct Character {
    std::size_t length = 1;
    char32_t code = 0;
    bool valid = false;
};

/// The character at the beginning of a text that is not empty; of an invalid one the first byte.
Character first_of(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {1, lead, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
    char32_t code = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3F);
    }
    const bool is_long = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    if (is_long || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {};
    return {length, code, true};
}

std::size_t width_of(const Character& character) {
    const int width = ::wcwidth(static_cast<wchar_t>(character.code));
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

bool acts(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || code == 0x61C ||
           (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF;
}

template <typename Refuse>
std::string cleaned(std::string_view text, Refuse refuse) {
    std::string clean;
    clean.reserve(text.size());
    while (!text.empty()) {
        const Character character = first_of(text);
        clean += character.valid && !refuse(character.code) ? text.substr(0, character.length) : Replacement;
        text.remove_prefix(character.length);
    }
    return clean;
}

}  // namespace

std::string valid_utf8(std::string_view text) {
    return cleaned(text, [](char32_t) { return false; });
}

std::string for_terminal(std::string_view text) {
    return cleaned(text, acts);
}

std::size_t columns_of(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = first_of(text);
        columns += width_of(character);
        text.remove_prefix(character.length);
    }
    return columns;
}

std::string_view within_columns(std::string_view text, std::size_t most) {
    std::size_t columns = 0;
    std::size_t bytes = 0;
    while (bytes < text.size()) {
        const Character character = first_of(text.substr(bytes));
        columns += width_of(character);
        if (columns > most) break;
        bytes += character.length;
    }
    return text.substr(0, bytes);
}

}  // namespace contract
