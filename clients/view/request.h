#pragma once
// What a browser or a program asks for: a path and the words behind it.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace view {

struct Request {
    std::vector<std::string> path;                          ///< its parts, decoded; "/" has none
    std::map<std::string, std::string, std::less<>> words;  ///< behind the "?", decoded

    /// A word's value, or the other text without it.
    std::string word(std::string_view name, std::string_view otherwise = "") const;
    /// True for "1", "true", "yes" and for a word that stands alone.
    bool flag(std::string_view name) const;
};

constexpr std::size_t LongestTarget = 4096;

/// "/api/meters/m%201/1/archive?kind=daily&names=A1". Nothing for what is no such thing: a wrong percent sequence, a
/// coded slash or zero byte, "." or ".." as a part, a word said twice, a longer text.
std::optional<Request> parse_target(std::string_view target);

}  // namespace view
