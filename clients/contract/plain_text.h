#pragma once
// Text out of files and meters is data: nothing in it may act on a terminal, a page or a message.

#include <string>
#include <string_view>

namespace contract {

/// Valid UTF-8: what is none becomes U+FFFD.
std::string valid_utf8(std::string_view text);

/// For a terminal, one line of it: valid UTF-8 without control characters and without what changes the direction of
/// writing; each of them becomes U+FFFD.
std::string for_terminal(std::string_view text);

/// How many columns of a terminal a text without control characters takes.
std::size_t columns_of(std::string_view text);

/// The beginning of such a text that takes no more than so many columns.
std::string_view within_columns(std::string_view text, std::size_t most);

}  // namespace contract
