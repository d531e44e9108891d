// Who the meter is: model, firmware, flow limits.

#include "core/text.h"
#include "drivers/km5/km5.h"

namespace {

constexpr std::size_t SerialTextBytes = 10;
constexpr int EepromValueBytes = 4;

/// Numbers of the EEPROM parameters that hold a system's flow limits; the minima are percents of the maxima.
struct LimitParameters {
    int M1max, M1min, M2max, M2min;
};

constexpr LimitParameters Km56iLimits[KM5::MaxSubsystems] = {
    {114, 108, 115, 109},
    {116, 110, 117, 111},
    {118, 112, 119, 113},
};

constexpr LimitParameters PlainLimits = {70, 68, 75, 73};

}  // namespace

bool KM5::getModel() {
    log_both("Start getModel");
    KM5_meter& meter = carried.meter;
    KM5_request req{.cmd = CmdIdentity};
    if (!request(req, false)) return false;
    meter.model = u8_at(req.recv_buf, 9) + 1;
    meter.km56i_mode = false;

    req.cmd = CmdVersion;
    const bool ok = request(req, false);
    std::array<std::uint8_t, 4> model_type{};
    answer_bytes(8, 11, model_type.data(), req);
    const std::string letters(model_type.begin(), model_type.end());
    log_both("raw model_type: ", letters);
    if (!ok) return false;

    if (letters == "KM5I") {
        meter.km56i_mode = true;
        meter.model = 7;
    } else if (letters.starts_with("ATT")) {
        meter.isATT = true;
        log_both("isATT! ");
    }
    log_both("Model = ", meter.model);
    log_both("EEPROM_MODEL = ", 0);
    return true;
}

bool KM5::get_version() {
    log_line(messages_log.get(), "Start get version...");
    float& version = carried.meter.version;
    KM5_request req{.cmd = CmdVersion};
    if (!request(req, true)) {
        log_line(messages_log.get(), "Get version: ", version, ", FAIL");
        return false;
    }
    // The first byte is the echoed command 9, a tab to the number's reader.
    std::array<std::uint8_t, 5> version_text{};
    answer_bytes(1, 5, version_text.data(), req);
    version = parse_version(version_text);
    log_line(messages_log.get(), "Get version: ", version);
    return true;
}

bool KM5::read_EEPROM(int number, int length, float& out) {
    log_line(messages_log.get(), "Start read EEPROM");
    KM5_request req{.cmd = CmdReadEeprom,
                    .data = {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(length)}};
    const bool ok = request(req, true);
    out = le_float(req.recv_buf, 5);
    return ok;
}

std::array<float, 4> KM5::read_flow_limits() {
    const LimitParameters& numbers = carried.meter.km56i_mode ? Km56iLimits[carried.subsystem] : PlainLimits;
    const auto read = [this](int number) {
        float value = 0.0F;
        return read_EEPROM(number, EepromValueBytes, value) ? value : 0.0F;
    };
    const float M1max = read(numbers.M1max);
    const float M1min = read(numbers.M1min);
    const float M2max = read(numbers.M2max);
    const float M2min = read(numbers.M2min);
    return {M1max, M1min * M1max / 100.0F, M2max, M2min * M2max / 100.0F};
}

void KM5::publish_description(const std::string& serial, const std::array<float, 4>& limits) {
    constexpr std::array<const char*, 4> Names = {"M1max", "M1min", "M2max", "M2min"};
    for (std::size_t i = 0; i < Names.size(); ++i) publish_item(Names[i], static_cast<double>(limits[i]));
    publish_item("SerialNumber", serial);
    // The port facts are constants, whatever the line really is.
    publish_item("PortNum", 1.0);
    publish_item("PortType", "RS-485");
    publish_item("Parity", tc_parity);
    publish_item("NumStopBits", "1");
    publish_item("NumDataBits", "8");
}

bool KM5::get_description() {
    bool ok = false;
    const KM5_meter& meter = carried.meter;
    const int count = served_subsystems();
    for (int s = 0; s < count; ++s) {
        carried.subsystem = s;
        enter_state("get description");
        log_line(messages_log.get(), "Start get description.");
        const std::string serial = format_cut(SerialTextBytes, "%d", static_cast<std::int32_t>(tc_sernum));
        if (get_netaddr_from_config() == -1) return false;

        if (getModel()) {
            const std::string name = model_name(meter);
            if (meter.isATT) log_line(messages_log.get(), "model is ", name);
            log_line(messages_log.get(), "isATT_mustbe = ", isATT_mustbe ? "yes" : "no",
                     ", isATT = ", meter.isATT ? "yes" : "no");
            if (meter.isATT != isATT_mustbe) {
                setConnected(false, uuid);
                return false;
            }
            publish_item("MeterModel", name);
        }

        ok = get_version();
        if (ok) publish_item("Firmware", static_cast<double>(meter.version));
        const std::array<float, 4> limits = read_flow_limits();
        if (ok) publish_description(serial, limits);

        if (meter.model == -1) {
            log_line(messages_log.get(), "ERROR: KM5 model: unknown!");
            ok = false;
        } else {
            log_line(messages_log.get(), "KM5 model: ", meter.model);
        }
        if (meter.version == -1.0F) {
            log_line(messages_log.get(), "ERROR: KM5 version: unknown!");
            ok = false;
        } else {
            log_line(messages_log.get(), "KM5 version: ", meter.version);
        }
    }
    carried.has_description = ok;
    return ok;
}
