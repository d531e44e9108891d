#include "faults/machine_watch.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <malloc.h>

#include "faults/broken_invariant.h"

namespace fs = std::filesystem;

namespace faults {

namespace {

constexpr std::size_t MostLogBytes = 205 * 1024 + 1024;  // and a line
constexpr std::size_t MostTrailBytes = 512 * 1024;       // a date line each time a set of files is thrown away
constexpr std::size_t MostStateBytes = 1024;
constexpr std::size_t MostItemBytes = 256;
constexpr std::size_t MostFiles = 1000;             // of one meter, below /tmp
constexpr std::size_t MostRunningDescriptors = 24;  // of a process, beside those of the test
constexpr std::size_t SpareDescriptors = 3;         // the service's own connections come and go
constexpr int MostLooks = 200;
constexpr unsigned BetweenLooks = 10'000;  // microseconds
constexpr long long MostHeapBytes = 16 << 20;

long long heap_in_use() {
    const struct mallinfo2 heap = ::mallinfo2();
    return static_cast<long long>(heap.uordblks + heap.hblkhd);  // large pieces are mapped, and counted by themselves
}

std::size_t open_descriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string text_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::size_t bound_of(const std::string& path) {
    if (path.find("/tc_items/") != std::string::npos) return MostItemBytes;
    if (path.find("/uni_logs.") != std::string::npos) return MostLogBytes;
    if (path.find("/arch.integrity.fail.") != std::string::npos) return MostTrailBytes;
    return MostStateBytes;
}

}  // namespace

MachineWatch::MachineWatch(std::string root, const std::string& uuid)
    : MachineWatch(std::move(root), std::vector<std::string>{uuid}) {}

MachineWatch::MachineWatch(std::string root, std::vector<std::string> uuids)
    : root_(std::move(root)), uuids_(std::move(uuids)) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root_)) {
        elsewhere_.insert(entry.path().string());
    }
}

void MachineWatch::look() const {
    look_at_paths();
    look_at_tmp();
    for (const std::string& uuid : uuids_) look_at_items(uuid);
    if (descriptors_ != 0 && open_descriptors() > descriptors_ + MostRunningDescriptors) {
        throw BrokenInvariant("open descriptors: " + std::to_string(open_descriptors()));
    }
}

void MachineWatch::look_at_paths() const {
    for (auto entry = fs::recursive_directory_iterator(root_); entry != fs::recursive_directory_iterator(); ++entry) {
        const std::string path = entry->path().string();
        if (path == root_ + "/tmp" || path == root_ + "/mnt/storage") {
            entry.disable_recursion_pending();
        } else if (!elsewhere_.contains(path)) {
            throw BrokenInvariant("a path outside of /tmp and /mnt/storage: " + path.substr(root_.size()));
        }
    }
    for (const char* top : {"/tmp/", "/mnt/storage/"}) {
        for (const std::string& uuid : uuids_) {
            if (fs::exists(top + uuid)) throw BrokenInvariant("a path of the machine itself: " + (top + uuid));
        }
    }
}

void MachineWatch::look_at_tmp() const {
    std::size_t files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root_ + "/tmp")) {
        ++files;
        if (entry.symlink_status().type() != fs::file_type::regular) continue;
        const std::string path = entry.path().string();
        std::error_code gone;
        const auto size = static_cast<std::size_t>(entry.file_size(gone));
        if (gone) continue;
        if (bound_of(path) == MostLogBytes) largest_log_ = std::max(largest_log_, size);
        if (size > bound_of(path)) {
            throw BrokenInvariant(path.substr(root_.size()) + " has " + std::to_string(size) + " bytes");
        }
    }
    if (files > MostFiles * uuids_.size()) throw BrokenInvariant(std::to_string(files) + " files below /tmp");
}

void MachineWatch::look_at_items(const std::string& uuid) const {
    for (int n = 1; n <= 6; ++n) {
        const std::string items = root_ + "/tmp/" + uuid + "/" + std::to_string(n) + "/tc_items/";
        const std::string connected = text_of(items + "Connected");
        if (connected != "" && connected != "0" && connected != "1") {
            throw BrokenInvariant("Connected is \"" + connected + "\"");
        }
        const std::string status = text_of(items + "_DriverStatus");
        if (status != "" && (status.size() != 1 || status[0] < '0' || status[0] > '6')) {
            throw BrokenInvariant("_DriverStatus is \"" + status + "\"");
        }
    }
}

void MachineWatch::process_ended() {
    std::size_t now = open_descriptors();
    if (descriptors_ == 0) descriptors_ = now;
    // The configuration service closes its connections in a thread of its own, which a busy machine lets wait.
    for (int looks = 0; looks < MostLooks && now > descriptors_ + SpareDescriptors; ++looks) {
        ::usleep(BetweenLooks);
        now = open_descriptors();
    }
    if (now > descriptors_ + SpareDescriptors) {
        throw BrokenInvariant("a process has left " + std::to_string(now - descriptors_) + " descriptors open");
    }
}

void MachineWatch::process_begins() {
    heap_at_ = heap_in_use();
}

void MachineWatch::begin_own_work() {
    heap_ += heap_in_use() - heap_at_;
}

void MachineWatch::end_own_work() {
    heap_at_ = heap_in_use();
}

void MachineWatch::process_is_gone(std::size_t explained) {
    begin_own_work();
    if (heap_ > MostHeapBytes + static_cast<long long>(explained)) {
        throw BrokenInvariant("processes have kept " + std::to_string(heap_) + " bytes of memory, of which " +
                              std::to_string(explained) + " are the simulated machine's");
    }
}

}  // namespace faults
