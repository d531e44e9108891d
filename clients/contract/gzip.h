#pragma once
// Texts made shorter for a thin line, in the format of RFC 1952.

#include <optional>
#include <string>
#include <string_view>

namespace contract {

/// Empty when there is no memory for it.
std::string gzip(std::string_view text);

/// Nothing for what is no gzip from its first to its last byte, or holds more than `most` bytes.
std::optional<std::string> gunzip(std::string_view packed, std::size_t most);

}  // namespace contract
