// Who the meter is: firmware, tube settings, status.

#include "drivers/sa94/sa94.h"

bool SA94::getDescription() {
    publish_item("_DriverStatus", int{StatusDescription});
    if (!getFirmware()) return false;
    getTubesSettings(carried.model);
    return getStatus();
}

bool SA94::getFirmware() {
    logs.both("Start Get Firmware");
    SA94Request request = new_request();
    if (!link.connect(request)) return false;
    request.setReadFirmware();
    if (!link.Transact(request)) return false;
    const std::string FirmwareText = firmware_text(request.response);
    if (!FirmwareText.empty()) publish_item("Firmware", FirmwareText);
    logs.both("Firmware text = ", FirmwareText);
    link.disconnect(request);

    const SA94Version* const found = find_version(FirmwareText);
    for (const SA94Version& version : Versions) {
        logs.debug("Compare firmware with ", version.name);
        logs.both("Versions[i].name.size() = ", version.name.size());
        logs.both("FirmwareText.substr(0, ", version.name.size(), ") = ", FirmwareText.substr(0, version.name.size()));
        if (&version == found) break;
    }
    if (found == nullptr) {
        logs.both("Unknown heat-meter firmware. Values can not be read :( .");
        publish_item("_Firmware", "Unknown");
        return false;
    }
    logs.both("Find version = ", found->name);
    logs.both("Firmware id = ", found->id);
    logs.both("SA94 Model = ", found->model);
    logs.both("Archive Statistics are ", found->extended ? "Extended" : " Not Extended");
    carried.firmware_id = found->id;
    carried.extended = found->extended;
    carried.model = found->model;
    if (!carried.model.empty()) publish_item("MeterModel", carried.model);
    return true;
}

bool SA94::getTubesSettings(const std::string& /*model_name*/) {
    logs.both("Start get tubes settings");
    SA94Request request = new_request();
    if (!link.connect(request)) return false;
    request.setReadTubeSettings();
    if (!link.Transact(request)) return false;
    const SA94Tube first = sa94::decode_tube(request.response, 1);
    const SA94Tube second = sa94::decode_tube(request.response, 2);
    logs.debug("ReadTubeSettings");
    logs.debug("Recv ", request.recv_length, " bytes: ");
    logs.log_debug->dump_packet(request.received());
    logs.debug("DN1 code = ", first.dn_code);
    logs.debug("DN2 code = ", second.dn_code);
    logs.debug("Q1max code = ", first.q_max_code);
    logs.debug("Q2max code = ", second.q_max_code);
    logs.debug("Q1min code = ", first.q_min_code);
    logs.debug("Q2min code = ", second.q_min_code);
    publish_item("DN1", first.diameter());
    publish_item("DN2", second.diameter());
    publish_item("M1max", static_cast<double>(first.greatest_flow()));
    publish_item("M1min", static_cast<double>(first.least_flow()));
    publish_item("M2max", static_cast<double>(second.greatest_flow()));
    publish_item("M2min", static_cast<double>(second.least_flow()));
    link.disconnect(request);
    return true;
}

bool SA94::getStatus() {
    logs.both("Start get Status");
    SA94Request request = new_request();
    if (!link.connect(request)) return false;
    meter_status = sa94::decode_status(request.response[0], carried.firmware_id);
    publish_item("_SubsystemType", meter_status.subsystem_type);
    publish_item("_SupportT3", meter_status.support_t3 ? 1 : 0);
    publish_item("SC", meter_status.sc_flag);
    publish_item("_Status", int{request.response[0]});
    link.disconnect(request);
    return true;
}
