#pragma once
// Frames of a VIST over Modbus RTU as values.

#include <optional>

#include "contract/frame.h"
#include "drivers/vist_modbus/vist_modbus_decode.h"
#include "drivers/vist_modbus/vist_modbus_tables.h"

namespace contract {

class ModbusDecoder final : public Decoder {
  private:
    /// What was asked for last.
    struct Asked {
        int slave = -1;
        std::uint8_t function = 0;
        int first = 0;  ///< register, or the number of the file
        int record = 0;
        int count = 0;
        const ModbusRequest* row = nullptr;  ///< the block of the register map that this is
        int system = 0;
        bool knows_system = false;
    };

    Frame frame_of(Bytes bytes, Direction direction, bool whole) override;
    Frame told(const Piece& piece) override;
    Frame question(Bytes bytes);
    Frame answer(Bytes bytes);
    void add_block(Frame& frame, Bytes data);
    void add_asked(Frame& frame) const;

    std::optional<Asked> asked;
    vist_modbus::Words decimal_points{};
    vist_modbus::ArchiveSetup setup;
    std::optional<vist_modbus::ArchiveHeader> header;
};

}  // namespace contract
