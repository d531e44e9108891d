#pragma once
// What was said on a line, taken apart: one frame of a family's protocol, as values. Whoever prints it decides how.

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "contract/catalogue.h"
#include "core/bytes.h"

namespace contract {

enum class Direction { Unknown, Question, Answer };

/// A value of a frame under its name.
struct FrameField {
    std::string name;
    std::string value;
    bool is_number = false;
};

/// A check sum of a frame: what it is, and what it should be.
struct FrameCheck {
    std::string name;
    std::string is;
    std::string should_be;

    bool right() const { return is == should_be; }
};

struct Frame {
    std::string time;  ///< as it was noted, empty when nobody has
    std::string line;  ///< the line's name in a trace
    Direction direction = Direction::Unknown;
    std::string kind;  ///< empty: these bytes are no frame
    std::vector<FrameField> fields;
    std::vector<FrameCheck> checks;
    std::vector<std::uint8_t> bytes;
    std::string reason;  ///< why they are no frame, or what is odd

    void add(std::string name, std::string text) { fields.push_back({std::move(name), std::move(text)}); }
    void add(std::string name, const char* text) { add(std::move(name), std::string(text)); }
    void add(std::string name, double value);
    void add(std::string name, float value);
    void add(std::string name, int value) { add_whole(std::move(name), value); }
    void add(std::string name, unsigned value) { add_whole(std::move(name), value); }
    /// Date and time of day as they stand, whatever their digits.
    void add(std::string name, const std::tm& tm);
    void add_bits(std::string name, std::uint32_t bits);
    void add_check(std::string name, unsigned is, unsigned should_be, int bytes = 1);
    bool is_right() const;

  private:
    void add_whole(std::string name, long long value);
};

/// Bytes that were noted together.
struct Piece {
    std::string time;
    std::string line;
    Direction direction = Direction::Unknown;
    std::vector<std::uint8_t> bytes;
    std::string title;  ///< what a log calls the question
    bool bare = false;  ///< an answer without its first byte and its check sums, as the log of a VISTmodbus has it
    std::vector<std::size_t> ends;  ///< of the rows that the bytes were typed in; none: it is one
    std::string reason;             ///< why a row gives no bytes, or not all
};

/// Takes the pieces of one line in their order: what an answer means lies in the question before it, and what a record
/// means in what the meter has said of itself.
class Decoder {
  public:
    virtual ~Decoder() = default;
    std::vector<Frame> decode(const Piece& piece);

  protected:
    /// The frame at the beginning of some bytes that are not empty. Without `whole` one that is complete with right
    /// sums, else none (of no bytes); with it all bytes are taken for one, whatever they are.
    virtual Frame frame_of(Bytes bytes, Direction direction, bool whole) = 0;
    /// A question or an answer of which a log tells less than its bytes.
    virtual Frame told(const Piece& piece);
    /// Nothing was heard.
    virtual Frame silence();
};

/// The decoder of a single family.
std::unique_ptr<Decoder> make_decoder(Family family);

/// "0A 1F"
std::string hex_text(Bytes bytes);
/// The printable letters of ASCII as they are, others as "\0D".
std::string letters_text(Bytes bytes);

}  // namespace contract
