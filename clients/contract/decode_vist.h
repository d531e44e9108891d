#pragma once
// Frames of a VIST as values: questions in letters, answers in letters or as packets.

#include <array>
#include <optional>

#include "contract/frame.h"
#include "drivers/vist/vist_decode.h"

namespace contract {

class VistDecoder final : public Decoder {
  private:
    Frame frame_of(Bytes bytes, Direction direction, bool whole) override;
    Frame question(Bytes bytes);
    Frame text_answer(Bytes bytes);
    Frame packet_answer(Bytes bytes);
    void add_packet(Frame& frame, std::span<std::uint8_t> packet);
    void add_values(Frame& frame, std::span<std::uint8_t> packet, bool moment) const;

    bool has_clock = true;  ///< an answer with integrators begins with the clock: a firmware above the lowest
    bool big_endian = false;
    std::optional<vist::ArchiveHeader> header;
};

}  // namespace contract
