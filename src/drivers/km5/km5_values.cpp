// The meter's status and current values, page by page.

#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

namespace {

/// One of the meter's status bits and the bits published for it.
struct StatusBit {
    int position;  ///< in the answer
    std::uint8_t mask;
    std::uint32_t bits;
};

constexpr StatusBit StatusBits[] = {
    {7, 0x01, 0x2},     {7, 0x02, 0x4},    {7, 0x10, 0x20000}, {7, 0x20, 0x40000},
    {7, 0x08, 0x80008}, {9, 0x0C, 0x4000}, {10, 0x01, 0x40},   {10, 0x02, 0x100000},
};

constexpr int HighestTSMode = 3;
constexpr int UnknownTSMode = 4;
constexpr std::uint8_t ServiceBits = 0x0C;

}  // namespace

bool KM5::is_gvs() const {
    return model == 1 && system_type[static_cast<std::size_t>(subsystem)].starts_with("gvs");
}

bool KM5::get_status() {
    int& mode = TSMode[static_cast<std::size_t>(subsystem)];
    Gstatus.fill(0);
    Cstatus = 0;
    mode = 0;
    log_line(messages_log.get(), "Start get status..");
    KM5_request req;
    init_request(req);
    req.cmd = CmdStatus;
    if (!request(req, true)) {
        log_line(messages_log.get(), "Get status: FAIL");
        return false;
    }
    // The block begins with the echoed command, so the low byte of the published number is always 8.
    answer_bytes(1, 8, Gstatus.data(), req);
    for (const StatusBit& bit : StatusBits) {
        if ((answer_byte(bit.position, req) & bit.mask) != 0) Cstatus |= bit.bits;
    }
    SC = (answer_byte(9, req) & ServiceBits) != 0 ? 0 : 1;
    mode = answer_byte(8, req) > HighestTSMode ? UnknownTSMode : answer_byte(8, req);
    log_line(messages_log.get(), "Get Cstatus: ", Cstatus);
    log_line(messages_log.get(), "Get Gstatus: ", static_cast<unsigned long long>(le_u64(Gstatus, 0)));
    return true;
}

void KM5::gen_pack_current(KM5_pack& pack) {
    constexpr int CurrentPages = 9;
    log_line(messages_log.get(), "Start generate pack with commands. ");
    pack.requests.clear();
    const auto add = [&pack](std::uint8_t cmd, int page) {
        init_request(pack.requests.emplace_back());
        pack.requests.back().cmd = cmd;
        pack.requests.back().data[0] = static_cast<std::uint8_t>(page);
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
    if (get_status()) publish_status();

    KM5_pack pack;
    gen_pack_current(pack);
    log_line(messages_log.get(), "Do request for get all parameters");
    log_line(messages_log.get(), "Count commands = ", pack.count());
    for (KM5_request& req : pack.requests) {
        if (!request(req, true)) continue;
        if (req.cmd == CmdCurrent && req.data[0] == 0) {
            take_meter_clock(req);
        } else {
            take_page(req);
        }
    }
    return !instant_values.empty();
}

void KM5::publish_status() {
    publish_item("EG", static_cast<unsigned long long>(le_u64(Gstatus, 0)));
    publish_item("ER", static_cast<int>(Cstatus));
    publish_item("TSMode", TSMode[static_cast<std::size_t>(subsystem)]);
    publish_item("SC", SC);
}

void KM5::take_page(const KM5_request& req) {
    for (const KM5_page_value& row : page_values()) {
        if (row.cmd != req.cmd || row.page != req.data[0]) continue;
        const bool readable = isATT || !(static_cast<double>(version) < row.from_version);
        if (row.from_version > 0.0 && !readable) continue;
        if (!condition_holds(row.when, model, is_gvs())) continue;
        instant_values[row.name] = row.position == ConstantOne ? 1.0F : answer_float(row.position, req);
    }
}

void KM5::take_meter_clock(const KM5_request& req) {
    // Summer time, which the meter does not tell, is taken from the gateway's present time.
    std::tm timeinfo = local_time(gateway().now());
    take_date_block(req, timeinfo);

    UniLog* const log = messages_log.get();
    *log << LOG_BEGIN << "CURDATE: ";
    for (int position = 5; position <= 12; ++position) *log << int{answer_byte(position, req)} << " ";
    *log << LOG_END;
    log_line(log, "mday: ", int{answer_byte(6, req)}, ", timeinfo: ", timeinfo.tm_mday);
    log_line(log, "mon : ", int{answer_byte(7, req)}, ", timeinfo: ", timeinfo.tm_mon);
    log_line(log, "year: ", int{answer_byte(8, req)}, ", timeinfo: ", timeinfo.tm_year);
    log_line(log, "hour: ", int{answer_byte(10, req)}, ", timeinfo: ", timeinfo.tm_hour);
    log_line(log, "min : ", int{answer_byte(11, req)}, ", timeinfo: ", timeinfo.tm_min);
    log_line(log, "sec : ", int{answer_byte(12, req)}, ", timeinfo: ", timeinfo.tm_sec);

    param_MDateTime = make_time(timeinfo);
    publish_item("MDateTime", static_cast<long>(param_MDateTime));
}

std::string KM5::moment_name_for_opc(const std::string& name) {
    const std::string result = opc_name(opc_moment_names, name);
    log_line(debug_log.get(), "Convert moment driver name for OPC. ", name, " -> ", result);
    return result;
}

void KM5::flush_instant_data() {
    const int directory = km56i_mode ? subsystem + 1 : 1;
    for (const auto& [name, value] : instant_values) {
        const std::string out_name = moment_name_for_opc(name);
        put_item(static_cast<double>(value), uuid, out_name, messages_log.get(), directory);
        if (km56i_mode) {
            log_line(messages_log.get(), name, " = ", value, ", subsystem = ", subsystem);
        } else {
            log_line(messages_log.get(), name, " = ", value);
        }
    }
    instant_values.clear();
}
