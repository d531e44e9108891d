// Who the meter is: firmware, tube settings, status.

#include "drivers/sa94/sa94.h"

namespace {

constexpr std::size_t FirmwareAt = 1;
constexpr std::size_t FirmwareBytes = 14;

// Codes in block 0 of segment 0, for each of the two tubes.
struct TubeCodes {
    std::size_t dn_at;
    std::size_t q_max_at;
    std::size_t q_min_at;
};
constexpr TubeCodes Tube1 = {36, 37, 38};
constexpr TubeCodes Tube2 = {44, 45, 46};

constexpr unsigned StatusMask = 0x7F;

/// The firmware text of a reply, without its blanks.
std::string firmware_text(Bytes reply) {
    std::string text;
    for (const std::uint8_t byte : reply.subspan(FirmwareAt, FirmwareBytes)) {
        if (byte != ' ') text += static_cast<char>(byte);
    }
    return text.substr(0, text.find('\0'));
}

bool measures_t3(int firmware_id, unsigned status) {
    if (firmware_id < FirstIdByStatus) return firmware_id < 4 || (status & BitOldT3) != 0;
    return (status & BitT3) != 0;
}

}  // namespace

bool SA94::getDescription() {
    publish_item("_DriverStatus", int{StatusDescription});
    if (!getFirmware()) return false;
    getTubesSettings(model);
    return getStatus();
}

bool SA94::getFirmware() {
    log_both("Start Get Firmware");
    SA94Request request = new_request();
    if (!connect(request)) return false;
    request.setReadFirmware();
    if (!Transact(request, Attempts)) return false;
    FirmwareText = firmware_text(request.response);
    if (!FirmwareText.empty()) publish_item("Firmware", FirmwareText);
    log_both("Firmware text = ", FirmwareText);
    disconnect(request);

    for (const SA94Version& version : Versions) {
        const std::string prefix = FirmwareText.substr(0, version.name.size());
        log_line(log_debug.get(), "Compare firmware with ", version.name);
        log_both("Versions[i].name.size() = ", version.name.size());
        log_both("FirmwareText.substr(0, ", version.name.size(), ") = ", prefix);
        if (prefix != version.name) continue;
        take_version(version);
        return true;
    }
    log_both("Unknown heat-meter firmware. Values can not be read :( .");
    publish_item("_Firmware", "Unknown");
    return false;
}

void SA94::take_version(const SA94Version& version) {
    log_both("Find version = ", version.name);
    log_both("Firmware id = ", version.id);
    log_both("SA94 Model = ", version.model);
    log_both("Archive Statistics are ", version.extended ? "Extended" : " Not Extended");
    firmware_id = version.id;
    extended = version.extended;
    model = version.model;
    if (!model.empty()) publish_item("MeterModel", model);
}

bool SA94::getTubesSettings(const std::string& /*model_name*/) {
    log_both("Start get tubes settings");
    SA94Request request = new_request();
    if (!connect(request)) return false;
    request.setReadTubeSettings();
    if (!Transact(request, Attempts)) return false;
    log_tube_codes(request);

    const auto code = [&request](std::size_t at) { return int{request.response[at]}; };
    const auto most = [&code](const TubeCodes& tube) { return flow_limit(code(tube.dn_at), code(tube.q_max_at)); };
    const auto least = [&](const TubeCodes& tube) {
        return static_cast<float>(code(tube.q_min_at)) / 100.0F * most(tube);  // a percentage
    };
    publish_item("DN1", tube_diameter(code(Tube1.dn_at)));
    publish_item("DN2", tube_diameter(code(Tube2.dn_at)));
    publish_item("M1max", static_cast<double>(most(Tube1)));
    publish_item("M1min", static_cast<double>(least(Tube1)));
    publish_item("M2max", static_cast<double>(most(Tube2)));
    publish_item("M2min", static_cast<double>(least(Tube2)));
    disconnect(request);
    return true;
}

void SA94::log_tube_codes(const SA94Request& request) {
    UniLog* const log = log_debug.get();
    log_line(log, "ReadTubeSettings");
    log_line(log, "Recv ", request.recv_length, " bytes: ");
    log->dump_packet(request.received());
    const auto code = [&request](std::size_t at) { return int{request.response[at]}; };
    log_line(log, "DN1 code = ", code(Tube1.dn_at));
    log_line(log, "DN2 code = ", code(Tube2.dn_at));
    log_line(log, "Q1max code = ", code(Tube1.q_max_at));
    log_line(log, "Q2max code = ", code(Tube2.q_max_at));
    log_line(log, "Q1min code = ", code(Tube1.q_min_at));
    log_line(log, "Q2min code = ", code(Tube2.q_min_at));
}

bool SA94::getStatus() {
    log_both("Start get Status");
    SA94Request request = new_request();
    if (!connect(request)) return false;
    const unsigned s = request.response[0];
    sc_flag = (s & BitSC) != 0 ? 1 : 0;
    subsystem_type = (s & BitT3) != 0 ? 1 : 0;
    publish_item("_SubsystemType", subsystem_type);
    support_t3 = measures_t3(firmware_id, s);
    publish_item("_SupportT3", support_t3 ? 1 : 0);
    publish_item("SC", sc_flag);
    publish_item("_Status", static_cast<int>(s));
    status_byte = static_cast<std::uint8_t>(s & StatusMask);
    disconnect(request);
    return true;
}
