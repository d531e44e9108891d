#pragma once
// Text that goes into a field of fixed size: what does not fit is cut, never refused. Every limit of the system stands
// at the call of one of these two.

#include <cstddef>
#include <string>
#include <string_view>

/// snprintf(3) into a buffer of `size` bytes: at most size - 1 characters stay.
[[gnu::format(printf, 2, 3)]] std::string format_cut(std::size_t size, const char* format, ...);

/// At most `length` characters of `text`, up to its first zero byte.
std::string cut(std::string_view text, std::size_t length);

/// The last operand of a command text: as much of it as a buffer of `size` bytes holds behind the `words` in front.
std::string operand_in_command(std::size_t size, std::string_view words, std::string_view operand);
