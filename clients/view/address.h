#pragma once
// Where to listen.

#include <sys/socket.h>

#include <optional>
#include <string>

namespace view {

struct Address {
    sockaddr_storage socket{};
    bool is_loopback = false;
};

/// "127.0.0.1:8083", "[::1]:8083", "localhost:8083", "0.0.0.0:8083"; nothing for another text.
std::optional<Address> parse_address(const std::string& text);

}  // namespace view
