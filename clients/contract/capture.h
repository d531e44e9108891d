#pragma once
// Where noted traffic comes from: hex text, a debug log of the daemon, a trace of heatmeter-sim. Each row tells by its
// looks what it is of.

#include <functional>
#include <string>
#include <string_view>

#include "contract/frame.h"

namespace contract {

/// Gets rows in their order and gives away pieces. Rows that hold no traffic are passed over.
class CaptureReader {
  public:
    using Take = std::function<void(const Piece&)>;

    /// `frames`: the family's frames end by themselves, so that one may go on in the next row of hex text.
    CaptureReader(bool frames, Take take) : joins(frames), give(std::move(take)) {}

    /// A row without its line end.
    void take_row(std::string_view row);
    /// The last row has been taken.
    void finish();

  private:
    void take_log_text(std::string_view time, std::string_view text);
    bool take_dump_row(std::string_view text);
    void take_hex_row(std::string_view row);
    void give_answer();
    void give_typed();

    const bool joins;
    Take give;
    bool is_log = false;
    Piece waiting;             ///< of a log: what its next dump will be
    bool has_waiting = false;  ///< an answer, or a question, has been announced
    bool is_dump = false;
    bool repeats = false;  ///< the next dump is one that has been there already
    Piece typed;           ///< rows of hex text so far
};

/// The bytes of hex text: pairs of digits, with or without "0x", and blanks, commas or colons between them. What is
/// none goes into `reason`.
std::vector<std::uint8_t> bytes_of_hex(std::string_view text, std::string& reason);

}  // namespace contract
