#pragma once
// Names of users and groups. Those of another gateway are not known here: of a copy's files it is their numbers.

#include <sys/types.h>

#include <string>

namespace contract {

std::string user_name(uid_t user);
std::string group_name(gid_t group);

}  // namespace contract
