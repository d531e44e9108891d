#include "support/km5_scene.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "config/config_client.h"
#include "driver/line_settings.h"

namespace {

constexpr std::size_t PrefixLength = 24;  // "DD/MM/YY hh:mm:ss.mmm : "
constexpr int SpeedCode9600 = 3;
constexpr int NoParity = 2;

bool has_prefix(const std::string& line) {
    return line.size() >= PrefixLength && line[2] == '/' && line[5] == '/' && line[11] == ':' &&
           line.compare(PrefixLength - 3, 3, " : ") == 0;
}

std::string without_line_end(std::string text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

bool holds_in_order(const std::string& line, const std::vector<std::string>& parts) {
    std::size_t at = 0;
    for (const std::string& part : parts) {
        at = line.find(part, at);
        if (at == std::string::npos) return false;
        at += part.size();
    }
    return true;
}

}  // namespace

Km5Bench::Km5Bench(const std::string& start, const std::string& zone) : scene(start, zone) {
    scene.make_tree(Uuid);
    machine.add_device(Port);
}

KM5& Km5Bench::start_driver(const Km5Setup& setup) {
    driver = std::make_unique<KM5>(Uuid, setup.km56i, setup.isATT_mustbe);
    driver->tc_sernum = setup.serial;
    driver->tc_baud = SpeedCode9600;
    driver->tc_parity = NoParity;
    driver->subsystem_count = static_cast<int>(setup.systems.size());
    for (std::size_t i = 0; i < setup.systems.size(); ++i) {
        driver->set_system_type(static_cast<unsigned>(i), setup.systems[i]);
    }
    driver->set_tty(open_line(Port, LineOfKm5, SpeedCode9600, NoParity));
    driver->get_netaddr_from_config();
    return *driver;
}

KM5& Km5Bench::start_described(sim::Km5Meter& meter, const Km5Setup& setup) {
    machine.connect(Port, meter);
    start_driver(setup);
    EXPECT_TRUE(driver->get_description());
    driver->subsystem = 0;
    driver->get_netaddr_from_config();
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

std::string Km5Bench::item(const std::string& name, int n) const {
    const auto text = scene.item(Uuid, n, name);
    return text ? without_line_end(*text) : "(none)";
}

std::string Km5Bench::connected() const {
    std::string all;
    for (int n = 1; n <= 6; ++n) all += item("Connected", n);
    return all;
}

std::string Km5Bench::archive(const std::string& name, int n) const {
    return scene.archive(Uuid, n, name).value_or("");
}

std::vector<std::string> Km5Bench::archive_names(int n) const {
    return scene.list(std::string("/mnt/storage/") + Uuid + "/" + std::to_string(n) + "/tc_archives");
}

std::string Km5Bench::state() const {
    const std::string line = without_line_end(scene.file(std::string("/tmp/driver.") + Uuid + ".state").value_or(""));
    const std::string name = std::string("[") + Uuid + "]  ";
    const std::size_t at = line.find(name);
    return at == std::string::npos ? line : line.substr(at + name.size());
}

std::vector<std::string> Km5Bench::log(const std::string& kind) const {
    std::string text = scene.file(std::string("/tmp/uni_logs.") + Uuid + "." + kind + ".txt").value_or("");
    std::erase(text, '\0');
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(has_prefix(line) ? line.substr(PrefixLength) : line);
    }
    return lines;
}

int Km5Bench::logged(const std::string& kind, const std::string& line) const {
    const auto lines = log(kind);
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

int Km5Bench::logged_parts(const std::string& kind, const std::vector<std::string>& parts) const {
    const auto lines = log(kind);
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
                                          [&parts](const std::string& line) { return holds_in_order(line, parts); }));
}

void Km5Bench::clear_log(const std::string& kind) {
    scene.write(std::string("/tmp/uni_logs.") + Uuid + "." + kind + ".txt", "");
}

std::vector<sim::ByteVector> Km5Bench::requests() const {
    std::vector<sim::ByteVector> all;
    for (const auto& exchange : machine.exchanges()) all.push_back(exchange.request);
    return all;
}

std::vector<int> asked(const sim::ByteVector& request, std::size_t arguments) {
    const auto begin = request.begin() + 4;
    return {begin, begin + 1 + static_cast<std::ptrdiff_t>(arguments)};
}

std::vector<std::vector<int>> asked(const std::vector<sim::ByteVector>& requests, std::size_t arguments) {
    std::vector<std::vector<int>> all;
    for (const sim::ByteVector& request : requests) all.push_back(asked(request, arguments));
    return all;
}

Km5Daemon::Km5Daemon(const std::vector<std::string>& uuids, bool km56i, bool isATT_mustbe)
    : base(uuids, km56i, isATT_mustbe) {
    read_driver_config(base);
    base.open_tty();
}
