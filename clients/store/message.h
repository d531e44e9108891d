#pragma once
// A message of a gateway: lines of one system's archive files, as JSON. Whatever comes is looked at here; what leaves
// can stand in the database.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace store {

struct Line {
    std::string name;
    std::int32_t time = 0;  ///< seconds since 1970, as the gateway's time_t
    std::int32_t quality = 0;
    double value = 0;
    int place = 0;  ///< in the message
};

struct BadLine {
    std::string text;
    std::string reason;
    int place = 0;
};

struct Message {
    std::string gateway;
    std::string meter;
    std::int32_t system = 0;
    std::string kind;  ///< hourly, daily, event
    std::vector<Line> lines;
    std::vector<BadLine> bad;
};

constexpr std::size_t LargestBody = 64 * 1024;
constexpr int MostLines = 8192;           ///< a place needs 13 bits
constexpr std::size_t LongestText = 255;  ///< of a gateway's, a meter's, a file's name

/// A text as one token of a subject: what is no letter, digit, `-` or `_` as %XX.
std::string token_of(std::string_view text);
/// The subject that such a message has.
std::string subject_of(const Message& message);

/// The body as it was before a gateway made it shorter. What is wrong with it, "" if nothing is; else `text` is as it
/// came.
std::string unpack(std::string_view encoding, std::string_view body, std::string& text);

class Decoder {
  public:
    Decoder();
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// What is wrong with the whole message, or "": then `message` holds its lines, and its bad ones.
    std::string decode(std::string_view subject, std::string_view body, Message& message);

  private:
    struct Parser;
    std::unique_ptr<Parser> parser;
};

}  // namespace store
