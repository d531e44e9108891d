#include "archive/archive_file.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/gateway.h"
#include "core/text.h"

namespace {

constexpr std::size_t NameBytes = 10;
constexpr std::size_t PathBytes = 120;

/// True when the file's last byte is there and is not a line end.
bool last_line_is_open(int fd) {
    struct stat status {};
    char last = '\n';
    if (::fstat(fd, &status) != 0 || status.st_size == 0) return false;
    return ::pread(fd, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

}  // namespace

std::string archive_line(std::size_t limit, std::time_t time, int quality, double value) {
    return format_cut(limit, "%ld,%d,%f\n", static_cast<long>(time), quality, value);
}

std::string archive_path(const std::string& uuid, int subsystem, const std::string& directory,
                         const std::string& name) {
    return "/mnt/storage/" + uuid + "/" + std::to_string(subsystem) + "/" + directory + "/" + name;
}

void end_torn_line(std::FILE* stream) {
    if (last_line_is_open(::fileno(stream))) std::fputc('\n', stream);
}

ArchiveFile::ArchiveFile(const std::string& uuid, int subsystem, const std::string& name_, int to_tmp)
    : name(cut(name_, NameBytes)),
      path(cut(archive_path(uuid, subsystem, to_tmp == 1 ? "tmp_archives" : "tc_archives", name_), PathBytes - 1)) {}

ArchiveFile::ArchiveFile(const std::string& uuid, const std::string& subsystem, const std::string& name_)
    : name(cut(name_, NameBytes)),
      path(cut("/mnt/storage/" + uuid + "/" + subsystem + "/tc_archives/" + name_, PathBytes - 1)) {}

bool ArchiveFile::open(const char* mode) {
    if (file) return true;
    file.reset(std::fopen(rooted(path).c_str(), mode));
    if (file) ::flock(::fileno(file.get()), LOCK_EX);
    return file != nullptr;
}

bool ArchiveFile::open_append() {
    if (file) return true;
    if (!open("a+")) return false;
    end_torn_line(file.get());
    return true;
}

bool ArchiveFile::open_truncate() {
    return open("w");
}

void ArchiveFile::append(const std::string& line) {
    if (file) std::fputs(line.c_str(), file.get());
}

void ArchiveFile::close() {
    if (!file) return;
    std::fflush(file.get());
    gateway().make_durable(::fileno(file.get()));
    ::flock(::fileno(file.get()), LOCK_UN);
    file.reset();
}

void ArchiveFile::clear() {
    if (!open_truncate()) std::printf("Error while open on clear (%s)\n", path.c_str());
    close();
    open_truncate();
}
