// The meter's status and current values, page by page.

#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

bool KM5::is_hot_water() const {
    return system_type[static_cast<std::size_t>(carried.subsystem)].starts_with("gvs");
}

bool KM5::get_status(KM5_status& out) {
    out = {};
    log_line(messages_log.get(), "Start get status..");
    KM5_request req{.cmd = CmdStatus};
    if (!request(req, true)) {
        log_line(messages_log.get(), "Get status: FAIL");
        return false;
    }
    out = km5::decode_status(req.recv_buf);
    log_line(messages_log.get(), "Get Cstatus: ", out.Cstatus);
    log_line(messages_log.get(), "Get Gstatus: ", out.Gstatus);
    return true;
}

void KM5::gen_pack_current(KM5_pack& pack) {
    constexpr int CurrentPages = 9;
    log_line(messages_log.get(), "Start generate pack with commands. ");
    pack.requests.clear();
    const auto add = [&pack](std::uint8_t cmd, int page) {
        pack.requests.push_back({.cmd = cmd, .data = {static_cast<std::uint8_t>(page)}});
    };
    for (int page = 0; page < CurrentPages; ++page) add(CmdCurrent, page);
    add(CmdCurrentNewer, 0);
    add(CmdIntegralsNewer, 0);

    log_line(messages_log.get(), "Commands list: ");
    for (std::uint32_t i = 0; i < pack.count(); ++i) {
        const KM5_request& req = pack.requests[i];
        log_line(messages_log.get(), i, ". Cmd: ", int{req.cmd}, ", data: ", int{req.data[0]});
    }
}

bool KM5::get_all_current_values() {
    publish_item("_DriverStatus", int{StatusCurrentValues});
    enter_state("get all");
    log_line(messages_log.get(), "Get all current values start.");
    KM5_status now;
    if (get_status(now)) {
        publish_item("EG", now.Gstatus);
        publish_item("ER", static_cast<int>(now.Cstatus));
        publish_item("TSMode", now.TSMode);
        publish_item("SC", now.SC);
    }

    KM5_pack pack;
    gen_pack_current(pack);
    log_line(messages_log.get(), "Do request for get all parameters");
    log_line(messages_log.get(), "Count commands = ", pack.count());
    for (KM5_request& req : pack.requests) {
        if (!request(req, true)) continue;
        if (req.cmd == CmdCurrent && req.data[0] == 0) {
            take_meter_clock(req.recv_buf);
            continue;
        }
        for (const auto& [name, value] :
             km5::decode_page(req.cmd, req.data[0], req.recv_buf, carried.meter, is_hot_water()))
            instant_values[name] = value;
    }
    return !instant_values.empty();
}

void KM5::take_meter_clock(Bytes answer) {
    std::tm timeinfo = km5::decode_date(answer);
    // Summer time, which the meter does not tell, is taken from the gateway's present time.
    timeinfo.tm_isdst = local_time(gateway().now()).tm_isdst;

    UniLog* const log = messages_log.get();
    *log << LOG_BEGIN << "CURDATE: ";
    for (std::size_t position = 5; position <= 12; ++position) *log << int{u8_at(answer, position)} << " ";
    *log << LOG_END;
    log_line(log, "mday: ", int{u8_at(answer, 6)}, ", timeinfo: ", timeinfo.tm_mday);
    log_line(log, "mon : ", int{u8_at(answer, 7)}, ", timeinfo: ", timeinfo.tm_mon);
    log_line(log, "year: ", int{u8_at(answer, 8)}, ", timeinfo: ", timeinfo.tm_year);
    log_line(log, "hour: ", int{u8_at(answer, 10)}, ", timeinfo: ", timeinfo.tm_hour);
    log_line(log, "min : ", int{u8_at(answer, 11)}, ", timeinfo: ", timeinfo.tm_min);
    log_line(log, "sec : ", int{u8_at(answer, 12)}, ", timeinfo: ", timeinfo.tm_sec);

    carried.param_MDateTime = make_time(timeinfo);
    publish_item("MDateTime", static_cast<long>(carried.param_MDateTime));
}

std::string KM5::moment_name_for_opc(const std::string& name) {
    const std::string result = opc_name(opc_moment_names, name);
    log_line(debug_log.get(), "Convert moment driver name for OPC. ", name, " -> ", result);
    return result;
}

void KM5::flush_instant_data() {
    const bool km56i_mode = carried.meter.km56i_mode;
    const int directory = km56i_mode ? carried.subsystem + 1 : 1;
    for (const auto& [name, value] : instant_values) {
        const std::string out_name = moment_name_for_opc(name);
        put_item(static_cast<double>(value), uuid, out_name, messages_log.get(), directory);
        if (km56i_mode) {
            log_line(messages_log.get(), name, " = ", value, ", subsystem = ", carried.subsystem);
        } else {
            log_line(messages_log.get(), name, " = ", value);
        }
    }
    instant_values.clear();
}
