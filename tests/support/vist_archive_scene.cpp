#include "support/vist_archive_scene.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <sstream>

#include "config/config_client.h"
#include "driver/line_settings.h"

namespace {

constexpr std::size_t PrefixLength = 24;  // "DD/MM/YY hh:mm:ss.mmm : "
constexpr int SpeedCode9600 = 3;
constexpr int NoParity = 2;
constexpr const char* GeneralLog = "/tmp/uni_logs.general.txt";

/// A poll rewrites a hundred small files: the scene's folder belongs into memory where the machine has such a place.
const std::string& in_memory(const std::string& start) {
    constexpr const char* Memory = "/dev/shm";
    if (::access(Memory, W_OK | X_OK) == 0) ::setenv("TEST_TMPDIR", Memory, 0);
    return start;
}

bool has_prefix(const std::string& line) {
    return line.size() >= PrefixLength && line[2] == '/' && line[5] == '/' &&
           line.compare(PrefixLength - 3, 3, " : ") == 0;
}

std::vector<std::string> lines_of(std::string text) {
    std::erase(text, '\0');
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(has_prefix(line) ? line.substr(PrefixLength) : line);
    }
    return lines;
}

int count_of(const std::vector<std::string>& lines, const std::string& line) {
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

std::uint8_t sum_from(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), 0));
}

}  // namespace

std::string vist_line(std::time_t time, int quality, double value) {
    char text[80];
    std::snprintf(text, sizeof(text), "%ld,%d,%f", static_cast<long>(time), quality, value);
    return text;
}

std::string vist_line(const sim::VistFileValue& value) {
    return vist_line(value.time, value.quality, value.value);
}

VistArchiveBench::VistArchiveBench(const std::string& start, const std::string& zone)
    : scene(in_memory(start), zone), general(std::make_unique<UniLog>(UniLog::ToFile, GeneralLog, "")) {
    g_log = general.get();
    scene.make_tree(Uuid);
    machine.add_device(Port);
}

VistArchiveBench::~VistArchiveBench() {
    g_log = nullptr;
}

HCD_VIST& VistArchiveBench::start_driver() {
    driver = std::make_unique<HCD_VIST>(Uuid);
    driver->tc_sernum = 1;
    driver->tc_baud = SpeedCode9600;
    driver->tc_parity = NoParity;
    driver->set_tty_fd(open_line(Port, LineOfVist, SpeedCode9600, NoParity));
    return *driver;
}

HCD_VIST& VistArchiveBench::start_described(sim::VistMeter& meter) {
    machine.connect(Port, meter);
    start_driver();
    EXPECT_TRUE(driver->get_description());
    driver->selected_subsystem = 0;
    driver->last_hour_update.fill(machine.now() - 3000);
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

std::string VistArchiveBench::item(const std::string& name, int n) const {
    std::string text = scene.item(Uuid, n, name).value_or("(none)\n");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string VistArchiveBench::staged(const std::string& name, int n) const {
    return scene.archive(Uuid, n, name, "tmp_archives").value_or("");
}

std::string VistArchiveBench::handed_over(const std::string& name, int n) const {
    return scene.archive(Uuid, n, name, "tc_tmp_archives").value_or("");
}

VistLineCounts VistArchiveBench::lines_in(const std::string& directory, int n, const std::string& uuid) const {
    VistLineCounts counts;
    for (const std::string& name : scene.list("/mnt/storage/" + uuid + "/" + std::to_string(n) + "/" + directory)) {
        const std::string text = scene.archive(uuid, n, name, directory).value_or("");
        EXPECT_TRUE(text.empty() || text.ends_with('\n')) << name;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) ++counts[name][line];
    }
    return counts;
}

void VistArchiveBench::leave_staged(const std::string& name, const std::string& text, int n) {
    scene.write(std::string("/mnt/storage/") + Uuid + "/" + std::to_string(n) + "/tmp_archives/" + name, text);
}

void VistArchiveBench::leave_record(std::time_t time, int n) {
    for (const char* name : {"A2", "A3", "A5", "A7", "A9", "A11", "A13", "A15", "A20", "A21", "A22", "A17", "A18",
                             "A19", "A28", "A25", "A26", "A24", "A23"}) {
        leave_staged(name, vist_line(time, 192, 1) + "\n", n);
    }
}

void VistArchiveBench::leave_header(std::time_t time, int n) {
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        leave_staged(name, vist_line(time, 192, 1) + "\n", n);
    }
}

std::vector<std::string> VistArchiveBench::log() const {
    return lines_of(scene.file(std::string("/tmp/uni_logs.") + Uuid + ".txt").value_or(""));
}

int VistArchiveBench::logged(const std::string& line) const {
    return count_of(log(), line);
}

int VistArchiveBench::general_logged(const std::string& line) const {
    return count_of(lines_of(scene.file(GeneralLog).value_or("")), line);
}

std::vector<std::string> VistArchiveBench::commands() const {
    std::vector<std::string> all;
    for (const auto& exchange : machine.exchanges()) {
        all.emplace_back(exchange.request.begin(), exchange.request.end());
        if (!all.back().empty() && all.back().back() == '\r') all.back().pop_back();
    }
    return all;
}

VistBytes& VistBytes::n(std::uint64_t value, int width) {
    for (int k = 0; k < width; ++k) {
        bytes_.push_back(static_cast<std::uint8_t>(value >> 8 * (little_ ? k : width - 1 - k)));
    }
    return *this;
}

VistBytes& VistBytes::b(std::initializer_list<int> values) {
    for (const int value : values) bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
}

std::vector<std::uint8_t> vist_test_packet(int type, std::vector<std::uint8_t> body, std::size_t inner_at,
                                           std::size_t inner_from) {
    body.at(inner_at) = sum_from(body, inner_from);
    std::vector<std::uint8_t> packet = {'H', 'P', 'T', static_cast<std::uint8_t>(body.size() + 2), 0};
    packet.push_back(static_cast<std::uint8_t>(type));
    packet.insert(packet.end(), body.begin(), body.end());
    packet[4] = sum_from(packet, 5);
    return packet;
}

VistDaemon::VistDaemon(const std::vector<std::string>& uuids) : base(uuids) {
    read_driver_config(base);
    base.open_tty();
}
