#include "support/vist_archive_scene.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr const char* GeneralLog = "/tmp/uni_logs.general.txt";

std::uint8_t sum_from(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), 0));
}

}  // namespace

std::string vist_line(const sim::VistFileValue& value) {
    return stored_line(value.time, value.quality, value.value);
}

VistArchiveStand::VistArchiveStand(const std::string& start, const std::string& zone)
    : DriverStand(start, zone), general(std::make_unique<UniLog>(UniLog::ToFile, GeneralLog, "")) {
    g_log = general.get();
}

VistArchiveStand::~VistArchiveStand() {
    g_log = nullptr;
}

HCD_VIST& VistArchiveStand::start_driver() {
    driver = std::make_unique<HCD_VIST>(Uuid);
    driver->take_settings(settings_for(1));
    driver->set_tty_fd(open_line(Port, LineOfVist, driver->settings().tc_baud, driver->settings().tc_parity));
    return *driver;
}

HCD_VIST& VistArchiveStand::start_described(sim::VistMeter& meter) {
    machine.disconnect_all(Port);
    machine.connect(Port, meter);
    start_driver();
    EXPECT_TRUE(driver->get_description());
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

void VistArchiveStand::leave_record(std::time_t time, int n) {
    for (const char* name : {"A2", "A3", "A5", "A7", "A9", "A11", "A13", "A15", "A20", "A21", "A22", "A17", "A18",
                             "A19", "A28", "A25", "A26", "A24", "A23"}) {
        leave_staged(name, stored_line(time, 192, 1) + "\n", n);
    }
}

void VistArchiveStand::leave_header(std::time_t time, int n) {
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        leave_staged(name, stored_line(time, 192, 1) + "\n", n);
    }
}

int VistArchiveStand::general_logged(const std::string& line) const {
    const Texts all = lines_of_log("general.txt");
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

Texts VistArchiveStand::commands() const {
    Texts all;
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
