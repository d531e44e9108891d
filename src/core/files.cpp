#include "core/files.h"

#include "core/file.h"
#include "core/gateway.h"

bool is_directory(const std::string& path) {
    struct stat status {};
    return gateway().look_at(path, status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return gateway().look_at(path, status) == 0;
}

void make_directories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        gateway().make_folder(path.substr(0, slash));
    }
    gateway().make_folder(path);
}

void make_link(const std::string& target, const std::string& link) {
    if (link.empty()) return;
    const std::string place = is_directory(link) ? link + "/" + target.substr(target.rfind('/') + 1) : link;
    gateway().make_link(target, place);
}

void remove_file(const std::string& path) {
    gateway().remove(path);
}

bool overwrite_file(const std::string& path, std::string_view text, mode_t mode) {
    File file(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    return file.write(text);
}

bool overwrite_durably(const std::string& path, std::string_view text) {
    File file(path, O_WRONLY | O_CREAT);
    return file.write(text) && file.resize(static_cast<off_t>(text.size())) && file.make_durable();
}

bool append_file(const std::string& path, std::string_view text) {
    File file(path, O_WRONLY | O_CREAT | O_APPEND);
    return file.write(text);
}

std::string end_of_file(const std::string& path, std::size_t most) {
    File file(path, O_RDONLY);
    if (!file) return {};
    if (file.seek(-static_cast<off_t>(most), SEEK_END) < 0) file.seek(0, SEEK_SET);
    std::string text(most, '\0');
    text.resize(file.read(text));
    return text;
}

bool copy_file(const std::string& source, const std::string& target) {
    File from(source, O_RDONLY);
    struct stat status {};
    if (!from || !from.look(status)) return false;
    File to(target, O_WRONLY | O_CREAT | O_TRUNC, status.st_mode);
    return to.write_from(from, status.st_size);
}
