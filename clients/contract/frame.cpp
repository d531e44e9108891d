#include "contract/frame.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "contract/decode_km5.h"
#include "contract/decode_modbus.h"
#include "contract/decode_sa94.h"
#include "contract/decode_vist.h"

namespace contract {

void Frame::add(std::string name, double value) {
    // Scaled by powers of ten, of whole numbers of at most 32 bits but for a few.
    fields.push_back({std::move(name), fmt::format("{:.12g}", value), std::isfinite(value)});
}

void Frame::add(std::string name, float value) {
    fields.push_back({std::move(name), fmt::format("{}", value), std::isfinite(value)});
}

void Frame::add(std::string name, const std::tm& tm) {
    add(std::move(name), fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1,
                                     tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec));
}

void Frame::add_bits(std::string name, std::uint32_t bits) {
    add(std::move(name), fmt::format("0x{:08X}", bits));
}

void Frame::add_whole(std::string name, long long value) {
    fields.push_back({std::move(name), std::to_string(value), true});
}

void Frame::add_check(std::string name, unsigned is, unsigned should_be, int size) {
    checks.push_back(
        {std::move(name), fmt::format("{:0{}X}", is, 2 * size), fmt::format("{:0{}X}", should_be, 2 * size)});
}

bool Frame::is_right() const {
    return !kind.empty() && std::ranges::all_of(checks, &FrameCheck::right);
}

std::vector<Frame> Decoder::decode(const Piece& piece) {
    std::vector<Frame> frames;
    const auto give = [&](Frame frame, Bytes bytes) {
        frame.time = piece.time;
        frame.line = piece.line;
        if (frame.direction == Direction::Unknown) frame.direction = piece.direction;
        frame.bytes.assign(bytes.begin(), bytes.end());
        if (!piece.reason.empty() && frame.reason.empty()) frame.reason = piece.reason;
        frames.push_back(std::move(frame));
    };
    const Bytes all = piece.bytes;
    const bool is_named = piece.direction == Direction::Question && !piece.title.empty();
    if (all.empty() ? is_named : piece.bare) {
        give(told(piece), all);
        return frames;
    }
    if (all.empty()) {
        give(piece.reason.empty() ? silence() : Frame{}, all);
        return frames;
    }
    const auto right_at = [&](std::size_t at) { return frame_of(all.subspan(at), piece.direction, false); };
    // The end of the row that a byte stands in.
    const auto row_end = [&](std::size_t at) {
        const auto end = std::ranges::upper_bound(piece.ends, at);
        return end == piece.ends.end() ? all.size() : std::min(*end, all.size());
    };
    for (std::size_t at = 0; at < all.size();) {
        if (Frame frame = right_at(at); !frame.bytes.empty()) {
            const std::size_t length = frame.bytes.size();
            give(std::move(frame), all.subspan(at, length));
            at += length;
            continue;
        }
        // What stands in front of a right frame is noise; without one the row is what somebody meant as a frame.
        const std::size_t end = row_end(at);
        std::size_t next = at + 1;
        while (next < end && right_at(next).bytes.empty()) ++next;
        const Bytes odd = all.subspan(at, next - at);
        if (next < end) {
            Frame noise;
            noise.reason = "noise in front of a frame";
            give(std::move(noise), odd);
        } else {
            give(frame_of(odd, piece.direction, true), odd);
        }
        at = next;
    }
    return frames;
}

Frame Decoder::told(const Piece& /*piece*/) {
    Frame frame;
    frame.reason = "out of the log of another family";
    return frame;
}

Frame Decoder::silence() {
    Frame frame;
    frame.kind = "silence";
    frame.direction = Direction::Answer;
    return frame;
}

std::unique_ptr<Decoder> make_decoder(Family family) {
    switch (family) {
        case KM5:
            return std::make_unique<Km5Decoder>();
        case VIST:
            return std::make_unique<VistDecoder>();
        case VISTmodbus:
            return std::make_unique<ModbusDecoder>();
        case SA94:
            return std::make_unique<Sa94Decoder>();
        default:
            return nullptr;
    }
}

std::string hex_text(Bytes bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, " "));
}

std::string letters_text(Bytes bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += byte >= 0x20 && byte < 0x7F ? std::string(1, static_cast<char>(byte)) : fmt::format("\\{:02X}", byte);
    }
    return text;
}

}  // namespace contract
