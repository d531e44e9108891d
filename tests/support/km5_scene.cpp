#include "support/km5_scene.h"

#include <algorithm>

namespace {

bool holds_in_order(const std::string& line, const Texts& parts) {
    std::size_t at = 0;
    for (const std::string& part : parts) {
        at = line.find(part, at);
        if (at == std::string::npos) return false;
        at += part.size();
    }
    return true;
}

}  // namespace

KM5& Km5Stand::start_driver(const Km5Setup& setup) {
    driver = std::make_unique<KM5>(Uuid, setup.km56i, setup.must_be_att);
    MeterSettings settings = settings_for(setup.serial);
    settings.subsystem_count = static_cast<int>(setup.systems.size());
    std::copy(setup.systems.begin(), setup.systems.end(), settings.system_type.begin());
    driver->take_settings(settings);
    driver->set_tty(open_line(Port, LineOfKm5, settings.tc_baud, settings.tc_parity));
    driver->get_netaddr_from_config();
    return *driver;
}

KM5& Km5Stand::start_described(sim::Km5Meter& meter, const Km5Setup& setup) {
    machine.connect(Port, meter);
    start_driver(setup);
    EXPECT_TRUE(driver->get_description());
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

std::string Km5Stand::state() const {
    std::string line = scene.file(std::string("/tmp/driver.") + Uuid + ".state").value_or("");
    if (line.ends_with('\n')) line.pop_back();
    const std::string name = std::string("[") + Uuid + "]  ";
    const std::size_t at = line.find(name);
    return at == std::string::npos ? line : line.substr(at + name.size());
}

int Km5Stand::logged_parts(const std::string& kind, const Texts& parts) const {
    const auto lines = log(kind);
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
                                          [&parts](const std::string& line) { return holds_in_order(line, parts); }));
}

std::vector<sim::ByteVector> Km5Stand::requests() const {
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
