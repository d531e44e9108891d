#include "support/modbus_month_scene.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace {

/// Doubles are written first, then the whole numbers, and at last what has a quality of its own.
int turn(const sim::VistFileValue& line) {
    for (const char* temperature : {"A20", "A21", "A22", "T4"}) {
        if (line.file == temperature) return 2;
    }
    return line.integer ? 1 : 0;
}

int header_turn(const sim::VistFileValue& line) {
    constexpr const char* Order[] = {"A4", "A1", "A6", "A12", "A8", "A14", "A10", "A16"};
    return static_cast<int>(std::find(std::begin(Order), std::end(Order), line.file) - std::begin(Order));
}

}  // namespace

ModbusMonthStand::ModbusMonthStand(const std::string& start, const std::string& zone) : ModbusStand(start, zone) {}

void ModbusMonthStand::be_quiet(const std::vector<std::string>& uuids) {
    scene.remove("/proc/leds");
    for (const std::string& uuid : uuids) {
        scene.remove("/tmp/" + uuid);
        scene.touch("/tmp/uni_logs." + uuid + ".txt/no file");
    }
}

bool ModbusMonthStand::live(const std::vector<std::string>& uuids, double seconds) {
    bool has_power = true;
    quietly([&] {
        try {
            ModbusDaemon daemon(uuids);
            machine.run_for(seconds, [&daemon] { daemon(); });
        } catch (const sim::PowerCut&) {
            has_power = false;
        }
    });
    machine.forget_exchanges();
    return has_power;
}

LineCounts ModbusMonthStand::lines_of(const std::string& uuid, int n, const std::string& directory) const {
    LineCounts counts;
    for (const std::string& name : scene.list("/mnt/storage/" + uuid + "/" + std::to_string(n) + "/" + directory)) {
        std::istringstream text(scene.archive(uuid, n, name, directory).value_or(""));
        for (std::string line; std::getline(text, line);) {
            if (line.find_first_not_of('\0') != std::string::npos) ++counts[name][line];
        }
    }
    return counts;
}

std::time_t ModbusMonthStand::last_time(const std::string& uuid, int n, const std::string& name) const {
    class Reader final : public ArchiveHolder {
      public:
        explicit Reader(const std::string& meter) { uuid = meter; }
    };
    return Reader(uuid).last_record_time(name, n, "tmp_archives");
}

std::vector<sim::VistFileValue> modbus_record_lines(const sim::ModbusVistMeter& meter, unsigned system,
                                                    std::time_t time) {
    sim::ModbusVistStored record{.time = time};
    for (std::size_t field = 0; field < sim::VistRecordFields; ++field) {
        record.numbers[field] = sim::ModbusVistMeter::recorded_number(meter.config().serial, system, time, field);
    }
    auto lines = meter.record_files(record, system);
    std::stable_sort(lines.begin(), lines.end(), [](const auto& a, const auto& b) { return turn(a) < turn(b); });
    return lines;
}

std::vector<sim::VistFileValue> modbus_header_lines(sim::ModbusVistMeter& meter, unsigned system, std::time_t time) {
    sim::ModbusVistHeader header{.time = time};
    for (std::size_t total = 0; total < sim::VistTotals; ++total) {
        header.totals[total] = sim::ModbusVistMeter::recorded_total(meter.config().serial, system, time, total);
    }
    auto lines = sim::modbus_vist_header_files(meter.system(system), header);
    std::stable_sort(lines.begin(), lines.end(),
                     [](const auto& a, const auto& b) { return header_turn(a) < header_turn(b); });
    return lines;
}

void count_lines(LineCounts& counts, const std::vector<sim::VistFileValue>& lines) {
    for (const auto& line : lines) ++counts[line.file][stored_line(line.time, line.quality, line.value)];
}
