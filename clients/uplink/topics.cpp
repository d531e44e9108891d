#include "uplink/topics.h"

#include <fmt/format.h>

#include "contract/plain_text.h"

namespace uplink {

namespace {

void append_escaped(std::string& text, char sign) {
    text += fmt::format("%{:02X}", static_cast<unsigned char>(sign));
}

}  // namespace

std::string subject_token(std::string_view text) {
    std::string token;
    for (const char sign : text) {
        const bool is_plain = (sign >= 'a' && sign <= 'z') || (sign >= 'A' && sign <= 'Z') ||
                              (sign >= '0' && sign <= '9') || sign == '-' || sign == '_';
        if (is_plain) {
            token += sign;
        } else {
            append_escaped(token, sign);
        }
    }
    return token;
}

std::string topic_level(std::string_view text) {
    // What is no UTF-8, acts on a terminal, or may be no character at all: brokers end the connection over it.
    const auto has = [&](std::string_view bytes) { return text.find(bytes) != std::string_view::npos; };
    const bool is_plain =
        contract::for_terminal(text) == text && !has("\xBF\xBE") && !has("\xBF\xBF") && !has("\xEF\xB7");
    std::string level;
    for (const char sign : text) {
        const auto byte = static_cast<unsigned char>(sign);
        const bool is_escaped = byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !is_plain) ||
                                std::string_view("+#/%").find(sign) != std::string_view::npos;
        if (is_escaped) {
            append_escaped(level, sign);
        } else {
            level += sign;
        }
    }
    return level;
}

std::string record_subject(const std::string& gateway, const std::string& uuid, int system, std::string_view kind) {
    return fmt::format("heatmeter.{}.{}.{}.record.{}", subject_token(gateway), subject_token(uuid), system, kind);
}

}  // namespace uplink
