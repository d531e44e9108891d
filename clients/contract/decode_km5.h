#pragma once
// Frames of the KM5 family as values.

#include "contract/frame.h"
#include "drivers/km5/km5_frame.h"
#include "drivers/km5/km5_tables.h"

namespace contract {

class Km5Decoder final : public Decoder {
  public:
    Km5Decoder() { meter.version = 0.0F; }

  private:
    Frame frame_of(Bytes bytes, Direction direction, bool whole) override;
    Frame question(Bytes bytes);
    Frame answer(Bytes bytes);
    void add_values(Frame& frame, Bytes answer);
    void add_record(Frame& frame, Bytes answer) const;

    KM5_request asked;  ///< the last question
    bool has_asked = false;
    KM5_meter meter;  ///< as it has told so far
};

}  // namespace contract
