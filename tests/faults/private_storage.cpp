#include "faults/private_storage.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <utility>

namespace faults {

namespace {

constexpr const char* Roomy = "size=1g";

bool entered = false;

/// Where the process is not root it becomes so in a name space of its own, which is enough for mounts of memory.
bool enter_name_spaces() {
    if (::unshare(CLONE_NEWNS) == 0) return true;
    const auto user = ::getuid();
    const auto group = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    return true;
}

}  // namespace

bool enter_private_mounts() {
    entered = enter_name_spaces() && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return entered;
}

PrivateStorage::PrivateStorage(std::string folder) : folder_(std::move(folder)) {
    if (entered) mounted_ = ::mount("storage", folder_.c_str(), "tmpfs", 0, Roomy) == 0;
}

PrivateStorage::~PrivateStorage() {
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
}

bool PrivateStorage::remount(unsigned long flags, const std::string& options) const {
    return mounted_ && ::mount("storage", folder_.c_str(), "tmpfs", MS_REMOUNT | flags, options.c_str()) == 0;
}

bool PrivateStorage::fill_up(unsigned pages_left) {
    struct statvfs status {};
    if (!mounted_ || ::statvfs(folder_.c_str(), &status) != 0) return false;
    const std::uint64_t used = status.f_blocks - status.f_bfree + pages_left;
    return remount(0, "size=" + std::to_string(used * status.f_bsize));
}

bool PrivateStorage::make_read_only() {
    return remount(MS_RDONLY, "");
}

void PrivateStorage::recover() {
    remount(0, Roomy);
}

}  // namespace faults
