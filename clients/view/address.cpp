#include "view/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <cstring>

namespace view {

std::optional<Address> parse_address(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    std::string host = text.substr(0, colon);
    in_port_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
    if (error != std::errc{} || stop != end) return std::nullopt;
    Address address;
    if (host.starts_with('[') && host.ends_with(']')) {
        sockaddr_in6 six{};
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(port);
        if (::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &six.sin6_addr) != 1) return std::nullopt;
        address.is_loopback = IN6_IS_ADDR_LOOPBACK(&six.sin6_addr);
        std::memcpy(&address.socket, &six, sizeof six);
        return address;
    }
    if (host == "localhost") host = "127.0.0.1";
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    if (::inet_pton(AF_INET, host.c_str(), &four.sin_addr) != 1) return std::nullopt;
    address.is_loopback = ntohl(four.sin_addr.s_addr) >> 24 == 127;
    std::memcpy(&address.socket, &four, sizeof four);
    return address;
}

}  // namespace view
