#include "drivers/km5/km5_frame.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <numeric>
#include <string_view>

namespace {

constexpr int CommandPosition = 4;
constexpr int FieldToPosition = 3;

std::uint8_t exclusive_or(Bytes bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), std::uint8_t{0},
                           [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum ^ byte); });
}

/// An answer of no bytes has its check bytes looked for in the end of the frame that was sent.
std::uint8_t received(const KM5_request& request, int position) {
    return position < 0 ? request.send_buf[request.send_buf.size() - static_cast<std::size_t>(-position)]
                        : u8_at(request.recv_buf, static_cast<std::size_t>(position));
}

}  // namespace

void init_request(KM5_request& request) {
    request = KM5_request{};
}

void sync_send_buffer(KM5_request& request) {
    auto at = std::copy(request.netaddr.begin(), request.netaddr.end(), request.send_buf.begin());
    *at++ = request.cmd;
    at = std::copy(request.data.begin(), request.data.end(), at);
    *at++ = request.CS1;
    *at = request.CS2;
}

void build_frame(KM5_request& request) {
    sync_send_buffer(request);
    const Bytes frame(request.send_buf);
    request.CS1 = exclusive_or(frame.first(13));
    request.CS2 = checksum(frame.first(14));
}

AnswerFault find_fault(const KM5_request& request) {
    const int length = request.RcvLng;
    if (length == 1) return AnswerFault::CS1;  // no room for check bytes
    const Bytes body =
        Bytes(request.recv_buf)
            .first(static_cast<std::size_t>(std::clamp(length - 2, 0, static_cast<int>(AnswerBytes) - 2)));
    if (received(request, length - 2) != exclusive_or(body)) return AnswerFault::CS1;
    if (received(request, length - 1) != checksum(body)) return AnswerFault::CS2;
    if (request.recv_buf[CommandPosition] != request.cmd) return AnswerFault::Command;
    return AnswerFault::None;
}

bool isError(const KM5_request& request) {
    const std::uint8_t code = request.recv_buf[CommandPosition];
    return code == 239 || code == 240 || code == 241 || code == 251;
}

void answer_bytes(int first, int last, std::uint8_t* dst, const KM5_request& request) {
    for (int field = first; field <= last; ++field) {
        *dst++ = u8_at(request.recv_buf, static_cast<std::size_t>(field + FieldToPosition));
    }
}

void int_to_bcd(std::uint8_t* dst, std::uint32_t value, std::size_t size) {
    std::uint64_t bcd = 0;
    for (int shift = 0; value != 0; value /= 10, shift += 4) bcd |= static_cast<std::uint64_t>(value % 10) << shift;
    for (std::size_t i = 0; i < size; ++i) dst[i] = i < sizeof(bcd) ? static_cast<std::uint8_t>(bcd >> (8 * i)) : 0;
}

float parse_version(Bytes text) {
    auto at = std::find_if(text.begin(), text.end(), [](std::uint8_t c) { return std::isspace(c) == 0; });
    const bool negative = at != text.end() && *at == '-';
    if (at != text.end() && (*at == '-' || *at == '+')) ++at;
    // No sign, "inf" or "nan" may follow: a version is digits and a point.
    if (at == text.end() || (std::isdigit(*at) == 0 && *at != '.')) return 0.0F;
    const std::string_view digits(reinterpret_cast<const char*>(&*at), static_cast<std::size_t>(text.end() - at));
    float version = 0.0F;
    std::from_chars(digits.data(), digits.data() + digits.size(), version, std::chars_format::fixed);
    return negative ? -version : version;
}
