#include "archive/archive_file.h"

#include <cstdio>
#include <utility>

#include "core/text.h"

namespace {

constexpr std::size_t NameBytes = 10;
constexpr std::size_t PathBytes = 120;

}  // namespace

std::string archive_line(std::size_t limit, std::time_t time, int quality, double value) {
    return format_cut(limit, "%ld,%d,%f\n", static_cast<long>(time), quality, value);
}

std::string archive_path(const std::string& uuid, int subsystem, const std::string& directory,
                         const std::string& name) {
    return "/mnt/storage/" + uuid + "/" + std::to_string(subsystem) + "/" + directory + "/" + name;
}

ArchiveFile::ArchiveFile(const std::string& whole_path, bool lock) : path(whole_path), locked(lock) {}

ArchiveFile::ArchiveFile(const std::string& uuid, int subsystem, const std::string& parameter, int to_tmp)
    : name(cut(parameter, NameBytes)),
      path(cut(archive_path(uuid, subsystem, to_tmp == 1 ? "tmp_archives" : "tc_archives", parameter), PathBytes - 1)) {
}

ArchiveFile::ArchiveFile(const std::string& uuid, const std::string& subsystem, const std::string& parameter)
    : name(cut(parameter, NameBytes)),
      path(cut("/mnt/storage/" + uuid + "/" + subsystem + "/tc_archives/" + parameter, PathBytes - 1)) {}

bool ArchiveFile::open(int flags) {
    if (file) return true;
    file = File(path, flags);
    if (locked) file.lock();
    return file.is_open();
}

bool ArchiveFile::open_append() {
    if (file) return true;
    if (!open(O_RDWR | O_CREAT | O_APPEND)) return false;
    if (file.last_line_is_open()) pending = "\n";
    return true;
}

bool ArchiveFile::open_truncate() {
    return open(O_WRONLY | O_CREAT | O_TRUNC);
}

void ArchiveFile::append(const std::string& line) {
    if (file) pending += line;
}

void ArchiveFile::close() {
    if (!file) return;
    file.write(std::exchange(pending, {}));
    file.make_durable();
    file.close();
}

void ArchiveFile::clear() {
    if (!open_truncate()) std::printf("Error while open on clear (%s)\n", path.c_str());
    close();
    open_truncate();
}
