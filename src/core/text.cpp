#include "core/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

std::string format_cut(std::size_t size, const char* format, ...) {
    std::string text(size, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int wanted = std::vsnprintf(text.data(), size, format, arguments);
    va_end(arguments);
    text.resize(wanted < 0 ? 0 : std::min(static_cast<std::size_t>(wanted), size - 1));
    return text;
}

std::string cut(std::string_view text, std::size_t length) {
    return std::string(text.substr(0, std::min(length, text.find('\0'))));
}

std::string operand_in_command(std::size_t size, std::string_view words, std::string_view operand) {
    return words.size() + 1 >= size ? "" : cut(operand, size - 1 - words.size());
}
