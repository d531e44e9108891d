#include "contract/flags.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "contract/site.h"
#include "contract/users.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr std::size_t LongestText = 200;

struct Form {
    std::string_view name;  // the whole one, or the beginning in front of a uuid
    bool has_uuid;
    FlagKind kind;
};
constexpr Form Forms[] = {
    {"pause_tvk_all", false, FlagKind::PauseAll},       {"pause_tvk", false, FlagKind::Pause},
    {"extds_pause", false, FlagKind::ExtdsPause},       {"tvk_force_update_archives_", true, FlagKind::ForceArchives},
    {"tvk_force_update_", true, FlagKind::ForceUpdate}, {"DRV_LCK_", true, FlagKind::DriverLock},
    {"RPRT_LCK_", true, FlagKind::ReportLock},
};

}  // namespace

std::vector<Flag> flags() {
    std::vector<Flag> found;
    for (const std::string& name : names_in("/tmp")) {
        const auto form = std::ranges::find_if(Forms, [&name](const Form& candidate) {
            return candidate.has_uuid ? name.starts_with(candidate.name) : name == candidate.name;
        });
        if (form == std::end(Forms)) continue;
        Flag flag{.kind = form->kind, .path = "/tmp/" + name, .uuid = {}, .since = 0, .owner = {}, .text = {}};
        struct stat status {};
        // The daemon follows links: a dangling one is no flag.
        if (gateway().look_at(flag.path, status) != 0) continue;
        flag.since = status.st_mtime;
        flag.owner = user_name(status.st_uid);
        if (form->has_uuid) flag.uuid = name.substr(form->name.size());
        flag.text = read_text(flag.path, LongestText);
        flag.text.resize(std::min(flag.text.find_first_of(std::string_view("\n\0", 2)), flag.text.size()));
        found.push_back(std::move(flag));
    }
    std::ranges::stable_sort(found, {}, [](const Flag& flag) { return !flag.uuid.empty(); });
    return found;
}

bool holds(const Flag& flag, Family family, const std::string& alias) {
    if (flag.kind == FlagKind::PauseAll) return true;
    constexpr std::array Free = {"serial232.0", "serial485.4", "serial232.D", "serial485.1", "serial485.2"};
    return flag.kind == FlagKind::Pause && family != SA94 && std::ranges::find(Free, alias) == Free.end();
}

std::string driver_state(const std::string& uuid) {
    std::string text = read_text("/tmp/driver." + uuid + ".state", 1024);
    text.resize(std::min(text.find('\n'), text.size()));
    const std::size_t behind = text.find("]  ");
    if (behind == std::string::npos) return "";
    return text.substr(behind + 3, text.find_last_not_of(' ') - behind - 2);
}

std::string status_text(const std::string& driver_status) {
    constexpr std::array Texts = {"pass begun",
                                  "reads description",
                                  "reads present values",
                                  "reads hourly archive",
                                  "reads daily archive",
                                  "reads event archive",
                                  "pass over"};
    if (driver_status.size() != 1 || driver_status[0] < '0') return "";
    const auto number = static_cast<std::size_t>(driver_status[0] - '0');
    return number < Texts.size() ? Texts[number] : "";
}

}  // namespace contract
