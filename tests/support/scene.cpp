#include "support/scene.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

/// A poll rewrites a hundred small files: they belong into memory where the machine has such a place.
std::string new_folder() {
    constexpr const char* Memory = "/dev/shm/";
    const std::string place = ::access(Memory, W_OK | X_OK) == 0 ? Memory : ::testing::TempDir();
    std::string folder = place + "hm-XXXXXX";  // short: the gateway's paths are cut at fixed lengths
    if (::mkdtemp(folder.data()) == nullptr) throw std::system_error(errno, std::generic_category(), folder);
    return folder;
}

void put_text(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace

Scene::Ground::Ground(const std::string& time_zone) : root(new_folder()) {
    if (const char* zone = std::getenv("TZ")) earlier_zone_ = zone;
    ::setenv("TZ", time_zone.c_str(), 1);
    ::tzset();
    fs::create_directories(root + "/tmp");
    fs::create_directories(root + "/mnt/storage");
    put_text(root + "/proc/leds/kr_red", "");
    put_text(root + "/proc/leds/lan", "");
}

Scene::Ground::~Ground() {
    std::error_code left_behind;
    fs::remove_all(root, left_behind);
    if (earlier_zone_) {
        ::setenv("TZ", earlier_zone_->c_str(), 1);
    } else {
        ::unsetenv("TZ");
    }
    ::tzset();
}

Scene::Scene(const std::string& start, const std::string& time_zone)
    : ground_(time_zone), gateway(ground_.root, sim::local_seconds(start)) {
    gateway.set_service_address(service.address());
    set_gateway(&gateway);
}

Scene::~Scene() {
    set_gateway(nullptr);
}

std::optional<std::string> Scene::file(const std::string& path) const {
    std::ifstream stream(real_path(path), std::ios::binary);
    if (!stream || !fs::is_regular_file(real_path(path))) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::optional<std::string> Scene::item(const std::string& uuid, int n, const std::string& name) const {
    return file("/tmp/" + uuid + "/" + std::to_string(n) + "/tc_items/" + name);
}

std::optional<std::string> Scene::archive(const std::string& uuid, int n, const std::string& name,
                                          const std::string& directory) const {
    return file("/mnt/storage/" + uuid + "/" + std::to_string(n) + "/" + directory + "/" + name);
}

bool Scene::exists(const std::string& path) const {
    return fs::exists(fs::symlink_status(real_path(path)));
}

std::vector<std::string> Scene::list(const std::string& path) const {
    std::vector<std::string> names;
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::directory_iterator(real_path(path), missing)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void Scene::write(const std::string& path, const std::string& text) {
    put_text(real_path(path), text);
    if (path.starts_with("/mnt/storage/")) gateway.settle_storage();
}

void Scene::remove(const std::string& path) {
    fs::remove_all(real_path(path));
}

void Scene::make_tree(const std::string& uuid) {
    for (int n = 1; n <= 6; ++n) {
        const std::string subsystem = "/" + uuid + "/" + std::to_string(n) + "/";
        for (const char* directory : {"tc_archives", "tmp_archives", "tc_tmp_archives"}) {
            fs::create_directories(real_path("/mnt/storage" + subsystem + directory));
        }
        fs::create_directories(real_path("/tmp" + subsystem + "tc_items"));
    }
    for (const char* top : {"/mnt/storage/", "/tmp/"}) {
        const std::string link = real_path(top + uuid + "/default");
        if (!fs::exists(link)) fs::create_directory_symlink(real_path(top + uuid + "/1"), link);
    }
}

void Scene::clear_tmp() {
    for (const std::string& name : list("/tmp")) remove("/tmp/" + name);
}
