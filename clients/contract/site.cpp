#include "contract/site.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <memory>
#include <set>

#include "core/files.h"
#include "core/gateway.h"

namespace contract {

namespace {

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

std::string real_path(const std::string& name) {
    const std::unique_ptr<char, void (*)(void*)> text(::realpath(name.c_str(), nullptr), std::free);
    return text == nullptr ? std::string() : std::string(text.get());
}

/// What a path below the root may not lead out of: the root; and of /tmp, where everybody can make links, /tmp, so that
/// nobody is shown what only the reader may read. Empty: it may lead anywhere.
std::string limit_of(const std::string& path) {
    return gateway().root() + (path.starts_with("/tmp/") ? "/tmp" : "");
}

bool is_below(const std::string& target, const std::string& limit) {
    const std::string inside = real_path(limit);
    return !inside.empty() && (target == inside || target.starts_with(inside == "/" ? inside : inside + '/'));
}

bool stays_inside(const std::string& path) {
    const std::string limit = limit_of(path);
    return limit.empty() || is_below(real_path(gateway().root() + path), limit);
}

bool has_system(const std::string& folder) {
    for (int system = 1; system <= Systems; ++system) {
        if (is_directory(folder + '/' + std::to_string(system))) return true;
    }
    return false;
}

}  // namespace

File open_for_reading(const std::string& path) {
    File file(path, O_RDONLY);
    const std::string limit = limit_of(path);
    if (!file || limit.empty()) return file;
    // By what was opened: a link can come at any moment.
    std::array<char, PATH_MAX> target{};
    const std::string own = "/proc/self/fd/" + std::to_string(file.descriptor());
    const ssize_t length = ::readlink(own.c_str(), target.data(), target.size());
    if (length <= 0 || !is_below({target.data(), static_cast<std::size_t>(length)}, limit)) return {};
    return file;
}

File open_archive(const std::string& path) {
    constexpr long BetweenLooks = 20'000'000;  // nanoseconds
    constexpr int MostLooks = 50;
    constexpr int LooksAtRest = 3;
    File file = open_for_reading(path);
    struct stat status {};
    if (!file || path.find("/tc_tmp_archives/") == std::string::npos || !file.look(status)) return file;
    int at_rest = 0;
    for (int look = 0; look < MostLooks && at_rest < LooksAtRest; ++look) {
        if (std::labs(static_cast<long>(gateway().now() - status.st_mtime)) > 1) break;
        gateway().sleep_nanoseconds(BetweenLooks);
        const struct stat before = status;
        const bool same = file.look(status) && status.st_size == before.st_size &&
                          status.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                          status.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
        at_rest = same ? at_rest + 1 : 0;
    }
    return file;
}

std::vector<std::string> names_in(const std::string& folder) {
    std::vector<std::string> names;
    if (!stays_inside(folder) || gateway().list_folder(folder, names) != 0) return {};
    std::erase_if(names, [](const std::string& name) { return name == "." || name == ".."; });
    std::ranges::sort(names, comes_before);
    return names;
}

std::string read_text(const std::string& path, std::size_t most) {
    File file = open_for_reading(path);
    std::string text(most, '\0');
    text.resize(file.read(text));
    return text;
}

bool comes_before(const std::string& one, const std::string& other) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < one.size() && j < other.size()) {
        if (is_digit(one[i]) && is_digit(other[j])) {
            const auto number = [](const std::string& text, std::size_t& at) {
                const std::size_t begin = std::min(text.find_first_not_of('0', at), text.size());
                std::size_t end = begin;
                while (end < text.size() && is_digit(text[end])) ++end;
                at = end;
                return text.substr(begin, end - begin);
            };
            const std::string first = number(one, i);
            const std::string second = number(other, j);
            if (first.size() != second.size()) return first.size() < second.size();
            if (first != second) return first < second;
        } else if (one[i] != other[j]) {
            return static_cast<unsigned char>(one[i]) < static_cast<unsigned char>(other[j]);
        } else {
            ++i;
            ++j;
        }
    }
    return one.size() - i < other.size() - j || (i == one.size() && j == other.size() && one < other);
}

bool is_meter_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.size() <= 255 &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

std::vector<std::string> meters() {
    std::set<std::string> found;
    for (const std::string place : {"/tmp", "/mnt/storage"}) {
        for (const std::string& name : names_in(place)) {
            const std::string folder = place + '/' + name;
            if (has_system(folder) && stays_inside(folder)) found.insert(name);
        }
    }
    return {found.begin(), found.end()};
}

bool parse_meter_system(const std::string& text, MeterSystem& meter) {
    const std::size_t slash = text.rfind('/');
    meter.uuid = text.substr(0, slash);
    meter.system = 1;
    if (slash != std::string::npos) {
        if (text.size() != slash + 2 || text[slash + 1] < '1' || text[slash + 1] > '0' + Systems) return false;
        meter.system = text[slash + 1] - '0';
    }
    return is_meter_name(meter.uuid);
}

std::string items_folder(const std::string& uuid, int system) {
    return "/tmp/" + uuid + '/' + std::to_string(system) + "/tc_items";
}

std::string storage_folder(const std::string& uuid, int system) {
    return "/mnt/storage/" + uuid + '/' + std::to_string(system);
}

std::string archive_folder(const std::string& uuid, int system, bool staged) {
    const std::string folder = storage_folder(uuid, system);
    if (names_in(folder + "/tmp_archives").empty()) return folder + "/tc_archives";
    return folder + (staged ? "/tmp_archives" : "/tc_tmp_archives");
}

}  // namespace contract
