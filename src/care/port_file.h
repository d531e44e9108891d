#pragma once
// /etc/heatmeterd/PORT.conf: the words of one heatmeterd process. The file is read by systemd too, as an environment
// file, so only what both understand in the same way is let through.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using Words = std::vector<std::string>;

struct PortFile {
    Words words;
    std::vector<std::string> problems;  // "FILE:LINE: what is wrong"; a port with any is not to be started
};

/// The words in the text of a file, and what is wrong with it; `path` is only told.
PortFile parse_port_file(const std::string& path, std::string_view text);

/// The port whose file bears this name; nothing for the names that end in .conf and mean something else.
std::optional<std::string> port_of_file(std::string_view name);

/// All PORT.conf of a folder by port. A uuid that stands twice is a problem of both of its ports.
std::map<std::string, PortFile> read_ports(const std::string& folder);

/// The names in a folder, sorted; those that were read until an error.
std::vector<std::string> names_in(const std::string& folder);

/// The meters in the words; those that settle the port are in front: all in single-bus mode, else the first one.
Words meters_of(const Words& words);
bool is_single_bus(const Words& words);
