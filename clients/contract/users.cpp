#include "contract/users.h"

#include <array>

#include <grp.h>
#include <pwd.h>

#include "core/gateway.h"

namespace contract {

namespace {

constexpr std::size_t EntryBytes = 4096;

}  // namespace

std::string user_name(uid_t user) {
    std::array<char, EntryBytes> texts{};
    passwd entry{};
    passwd* found = nullptr;
    const bool here = gateway().root().empty();
    if (here && ::getpwuid_r(user, &entry, texts.data(), texts.size(), &found) == 0 && found != nullptr) {
        return entry.pw_name;
    }
    return std::to_string(user);
}

std::string group_name(gid_t number) {
    std::array<char, EntryBytes> texts{};
    group entry{};
    group* found = nullptr;
    const bool here = gateway().root().empty();
    if (here && ::getgrgid_r(number, &entry, texts.data(), texts.size(), &found) == 0 && found != nullptr) {
        return entry.gr_name;
    }
    return std::to_string(number);
}

}  // namespace contract
