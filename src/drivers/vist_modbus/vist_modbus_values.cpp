// What the blocks of registers say, in the log and as items; some of these wait until all blocks are through.

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

using namespace vist_modbus;

void HCD_VISTmodbus::process_main_config(Bytes data, int system) {
    const MainConfig config = decode_main_config(data);
    publish_item("_DriverStatus", int{StatusDescription}, system);
    log_line(log.get(), "Processing main config...");
    log_line(log.get(), "PO_ver: ", config.PO_ver);
    log_line(log.get(), "Name: ", config.Name);
    log_line(log.get(), "Serial_num: ", config.Serial_num);
    log_line(log.get(), "Systems_count: ", config.Systems_count);
    carried.virtdev_count = config.Systems_count;
    if (config.Systems_count > HeatSystems) {
        log_line(log.get(), "Only the first ", int{HeatSystems}, " heat systems are served.");
        carried.virtdev_count = HeatSystems;
    }
    publish_item("Firmware", config.PO_ver, system);
    publish_item("SerialNumber", config.Serial_num, system);
    publish_item("MeterModel", config.model, 0);
    int number = 0;
    for (const Tube& tube : config.tubes[static_cast<std::size_t>(system)]) {
        log_line(log.get(), "DU: ", tube.DU, " for system ", system);
        log_line(log.get(), "temper: ", tube.temper);
        log_line(log.get(), "press: ", tube.press);
        publish_item(format_cut(16, "DN%d", ++number), tube.DU, system);
    }
}

void HCD_VISTmodbus::process_tc_specs(Bytes data, int system, Pending& pending) {
    const SystemSetup setup = decode_tc_specs(data);
    log_line(log.get(), "Processing tc specs...");
    log_line(log.get(), "System params: ", setup.parameters);
    carried.sub_name = setup.sub_name;
    log_line(log.get(), "System name: ", setup.sub_name);
    publish_item("_HMsystem", setup.sub_name, system);
    log_line(log.get(), "fQ = ", setup.fQ);
    log_line(log.get(), "iG1 = ", setup.iG[0]);
    log_line(log.get(), "iG2 = ", setup.iG[1]);
    log_line(log.get(), "iG3 = ", setup.iG[2]);
    log_line(log.get(), "iT1 = ", setup.iT[0]);
    log_line(log.get(), "iT2 = ", setup.iT[1]);
    log_line(log.get(), "iT3 = ", setup.iT[2]);
    log_line(log.get(), "iT4 = ", setup.iT[3]);
    log_line(log.get(), "Formula: ", setup.formula);
    if (!setup.formula.empty()) {
        publish_item("_WeightedValue", setup.is_weighted ? 1 : 0, system);
        publish_item("_Formula", setup.formula, system);
    }
    for (std::size_t channel = 0; channel < 3; ++channel) {
        for (int n = 0; n < setup.found_T[channel]; ++n) {
            log_line(log.get(), "Found temperature T", channel, "...");
        }
        for (int n = 0; n < setup.found_P[channel]; ++n) {
            log_line(log.get(), "Found pressure p", channel, "...");
        }
    }
    pending.pending_values.insert(pending.pending_values.end(), setup.limits.begin(), setup.limits.end());
    log_line(log.get(), "Errors: ", setup.errors);
    // A long of the gateway has 32 bits.
    pending.pending_longs.emplace_back("ER", static_cast<std::int32_t>(setup.status));
    pending.pending_longs.emplace_back("EG", static_cast<std::int32_t>(setup.errors));
    pending.pending_longs.emplace_back("SC", setup.is_counting ? 1 : 0);
}

void HCD_VISTmodbus::process_archive_specs(Bytes data, int system) {
    carried.setup = decode_archive_specs(data, system);
    log_line(log.get(), "Processing archive specs (", carried.setup.spec_mask, ")...");
}

void HCD_VISTmodbus::process_datetime(Bytes data, int system, Pending& pending) {
    publish_item("_DriverStatus", int{StatusCurrentValues}, system);
    std::tm clock = packet_time(data, 0);
    log_line(log.get(), "Current VIST date/time: ", date_text(clock));
    carried.mdatetime = make_time(clock);
    pending.pending_longs.emplace_back("MDateTime", carried.mdatetime);
}

void HCD_VISTmodbus::process_array16(Bytes data, char kind, Pending& pending) {
    log_line(log.get(), "Processing 16 bit array (", std::string(1, kind), ")...");
    const Words words = decode_words(data);
    if (kind == '0') pending.pointsGP = words;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (kind == '0') log_line(log.get(), "Cashing pointsGP", i, ": ", int{words[i]});
        if (kind == '1') {
            log_line(log.get(), "Process MV pack ", i);
            log_line(log.get(), "Cashing pointsMV", i, ": ", int{words[i]});
        }
    }
    for (auto& value : decode_array16(data, kind)) pending.pending_values.push_back(std::move(value));
}

void HCD_VISTmodbus::process_array32(Bytes data, char kind, Pending& pending) {
    log_line(log.get(), "Processing 32 bit array (", std::string(1, kind), ")...");
    int i = 0;
    for (auto& value : decode_array32(data, kind, pending.pointsGP, carried.setup.hasM)) {
        const auto whole = static_cast<long long>(value.second);
        if (kind == 'V') log_line(log.get(), "Cashing dV", i, ": ", whole);
        if (kind == 'G') log_line(log.get(), "Cashing dM", i, ": ", whole);
        if (kind == 'E') log_line(log.get(), "Cashing dEnergy", ": ", whole);
        pending.pending_values.push_back(std::move(value));
        ++i;
    }
}
