#pragma once
// What is said to an SA-94 and what it says, as values. There are no frames: what was noted together is one.

#include <optional>
#include <vector>

#include "contract/frame.h"
#include "drivers/sa94/sa94_decode.h"

namespace contract {

class Sa94Decoder final : public Decoder {
  private:
    enum class Subject { Connect, Block, Parameter, Disconnect };
    struct Asked {
        Subject subject = Subject::Connect;
        std::vector<std::uint8_t> bytes;
        int code = 0;  ///< of a parameter
        int segment = 0;
        int block = 0;
    };

    Frame frame_of(Bytes bytes, Direction direction, bool whole) override;
    Frame silence() override;
    static std::optional<Asked> parse(Bytes bytes);
    Frame question(Bytes bytes, Asked now);
    Frame answer(Bytes bytes);
    void add_block(Frame& frame, Bytes bytes);
    void add_parameter(Frame& frame, Bytes bytes) const;
    void add_records(Frame& frame, Bytes bytes) const;

    std::optional<Asked> asked;
    bool is_answered = true;
    const SA94Version* version = nullptr;  ///< as the meter has told
    int status = -1;                       ///< the byte, once it is known
};

}  // namespace contract
