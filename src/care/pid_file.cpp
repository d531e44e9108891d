#include "care/pid_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

PidFile::~PidFile() {
    if (fd >= 0) ::close(fd);
}

bool PidFile::hold() {
    struct stat there {};
    struct stat mine {};
    if (fd >= 0 && ::stat(path.c_str(), &there) == 0 && ::fstat(fd, &mine) == 0 && there.st_ino == mine.st_ino) {
        return true;
    }
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0) return fd >= 0;
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        ::close(file);
        return false;
    }
    if (fd >= 0) ::close(fd);
    fd = file;
    if (pid > 0) write(pid);
    return true;
}

void PidFile::write(pid_t number) {
    pid = number;
    const std::string text = std::to_string(number) + "\n";
    [[maybe_unused]] const bool written =
        ::ftruncate(fd, 0) == 0 && ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}
