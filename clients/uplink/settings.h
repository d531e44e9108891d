#pragma once
// What a keeper settles: /etc/heatmeterd/uplink.conf.
//
//     [gateway]
//     name = cellar-7
//     [nats]
//     url = tls://one.example:4222,tls://two.example:4222
//
// A section of a sink that is not there is a sink that is not used.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace uplink {

constexpr const char* SettingsFile = "/etc/heatmeterd/uplink.conf";

struct Server {
    std::string host;
    int port = 0;
    bool tls = false;
};

/// What both kinds of broker want to be told.
struct Broker {
    std::vector<Server> servers;  ///< of MQTT one
    std::string user;
    std::string password_file;
    std::string ca;
    std::string cert;
    std::string key;
    int url_line = 0;
};

struct Settings {
    std::string gateway;
    bool values = true;
    int unchanged_minutes = 15;
    bool newest_first = false;
    int lines_per_second = 0;  ///< 0: no limit

    std::optional<Broker> mqtt;
    std::string prefix = "heatmeter";
    bool discovery = false;
    std::optional<Broker> nats;
    bool compress = false;  ///< of NATS: what is sent

    std::string file;                       ///< its name in messages
    std::multimap<int, std::string> wrong;  ///< by line

    /// "FILE:LINE: what is wrong", in the order of the lines.
    std::vector<std::string> problems() const;
};

Settings parse_settings(const std::string& file, const std::string& text);
/// Nothing when it cannot be read; `fault` tells why.
std::optional<Settings> read_settings(const std::string& file, std::string& fault);

/// The first line of its file, "" without one; nothing when it cannot be read.
std::optional<std::string> password_of(const Broker& broker);

}  // namespace uplink
