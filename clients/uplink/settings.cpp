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
#include <ini.h>

#include "contract/plain_text.h"

namespace uplink {

namespace {

constexpr std::size_t LongestFile = std::size_t{64} * 1024;
constexpr std::size_t LongestName = 100;   // of a gateway: a part of every topic
constexpr int LongestPause = 7 * 24 * 60;  // minutes
constexpr int MostLines = 1'000'000;

/// Foreign text for a message.
std::string shown(std::string_view text) {
    return std::string(contract::within_columns(contract::for_terminal(text), 60));
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

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
        add_broker_keys<&Settings::nats>(sections["nats"]);
        sections["nats"]["url"] = take_nats_url;
        return sections;
    }();
    return Sections;
}

/// The lines as inih asks for them, and what it makes of them. Each begins without blanks, else it would continue the
/// one before.
struct SettingLines {
    std::string_view rest;
    Settings& settings;
    int number = 0;
    std::map<std::string, int> seen = {};  // keys and sections, by line

    void problem(const std::string& what) { settings.wrong.emplace(number, what); }

    void section(std::string_view line) {
        const std::size_t end = line.find(']');
        const std::string name(trimmed(line.substr(1, end == std::string_view::npos ? end : end - 1)));
        if (end == std::string_view::npos || !known_sections().contains(name)) {
            problem(fmt::format("\"{}\" is none of [gateway], [send], [mqtt], [nats]", shown(line)));
            return;
        }
        if (!seen.emplace('[' + name, number).second) problem(fmt::format("[{}] stands a second time", name));
        if (name == "mqtt" && !settings.mqtt) settings.mqtt.emplace();
        if (name == "nats" && !settings.nats) settings.nats.emplace();
    }

    static char* next(char* buffer, int size, void* lines) {
        SettingLines& self = *static_cast<SettingLines*>(lines);
        if (self.rest.empty()) return nullptr;
        const std::size_t end = self.rest.find('\n');
        const std::string_view line = trimmed(self.rest.substr(0, end));
        self.rest.remove_prefix(end == std::string_view::npos ? self.rest.size() : end + 1);
        ++self.number;
        std::string text(line);
        const bool is_remark = line.starts_with('#') || line.starts_with(';');
        if (line.find('\0') != std::string_view::npos) {
            self.problem("there is a zero byte in it");
            text.clear();
        } else if (line.size() + 2 > static_cast<std::size_t>(size)) {
            if (!is_remark) self.problem("the line is too long");
            text.clear();
        } else if (line.starts_with('[')) {
            self.section(line);
            if (line.find(']') == std::string_view::npos) text = "[]";
        }
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return buffer;
    }

    static int take(void* lines, const char* section, const char* name, const char* value) {
        SettingLines& self = *static_cast<SettingLines*>(lines);
        const auto keys = known_sections().find(section);
        if (keys == known_sections().end()) {
            // Behind a section that is wrong, which was told.
            if (*section == '\0' && self.seen.empty() && self.settings.wrong.empty()) {
                self.problem("it stands below no section");
            }
            return 1;
        }
        const auto key = keys->second.find(name);
        if (key == keys->second.end()) {
            self.problem(fmt::format("[{}] has no \"{}\"", section, shown(name)));
        } else if (*value == '\0') {
            self.problem(fmt::format("{} says nothing", name));
        } else if (!self.seen.emplace(std::string(section) + '\n' + name, self.number).second) {
            self.problem(fmt::format("{} stands a second time", name));
        } else if (const std::string fault = key->second(self.settings, value); !fault.empty()) {
            self.problem(fault);
        }
        return 1;
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
            settings.wrong.emplace(std::max(number, 1), "there is neither [mqtt] nor [nats]: nothing is sent anywhere");
        }
        look_at("mqtt", settings.mqtt);
        look_at("nats", settings.nats);
    }
};

}  // namespace

std::vector<std::string> Settings::problems() const {
    std::vector<std::string> told;
    for (const auto& [line, what] : wrong) told.push_back(fmt::format("{}:{}: {}", file, line, what));
    return told;
}

Settings parse_settings(const std::string& file, const std::string& text) {
    Settings settings;
    settings.file = file;
    if (text.size() > LongestFile) {
        settings.wrong.emplace(1, "the file is too long");
        return settings;
    }
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    SettingLines lines{.rest = text, .settings = settings};
    if (lines.rest.starts_with(ByteOrderMark)) lines.rest.remove_prefix(ByteOrderMark.size());
    // Which knows the first line only that is neither of what is asked for.
    const int line = ini_parse_stream(SettingLines::next, &lines, SettingLines::take, &lines);
    if (line > 0 && !settings.wrong.contains(line)) settings.wrong.emplace(line, "it is not NAME = value");
    lines.look_at_all();
    return settings;
}

std::optional<Settings> read_settings(const std::string& file, std::string& fault) {
    std::ifstream in(file, std::ios::binary);
    std::string text(LongestFile + 1, '\0');
    if (!in || (in.read(text.data(), static_cast<std::streamsize>(text.size())), in.bad())) {
        fault = fmt::format("{} cannot be read: {}", file, std::strerror(errno));
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(in.gcount()));
    return parse_settings(file, text);
}

std::optional<std::string> first_line_of(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace uplink
