#include "support/driver_stand.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "support/child.h"

namespace {

constexpr std::size_t PrefixLength = 24;  // "DD/MM/YY hh:mm:ss.mmm : "

bool has_prefix(const std::string& line) {
    return line.size() >= PrefixLength && line[2] == '/' && line.compare(PrefixLength - 3, 3, " : ") == 0;
}

/// A poll rewrites a hundred small files: the scene's folder belongs into memory where the machine has such a place.
const std::string& in_memory(const std::string& start) {
    constexpr const char* Memory = "/dev/shm";
    if (::access(Memory, W_OK | X_OK) == 0) ::setenv("TEST_TMPDIR", Memory, 0);
    return start;
}

std::string archive_folder(const std::string& uuid, int n, const std::string& directory) {
    return "/mnt/storage/" + uuid + "/" + std::to_string(n) + "/" + directory;
}

std::string log_ending(const std::string& kind) {
    return "m1." + kind + (kind.empty() ? "txt" : ".txt");
}

}  // namespace

Stand::Stand(const std::string& start, const std::string& zone) : scene(in_memory(start), zone) {
    scene.make_tree(Uuid);
    machine.add_device(Port);
}

void Stand::silence(const std::function<void()>& work) {
    stdout_of(work);
}

MeterSettings Stand::settings_for(std::uint32_t serial) {
    return {.tc_sernum = serial, .port_name = Port, .tc_baud = 3, .tc_parity = 2};
}

std::string Stand::item(const std::string& name, int n, const std::string& uuid) const {
    std::string text = scene.item(uuid, n, name).value_or("(none)");
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

std::string Stand::connected() const {
    std::string all;
    for (int n = 1; n <= 6; ++n) all += item("Connected", n);
    return all;
}

std::string Stand::archive(const std::string& name, int n, const std::string& directory) const {
    return scene.archive(Uuid, n, name, directory).value_or("");
}

Texts Stand::archive_names(int n) const {
    return scene.list(archive_folder(Uuid, n, "tc_archives"));
}

LineCounts Stand::lines_in(const std::string& directory, int n, const std::string& uuid) const {
    LineCounts counts;
    for (const std::string& name : scene.list(archive_folder(uuid, n, directory))) {
        if (name.size() > 1 && name[0] == '_' && std::islower(static_cast<unsigned char>(name[1])) != 0) continue;
        std::istringstream stream(scene.archive(uuid, n, name, directory).value_or(""));
        for (std::string line; std::getline(stream, line);) ++counts[name][line];
    }
    return counts;
}

void Stand::leave_archive(const std::string& name, const std::string& text, int n, const std::string& directory) {
    scene.write(archive_folder(Uuid, n, directory) + "/" + name, text);
}

Texts Stand::log(const std::string& kind) const {
    return lines_of_log(log_ending(kind));
}

Texts Stand::lines_of_log(const std::string& ending) const {
    std::string text = scene.file("/tmp/uni_logs." + ending).value_or("");
    std::erase(text, '\0');
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(has_prefix(line) ? line.substr(PrefixLength) : line);
    }
    return lines;
}

int Stand::logged(const std::string& kind, const std::string& line) const {
    const Texts all = log(kind);
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

int Stand::logged_start(const std::string& kind, const std::string& line) const {
    const Texts all = log(kind);
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&line](const std::string& each) { return each.starts_with(line); }));
}

::testing::AssertionResult Stand::logged_in_order(const std::string& kind, const Texts& lines) const {
    const Texts all = log(kind);
    auto from = all.begin();
    for (const std::string& line : lines) {
        from = std::find(from, all.end(), line);
        if (from == all.end()) return ::testing::AssertionFailure() << "not there, or too early: " << line;
        ++from;
    }
    return ::testing::AssertionSuccess();
}

void Stand::clear_log(const std::string& kind) {
    scene.write("/tmp/uni_logs." + log_ending(kind), "");
}
