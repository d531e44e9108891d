#include "uplink/settings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>

#include <fmt/format.h>

#include "contract/ini_reader.h"
#include "contract/plain_text.h"

namespace uplink {

using contract::shown;
using contract::trimmed;

namespace {

constexpr std::size_t LongestName = 100;   // of a gateway: a part of every topic
constexpr int LongestPause = 7 * 24 * 60;  // minutes
constexpr int MostLines = 1'000'000;

std::optional<int> number_of(std::string_view text, int least, int most) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < least || number > most) return {};
    return number;
}

/// "scheme://host[:port]", an address of IPv6 in brackets. Nothing for another text.
std::optional<Server> server_of(std::string_view text, std::string_view plain, std::string_view with_tls, int port,
                                int tls_port) {
    Server server;
    const std::size_t scheme = text.find("://");
    if (scheme == std::string_view::npos) return {};
    server.tls = text.substr(0, scheme) == with_tls;
    if (!server.tls && text.substr(0, scheme) != plain) return {};
    server.port = server.tls ? tls_port : port;
    text.remove_prefix(scheme + 3);
    if (text.ends_with('/')) text.remove_suffix(1);
    std::size_t end = text.rfind(':');
    if (text.starts_with('[')) {
        const std::size_t bracket = text.find(']');
        if (bracket == std::string_view::npos) return {};
        server.host = text.substr(1, bracket - 1);
        end = bracket + 1 == text.size() ? std::string_view::npos : bracket + 1;
        if (end != std::string_view::npos && text[end] != ':') return {};
        if (server.host.find_first_not_of("0123456789abcdefABCDEF:.%") != std::string::npos) return {};
    } else {
        server.host = text.substr(0, end);
        const auto is_odd = [](unsigned char sign) {
            return std::isalnum(sign) == 0 && sign != '.' && sign != '-' && sign != '_';
        };
        if (std::ranges::any_of(server.host, is_odd)) return {};
    }
    if (server.host.empty()) return {};
    if (end == std::string_view::npos) return server;
    const auto told = number_of(text.substr(end + 1), 1, 65535);
    if (!told) return {};
    server.port = *told;
    return server;
}

/// What a value does to the settings; its answer is what is wrong, empty when nothing is.
using Take = std::function<std::string(Settings&, const std::string&)>;
using Keys = std::map<std::string, Take, std::less<>>;

std::string take_yes(bool& target, const std::string& value) {
    if (value != "yes" && value != "no") return fmt::format("\"{}\" is neither yes nor no", shown(value));
    target = value == "yes";
    return {};
}

std::string take_number(int& target, const std::string& value, int least, int most) {
    const auto number = number_of(value, least, most);
    if (!number) return fmt::format("\"{}\" is no number from {} to {}", shown(value), least, most);
    target = *number;
    return {};
}

std::string take_text(std::string& target, const std::string& value) {
    target = value;
    return {};
}

std::string take_path(std::string& target, const std::string& value) {
    if (!value.starts_with('/')) return fmt::format("\"{}\" is no whole path of a file", shown(value));
    target = value;
    return {};
}

std::string take_name(Settings& settings, const std::string& value) {
    if (value.size() > LongestName) return fmt::format("a name has at most {} letters", LongestName);
    if (contract::for_terminal(value) != value) return "a name has no control characters, and is UTF-8";
    settings.gateway = value;
    return {};
}

std::string take_prefix(Settings& settings, const std::string& value) {
    if (value.find_first_of("+#") != std::string::npos || value.starts_with('/') || value.ends_with('/') ||
        value.starts_with('$') || contract::for_terminal(value) != value) {
        return fmt::format("\"{}\" is no beginning of a topic", shown(value));
    }
    settings.prefix = value;
    return {};
}

std::string take_order(Settings& settings, const std::string& value) {
    if (value != "newest" && value != "oldest") return fmt::format("\"{}\" is neither newest nor oldest", shown(value));
    settings.newest_first = value == "newest";
    return {};
}

std::string take_mqtt_url(Settings& settings, const std::string& value) {
    const auto server = server_of(value, "mqtt", "mqtts", 1883, 8883);
    if (!server) return fmt::format("\"{}\" is no mqtt://HOST:PORT and no mqtts://HOST:PORT", shown(value));
    settings.mqtt->servers = {*server};
    return {};
}

std::string take_nats_url(Settings& settings, const std::string& value) {
    for (std::string_view rest = value; !rest.empty();) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        const std::string_view part = trimmed(rest.substr(0, end));
        const auto server = server_of(part, "nats", "tls", 4222, 4222);
        if (!server) return fmt::format("\"{}\" is no nats://HOST:PORT and no tls://HOST:PORT", shown(part));
        settings.nats->servers.push_back(*server);
        if (server->tls != settings.nats->servers.front().tls) return "either all begin with tls://, or none does";
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

template <std::optional<Broker> Settings::*Which>
void add_broker_keys(Keys& keys) {
    keys["user"] = [](Settings& all, const std::string& value) { return take_text((all.*Which)->user, value); };
    keys["password-file"] = [](Settings& all, const std::string& value) {
        return take_path((all.*Which)->password_file, value);
    };
    keys["ca"] = [](Settings& all, const std::string& value) { return take_path((all.*Which)->ca, value); };
    keys["cert"] = [](Settings& all, const std::string& value) { return take_path((all.*Which)->cert, value); };
    keys["key"] = [](Settings& all, const std::string& value) { return take_path((all.*Which)->key, value); };
}

const std::map<std::string, Keys, std::less<>>& known_sections() {
    static const auto Sections = [] {
        std::map<std::string, Keys, std::less<>> sections;
        sections["gateway"]["name"] = take_name;
        Keys& send = sections["send"];
        send["values"] = [](Settings& all, const std::string& value) { return take_yes(all.values, value); };
        send["unchanged-minutes"] = [](Settings& all, const std::string& value) {
            return take_number(all.unchanged_minutes, value, 1, LongestPause);
        };
        send["order"] = take_order;
        send["lines-per-second"] = [](Settings& all, const std::string& value) {
            return take_number(all.lines_per_second, value, 0, MostLines);
        };
        Keys& mqtt = sections["mqtt"];
        add_broker_keys<&Settings::mqtt>(mqtt);
        mqtt["url"] = take_mqtt_url;
        mqtt["prefix"] = take_prefix;
        mqtt["discovery"] = [](Settings& all, const std::string& value) { return take_yes(all.discovery, value); };
        Keys& nats = sections["nats"];
        add_broker_keys<&Settings::nats>(nats);
        nats["url"] = take_nats_url;
        nats["compress"] = [](Settings& all, const std::string& value) { return take_yes(all.compress, value); };
        return sections;
    }();
    return Sections;
}

class SettingsReader : public contract::IniReader {
  public:
    explicit SettingsReader(Settings& all_settings) : settings(all_settings) {}

    void read_all(const std::string& text) {
        settings.wrong = read(text, "NAME = value");
        if (text.size() <= LongestFile) look_at_all();
    }

  private:
    std::string section(std::string_view line) override {
        const std::size_t end = line.find(']');
        const std::string name(trimmed(line.substr(1, end == std::string_view::npos ? end : end - 1)));
        if (end == std::string_view::npos || !known_sections().contains(name)) {
            problem(fmt::format("\"{}\" is none of [gateway], [send], [mqtt], [nats]", shown(line)));
            return {};
        }
        if (!seen.emplace('[' + name, IniReader::line()).second) {
            problem(fmt::format("[{}] stands a second time", name));
        }
        if (name == "mqtt" && !settings.mqtt) settings.mqtt.emplace();
        if (name == "nats" && !settings.nats) settings.nats.emplace();
        return name;
    }

    void take(const std::string& section, const std::string& name, const std::string& value) override {
        if (section.empty()) {  // behind a section that is wrong, which was told, or in front of all
            if (seen.empty() && is_well()) problem("it stands below no section");
            return;
        }
        const Keys& keys = known_sections().find(section)->second;
        const auto key = keys.find(name);
        if (key == keys.end()) {
            problem(fmt::format("[{}] has no \"{}\"", section, shown(name)));
        } else if (value.empty()) {
            problem(fmt::format("{} says nothing", name));
        } else if (!seen.emplace(section + '\n' + name, line()).second) {
            problem(fmt::format("{} stands a second time", name));
        } else if (const std::string fault = key->second(settings, value); !fault.empty()) {
            problem(fault);
        }
    }

    /// What is wrong with the whole.
    void look_at(const char* section, std::optional<Broker>& broker) {
        if (!broker) return;
        const auto line_of = [&](const std::string& key) {
            const auto found = seen.find(std::string(section) + '\n' + key);
            return found == seen.end() ? 0 : found->second;
        };
        const int head = seen['[' + std::string(section)];
        broker->url_line = line_of("url");
        if (broker->url_line == 0) settings.wrong.emplace(head, fmt::format("[{}] has no url", section));
        const auto with = [&](const std::string& key, const std::string& other) {
            if (line_of(key) != 0 && line_of(other) == 0) {
                settings.wrong.emplace(line_of(key), fmt::format("{} goes with {}, which is not there", key, other));
            }
        };
        with("password-file", "user");
        with("cert", "key");
        with("key", "cert");
        const bool has_tls = std::ranges::any_of(broker->servers, &Server::tls);
        for (const char* const key : {"ca", "cert"}) {
            if (line_of(key) != 0 && !has_tls && !broker->servers.empty()) {
                settings.wrong.emplace(line_of(key), fmt::format("{} goes with a url that begins with {}", key,
                                                                 *section == 'm' ? "mqtts://" : "tls://"));
            }
        }
    }

    void look_at_all() {
        if (settings.gateway.empty() && !seen.contains("gateway\nname")) {
            settings.wrong.emplace(seen.contains("[gateway") ? seen["[gateway"] : 1,
                                   "the gateway has no name: [gateway] and below it name = ...");
        }
        if (!settings.mqtt && !settings.nats) {
            settings.wrong.emplace(std::max(line(), 1), "there is neither [mqtt] nor [nats]: nothing is sent anywhere");
        }
        look_at("mqtt", settings.mqtt);
        look_at("nats", settings.nats);
    }

    Settings& settings;
    std::map<std::string, int> seen;  // keys and sections, by line
};

}  // namespace

std::vector<std::string> Settings::problems() const {
    return contract::problems_of(file, wrong);
}

Settings parse_settings(const std::string& file, const std::string& text) {
    Settings settings;
    settings.file = file;
    SettingsReader(settings).read_all(text);
    return settings;
}

std::optional<Settings> read_settings(const std::string& file, std::string& fault) {
    std::ifstream in(file, std::ios::binary);
    std::string text(contract::IniReader::LongestFile + 1, '\0');
    if (!in || (in.read(text.data(), static_cast<std::streamsize>(text.size())), in.bad())) {
        fault = fmt::format("{} cannot be read: {}", file, std::strerror(errno));
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(in.gcount()));
    return parse_settings(file, text);
}

std::optional<std::string> password_of(const Broker& broker) {
    if (broker.password_file.empty()) return "";
    std::ifstream in(broker.password_file, std::ios::binary);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace uplink
