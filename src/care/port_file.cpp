#include "care/port_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

namespace {

constexpr std::string_view Variable = "HEATMETERD_WORDS";
constexpr std::string_view MeterNames[] = {"KM5", "KM56i", "ATT", "VIST", "VISTmodbus", "SA94"};
// Files of other programs beside those of the ports.
constexpr std::string_view NoPorts[] = {"units", "uplink"};
constexpr std::size_t FileLimit = 64 * 1024;
constexpr std::size_t FirstMeter = 2;  // behind the name and -r or -j

/// Of a port and of a word: nothing that a shell, systemd or a path takes for more than a letter.
bool is_plain(std::string_view word) {
    const auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
               c == '-';
    };
    return !word.empty() && word != "." && word != ".." && std::all_of(word.begin(), word.end(), plain);
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

Words split(std::string_view text) {
    Words words;
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return words;
}

/// Foreign text for a message: cut, and without control characters.
std::string shown(std::string_view text) {
    std::string result(text.substr(0, 60));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, '?');
    return result;
}

/// What is wrong with the words of a process, or "".
std::string fault_of(const Words& words) {
    for (const std::string& word : words) {
        if (!is_plain(word)) return "\"" + shown(word) + "\" has other signs than letters, digits, '.', '_' and '-'";
    }
    if (words.size() < FirstMeter || (words[1] != "-r" && words[1] != "-j")) {
        return "the words are not NAME -r UUID... or WORD -j UUID...";
    }
    if (words[1] == "-r" && std::find(std::begin(MeterNames), std::end(MeterNames), words[0]) == std::end(MeterNames)) {
        return "unknown name \"" + words[0] + "\"; there are KM5, KM56i, ATT, VIST, VISTmodbus, SA94";
    }
    if (words.size() == FirstMeter) return "no uuid";
    for (auto word = words.begin() + FirstMeter; word != words.end(); ++word) {
        if (word->front() == '-') return "\"" + *word + "\" is no uuid";
    }
    return "";
}

/// The value between its quotes, or what is wrong with the line.
std::pair<std::string_view, std::string> value_of(std::string_view line) {
    if (line.find('\r') != std::string_view::npos) return {{}, "the line ends with CR LF, not with LF alone"};
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || line.substr(0, equals) != Variable) {
        return {{}, "\"" + shown(line.substr(0, equals)) + "\" is not HEATMETERD_WORDS"};
    }
    const std::string_view value = line.substr(equals + 1);
    const char quote = value.empty() ? '\0' : value.front();
    if (value.size() < 2 || (quote != '"' && quote != '\'') || value.back() != quote) {
        return {{}, "the value is not in quotes"};
    }
    return {value.substr(1, value.size() - 2), ""};
}

/// At most FileLimit + 1 bytes; nothing of what is no file.
std::string text_of(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return "";
    struct stat status {};
    std::string text;
    if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        text.resize(FileLimit + 1);
        const ssize_t count = ::read(fd, text.data(), text.size());
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    ::close(fd);
    return text;
}

}  // namespace

PortFile parse_port_file(const std::string& path, std::string_view text) {
    PortFile file;
    int number = 0;
    bool told = false;
    const auto problem = [&](const std::string& what) {
        file.problems.push_back(path + ":" + std::to_string(std::max(number, 1)) + ": " + what);
    };
    if (text.size() > FileLimit) {
        problem("the file is too long");
        return file;
    }
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        // Before release 254 systemd takes the next line for comment, too.
        if ((line.starts_with('#') || line.starts_with(';')) && line.ends_with('\\')) {
            problem("the comment ends with a backslash");
        }
        if (line.empty() || line.front() == '#' || line.front() == ';') continue;
        const auto [value, fault] = value_of(line);
        if (!fault.empty()) {
            problem(fault);
            told = true;
            continue;
        }
        if (!file.words.empty()) problem("HEATMETERD_WORDS stands a second time");
        file.words = split(value);
        told = true;
        if (const std::string wrong = fault_of(file.words); !wrong.empty()) problem(wrong);
    }
    if (!told) problem("no HEATMETERD_WORDS");
    return file;
}

std::optional<std::string> port_of_file(std::string_view name) {
    constexpr std::string_view Ending = ".conf";
    if (name.size() <= Ending.size() || !name.ends_with(Ending)) return std::nullopt;
    name.remove_suffix(Ending.size());
    if (std::find(std::begin(NoPorts), std::end(NoPorts), name) != std::end(NoPorts)) return std::nullopt;
    return std::string(name);
}

std::map<std::string, PortFile> read_ports(const std::string& folder) {
    std::map<std::string, PortFile> ports;
    std::map<std::string, std::set<std::string>> ports_of;  // by uuid
    for (const std::string& name : names_in(folder)) {
        const std::filesystem::path path = std::filesystem::path(folder) / name;
        const auto known = port_of_file(name);
        if (!known) continue;
        const std::string& port = *known;
        if (!is_plain(port) || port.front() == '-') {
            ports[port].problems.push_back(folder + "/" + shown(port) +
                                           ".conf:1: the name has other signs than letters, digits, '.', '_' and '-'");
            continue;
        }
        const PortFile& file = ports[port] = parse_port_file(path.string(), text_of(path.string()));
        std::set<std::string> seen;
        for (const std::string& uuid : meters_of(file.words)) {
            ports_of[uuid].insert(port);
            if (!seen.insert(uuid).second) {
                ports[port].problems.push_back(path.string() + ":1: uuid " + shown(uuid) + " stands twice");
            }
        }
    }
    for (const auto& [uuid, names] : ports_of) {
        if (names.size() < 2) continue;
        for (const std::string& port : names) {
            const std::string& other = *names.begin() == port ? *std::next(names.begin()) : *names.begin();
            ports[port].problems.push_back(folder + "/" + port + ".conf:1: uuid " + shown(uuid) + " also stands in " +
                                           other + ".conf");
        }
    }
    return ports;
}

std::vector<std::string> names_in(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Words meters_of(const Words& words) {
    return words.size() <= FirstMeter ? Words() : Words(words.begin() + FirstMeter, words.end());
}

bool is_single_bus(const Words& words) {
    return words.size() > 1 && words[1] == "-j";
}
