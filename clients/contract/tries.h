#pragma once
// What a driver's log of the line says of each question: was there an answer? And what is known of lines that mislead.

#include <cstdint>
#include <optional>
#include <string_view>

#include "contract/logs.h"

namespace contract {

enum class Heard {
    Answer,
    Nothing,   ///< of a VIST on Modbus also an answer that is not whole: its log does not tell the two apart
    NoAnswer,  ///< bytes that are no answer: sums, echo or frame are wrong
};

/// Reads log lines one after the other and says which of them belong to one try of a question.
class TryReader {
  public:
    enum class Part {
        Outside,  ///< of no try
        Begin,    ///< of the next one
        Inside,
    };
    Part take(std::string_view text);
    /// Of the try so far; nothing for a question that wants no answer, or whose answer was not told yet.
    std::optional<Heard> heard() const;

  private:
    Part begin(std::string_view text);

    bool open = false;
    bool wants_answer = true;
    bool failed = false;
    bool refused = false;  // the meter has answered with an error
    bool good = false;
    bool may_be_unframed = false;  // of a family whose answers have no frame
    std::optional<long> received;
};

/// The tries at the end of a log that had no answer.
struct Silence {
    int tries = 0;
    int with_bytes = 0;
    std::int64_t since = 0;  ///< seconds since the epoch
    std::int64_t until = 0;
    std::optional<std::int64_t> last_answer;
};
Silence silence_at_end(const Log& log);

/// What a line says that is known to mislead; empty for others.
std::string_view explanation_of(std::string_view text);

}  // namespace contract
