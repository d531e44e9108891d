#include "ctl/probe_meters.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "core/gateway.h"
#include "core/uni_log.h"
#include "driver/exchange.h"
#include "drivers/km5/km5_decode.h"
#include "drivers/km5/km5_link.h"
#include "drivers/sa94/sa94_decode.h"
#include "drivers/sa94/sa94_link.h"
#include "drivers/vist/vist_decode.h"
#include "drivers/vist/vist_link.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/modbus_exchange.h"
#include "drivers/vist_modbus/modbus_frame.h"
#include "drivers/vist_modbus/vist_modbus_decode.h"
#include "drivers/vist_modbus/vist_modbus_tables.h"

namespace ctl {

namespace {

constexpr int Tries = 3;
constexpr int NoTimeout = 0;  // not used by the exchange routines
constexpr bool NoPause = false;

const std::vector<std::uint8_t> EndOfVist = {'E', 'N', 'D', '\r'};
const std::vector<std::uint8_t> EndOfSa94 = {0x01};

// VIST numbers are those of a CALL, Modbus addresses those of the protocol.
const ProbeFamily Families[] = {
    {contract::KM5, &LineOfKm5, true, 0, 0, {}},
    {contract::VIST, &LineOfVist, false, 1, 99, EndOfVist},
    {contract::VISTmodbus, &LineOfVistModbus, false, 1, 247, {}},
    {contract::SA94, &LineOfSa94, true, 0, 0, EndOfSa94},
};

char parity_of(const termios& line) {
    if ((line.c_cflag & PARENB) == 0) return 'N';
    return (line.c_cflag & PARODD) != 0 ? 'O' : 'E';
}

// ---- KM5

class Km5Probe {
  public:
    Km5Probe(int fd, int most_tries)
        : link(
              &silent,
              [fd](Bytes tx, ExchangeAnswer& rx, int most) {
                  exchange_read_bytes(fd, NoTimeout, tx, rx, most, NoPause);
              },
              [](bool) {}),
          tries(most_tries) {}

    std::optional<ProbedMeter> ask(std::uint32_t serial) {
        int_to_bcd(address.data(), serial, address.size());
        const std::uint8_t last = address[3];
        KM5_request identity{.cmd = CmdIdentity};
        bool answers = exchange(identity);
        // A KM5-6i has the number of its subsystem in its address.
        if (!answers && (last & 0x0F) != 0) {
            address[3] = last & 0xF0;
            answers = exchange(identity);
        }
        if (!answers) return {};
        ProbedMeter meter{.address = serial};
        KM5_meter told{.model = u8_at(identity.recv_buf, 9) + 1};
        KM5_netaddr number{};
        answer_bytes(2, 5, number.data(), identity);
        meter.serial = fmt::format("{:02X}{:02X}{:02X}{:02X}", number[3], number[2], number[1], number[0]);
        KM5_request version{.cmd = CmdVersion};
        if (exchange(version)) {
            std::array<std::uint8_t, 5> text{};
            answer_bytes(1, 5, text.data(), version);
            meter.firmware = fmt::format("{}", parse_version(text));
            std::array<std::uint8_t, 4> letters{};
            answer_bytes(8, 11, letters.data(), version);
            const std::string type(letters.begin(), letters.end());
            told.isATT = type.starts_with("ATT");
            told.km56i_mode = type == "KM5I";
            if (told.km56i_mode) told.model = 7;
        }
        meter.model = model_name(told);
        if (told.km56i_mode) meter.serial = std::to_string(serial);
        KM5_request clock{.cmd = CmdCurrent};
        meter.clock_asked = gateway().now();
        if (exchange(clock)) meter.clock = km5::decode_date(clock.recv_buf);
        return meter;
    }

  private:
    bool exchange(KM5_request& request) {
        request.netaddr = address;
        build_frame(request);
        sync_send_buffer(request);
        for (int i = 0; i < tries; ++i) {
            link.send_request(request);
            if (request.RcvLng > 0 && !isError(request) && link.check_control_sum(request)) return true;
        }
        return false;
    }

    UniLog silent{"", ""};
    KM5Link link;
    KM5_netaddr address{};
    const int tries;
};

// ---- SA-94

class Sa94Probe {
  public:
    Sa94Probe(int fd, std::uint32_t serial, int most_tries)
        : link(
              [fd](Bytes tx, ExchangeAnswer& rx) {
                  exchange_read_bytes(fd, NoTimeout, tx, rx, SA94Request::ResponseBytes, NoPause);
              },
              [](bool) {}, silent),
          request(static_cast<std::int32_t>(serial)),
          tries(most_tries) {}

    std::optional<ProbedMeter> ask() {
        request.setConnect();
        // The one byte of a status; what comes with it is noise, or another family's answer.
        if (!exchange() || request.recv_length != 1) return {};
        ProbedMeter meter{.address = static_cast<std::uint32_t>(request.address),
                          .serial = std::to_string(request.address)};
        request.setReadFirmware();
        if (!exchange() || request.recv_length < BlockBytes) {
            meter.remark = "it tells its status and no firmware";
            return meter;
        }
        meter.firmware = firmware_text(request.response);
        const SA94Version* const version = find_version(meter.firmware);
        if (version == nullptr) {
            meter.remark = "a firmware that the daemon does not know: nothing would be read";
        } else {
            meter.model = version->model;
            meter.clock = clock(version->id, meter.clock_asked);
        }
        request.setDisconnect();
        link.exchangeOnce(request);
        return meter;
    }

  private:
    bool exchange() {
        for (int i = 0; i < tries; ++i) {
            link.exchangeOnce(request);
            if (request.recv_length > 0) return true;
        }
        return false;
    }

    std::optional<std::tm> clock(int firmware, std::int64_t& asked) {
        const auto row = std::ranges::find(CurrentParameters, firmware, &SA94ParameterRow::id);
        if (row == CurrentParameters.end()) return {};
        std::tm tm{};
        int parts = 0;
        for (const SA94CurrentParameter& parameter : row->entries) {
            if (!parameter.active || parameter.kind == ParameterValue) continue;
            request.setReadParameter(parameter.code);
            asked = gateway().now();
            if (!exchange()) return {};
            sa94::decode_parameter(parameter, request.response, tm);
            ++parts;
        }
        if (parts != 2) return {};
        return tm;
    }

    UniLog silent{"", ""};
    SA94Link link;
    SA94Request request;
    const int tries;
};

// ---- VIST

std::optional<ProbedMeter> ask_vist(int fd, std::uint32_t number, bool brief) {
    if (brief) {
        // The link asks five times where nobody is.
        const std::string call = fmt::format("CALL {}\r", number);
        const Bytes bytes(reinterpret_cast<const std::uint8_t*>(call.data()), call.size());
        ExchangeAnswer answer;
        constexpr int MostBytes = 299;
        exchange_read_all(fd, NoTimeout, bytes, answer, MostBytes, NoPause);
        if (answer.empty()) return {};
    }
    UniLog silent("", "");
    const VISTLine line = {
        .exchange = [fd](Bytes tx, ExchangeAnswer& rx,
                         int most) { exchange_read_all(fd, NoTimeout, tx, rx, most, NoPause); },
        .set_busy = [](int) {},
        .set_connected = [](bool) {},
    };
    VISTFunctions functions(nullptr, &silent, line);
    std::array<std::uint8_t, 300> packet{};
    const VISTParameters parameters{.device_num = static_cast<int>(number), .current_buffer = packet};
    const VISTReply version = functions.do_request(vist::reqDevCRC, parameters);
    if (!version) return {};
    ProbedMeter meter{.address = number};
    if (version.ret_int < vist::LowestServedVersion) {
        meter.remark = fmt::format("software version {}, which the daemon does not read", version.ret_int);
        return meter;
    }
    if (functions.do_request(vist::reqDevSpecials, parameters)) {
        const vist::DeviceSpecials specials = vist::decode_specials(packet);
        meter.model = specials.model;
        meter.firmware = specials.firmware;
        meter.serial = std::to_string(specials.dev_serial);
    }
    meter.clock_asked = gateway().now();
    if (version.ret_int > vist::LowestServedVersion && functions.do_request(vist::reqMomentTG, parameters)) {
        meter.clock = vist::decode_values(packet, false, version.ret_int, {}).clock;
    }
    return meter;
}

// ---- VIST over Modbus

std::optional<ProbedMeter> ask_modbus(int fd, std::uint32_t address, int tries) {
    constexpr int Milliseconds = 600;
    constexpr std::size_t DataAt = 2;
    const auto read = [&](const ModbusRequest& row, std::span<std::uint8_t> answer) {
        for (int i = 0; i < tries; ++i) {
            std::ranges::fill(answer, std::uint8_t{0});
            const int first = row.address[0];
            const int length =
                row.read(fd, answer, static_cast<int>(address), first, first + row.count - 1, Milliseconds, 0);
            if (length < 0) continue;
            // Words in the order of the line, as the driver's link hands them on.
            swap_words(answer.first(static_cast<std::size_t>(length)));
            return true;
        }
        return false;
    };
    std::array<std::uint8_t, 512> answer{};
    if (!read(reqSpecs[0], answer)) return {};
    const vist_modbus::MainConfig config = vist_modbus::decode_main_config(Bytes(answer).subspan(DataAt));
    ProbedMeter meter{
        .address = address, .model = config.model, .firmware = config.PO_ver, .serial = config.Serial_num};
    meter.clock_asked = gateway().now();
    if (read(reqValues[0], answer)) meter.clock = packet_time(Bytes(answer).subspan(DataAt), 0);
    return meter;
}

}  // namespace

const ProbeFamily& probe_family(contract::Family family) {
    return *std::ranges::find(Families, family, &ProbeFamily::family);
}

std::string LineChoice::text() const {
    return fmt::format("{} bit/s, {}", speed,
                       parity == 'N'   ? "no parity"
                       : parity == 'E' ? "even parity"
                                       : "odd parity");
}

std::vector<LineChoice> line_choices(const ProbeFamily& family) {
    struct Speed {
        unsigned speed;
        int code;
        speed_t bits;
    };
    // The likely ones first.
    constexpr Speed Speeds[] = {{9600, 3, B9600},   {19200, 4, B19200}, {4800, 2, B4800},    {2400, 1, B2400},
                                {38400, 5, B38400}, {57600, 6, B57600}, {115200, 7, B115200}};
    struct Parity {
        char told;
        int code;
    };
    constexpr Parity Parities[] = {{'N', 2}, {'E', 1}};
    std::vector<LineChoice> choices;
    for (const Parity& parity : Parities) {
        for (const Speed& speed : Speeds) {
            const termios line = line_termios(*family.line, speed.code, parity.code);
            if (::cfgetospeed(&line) != speed.bits) continue;  // the daemon would make another speed of it
            const LineChoice choice{speed.speed, parity_of(line), parity.told, speed.code, parity.code};
            const auto is_there = [&](const LineChoice& each) {
                return each.speed == choice.speed && each.parity == choice.parity;
            };
            if (std::ranges::none_of(choices, is_there)) choices.push_back(choice);
        }
    }
    return choices;
}

std::optional<ProbedMeter> ask_meter(const ProbeFamily& family, int fd, std::uint32_t address, bool brief) {
    const int tries = brief ? 1 : Tries;
    switch (family.family) {
        case contract::KM5:
            return Km5Probe(fd, tries).ask(address);
        case contract::SA94:
            return Sa94Probe(fd, address, tries).ask();
        case contract::VIST:
            return ask_vist(fd, address, brief);
        default:
            return ask_modbus(fd, address, tries);
    }
}

}  // namespace ctl
