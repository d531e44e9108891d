#pragma once
// What is answered to a request, without any HTTP.

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace view {

/// The body of an answer that is made while it is sent.
class Source {
  public:
    virtual ~Source() = default;
    enum class Piece { More, End, Broken };
    /// Appends the next piece. Broken: what was sent must not be taken for the whole.
    virtual Piece next(std::string& text) = 0;
};

struct Answer {
    unsigned status = 200;
    std::string type = "application/json";
    std::string body = {};
    std::string_view fixed_body = {};          ///< in place of it, of a text that is built in
    std::unique_ptr<Source> source = nullptr;  ///< in place of both
    std::vector<std::pair<std::string, std::string>> headers = {};
};

/// {"error": text}
Answer refusal(unsigned status, const std::string& text);

/// Takes long, so it is done elsewhere; knows nothing of what the loop owns.
using Job = std::function<Answer()>;
/// The request has to be asked again when the status has been looked at anew.
struct AfterStatus {};
/// The answer is the stream of what happens.
struct EventStream {};
using Reply = std::variant<Answer, Job, AfterStatus, EventStream>;

}  // namespace view
