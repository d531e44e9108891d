#include "vist_line.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>

namespace {

constexpr int Descriptor = 100000;  // no real descriptor is that high
constexpr std::size_t BodyAt = 6;
constexpr std::size_t MostBody = 293;

enum Right : std::uint8_t { InnerSum = 1, Size = 2, OuterSum = 4, Type = 8 };

struct Expected {
    const char* command;
    std::uint8_t type;
};
constexpr Expected Types[] = {
    {"/ARC/DLD H", 20}, {"/ARC/DLD +", 21}, {"/ARC/DLD -", 21}, {"/ARC/DLD =", 21}, {"/SYS SPC 0", 30},
    {"/SYS SPC 1", 31}, {"/SYS CFG 1", 33}, {"/MON G", 10},     {"/MON C", 11},     {"/MON TG", 12},
};

std::uint8_t sum_of(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

void put_inner_sum(std::vector<std::uint8_t>& packet) {
    const bool header = packet[5] == 20;
    const std::size_t at = BodyAt + (header ? 1U : 6U);
    if ((!header && packet[5] != 21) || packet.size() <= at) return;
    packet[at] = sum_of(std::span(packet).subspan(at + 1));
}

void check_lines(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "r");
    char line[200];
    while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
        long time = 0;
        int quality = 0;
        double value = 0.0;
        expect(std::sscanf(line, "%ld,%d,%lf\n", &time, &quality, &value) == 3, "an archive line can be read");
        expect(std::string_view(line).ends_with('\n'), "in one piece");
        expect(quality == QualityGood || quality == 0, "with one of two qualities");
    }
    if (file != nullptr) std::fclose(file);
}

}  // namespace

std::uint8_t vist_type_for(const std::string& command) {
    for (const Expected& row : Types) {
        if (command == row.command) return row.type;
    }
    return 0;
}

ssize_t VistScriptedLine::write_port(int /*fd*/, std::span<const std::uint8_t> request) {
    std::string command(request.begin(), request.end());
    expect(command.ends_with('\r') && command.size() < 64, "a request is a short line");
    command.pop_back();
    if (posed_as_ == 0 && exchanges_left_-- == 0) throw VistRunEnded{};
    if (command.starts_with("CALL ")) {
        network_ = std::atoi(command.c_str() + 5);
        device_ = 0;
    }
    if (command.starts_with("VDN ")) device_ = std::atoi(command.c_str() + 4);
    read_ = 0;
    answer_ = command == "END" ? std::vector<std::uint8_t>{} : posed_as_ != 0 ? posed(command) : next_answer(command);
    return static_cast<ssize_t>(request.size());
}

ssize_t VistScriptedLine::read_port(int /*fd*/, std::span<std::uint8_t> into) {
    const std::size_t count = std::min(into.size(), answer_.size() - read_);
    std::copy_n(answer_.begin() + static_cast<std::ptrdiff_t>(read_), count, into.begin());
    read_ += count;
    return static_cast<ssize_t>(count);
}

std::vector<std::uint8_t> VistScriptedLine::next_answer(const std::string& command) {
    if (silent_ > 0) {
        --silent_;
        return {};
    }
    if (input_.empty()) throw VistRunEnded{};
    const std::uint8_t head = input_.byte();
    if (head >= 0xE0) {
        silent_ = head - 0xE0;
        return {};
    }
    if (head >= 0xC0) {
        const auto bytes = input_.bytes(input_.byte());
        return {bytes.begin(), bytes.end()};
    }
    if (head >= 0x80) return packet(head, command);
    return frame(std::string(input_.text(head)));
}

std::vector<std::uint8_t> VistScriptedLine::posed(const std::string& command) const {
    if (command.starts_with("CALL ")) return frame("NAME=TS");
    if (command == "VER") return frame("VER=" + std::to_string(posed_as_));
    return command == "VDC" ? frame("VDC=3") : std::vector<std::uint8_t>{};
}

std::vector<std::uint8_t> VistScriptedLine::frame(const std::string& body) const {
    const std::string text = "HL0[" + std::to_string(network_) + ":" + std::to_string(device_) + "]{" + body + "}>";
    return {text.begin(), text.end()};
}

std::vector<std::uint8_t> VistScriptedLine::packet(std::uint8_t head, const std::string& command) {
    std::vector<std::uint8_t> bytes = {'H', 'P', 'T', input_.byte(), input_.byte(), input_.byte()};
    if ((head & Type) != 0) bytes[5] = vist_type_for(command);
    const auto body = input_.bytes(std::min<std::size_t>(input_.byte(), MostBody));
    bytes.insert(bytes.end(), body.begin(), body.end());
    if ((head & Size) != 0) bytes[3] = static_cast<std::uint8_t>(bytes.size() - 4);
    if ((head & InnerSum) != 0) put_inner_sum(bytes);
    if ((head & OuterSum) != 0) bytes[4] = sum_of(std::span(bytes).subspan(5));
    return bytes;
}

void prepare_vist(HCD_VIST& driver, VistScriptedLine& line, int version) {
    driver.take_settings({.tc_sernum = 1});
    driver.set_tty_fd(Descriptor);
    if (version == 0) return;
    line.pose_as(version);
    driver.get_description();
    line.pose_as(0);
}

void check_vist_files() {
    namespace fs = std::filesystem;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(full_root() + "/mnt/storage")) {
        if (entry.is_regular_file()) check_lines(entry.path());
    }
}
