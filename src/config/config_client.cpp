#include "config/config_client.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include <json/value.h>

#include "config/http_client.h"
#include "config/json_rpc.h"
#include "core/gateway.h"
#include "core/text.h"

namespace {

constexpr int FirstRequestId = 1000;
constexpr std::size_t DeviceBytes = 128;
constexpr int Systems = 6;

// Each reader has a table of its own for the one speed in which they differ.
constexpr int DriverCodeOf1200 = 0;
constexpr int PortCodeOf1200 = 1;

int speed_code(unsigned speed, int code_of_1200) {
    switch (speed) {
        case 1200:
            return code_of_1200;
        case 2400:
            return 1;
        case 4800:
            return 2;
        case 9600:
            return 3;
        case 19200:
            return 4;
        case 38400:
            return 5;
        case 57600:
            return 6;
        case 115200:
            return 7;
        default:
            return 1;
    }
}

int parity_code(const Json::Value& port_params) {
    return port_params["parity"].asString() == "E" ? 1 : 2;
}

/// The ports that "/tmp/pause_tvk" does not stop.
bool is_free_of_pause(const std::string& port_alias) {
    constexpr const char* Aliases[] = {"serial232.0", "serial485.4", "serial232.D", "serial485.1", "serial485.2"};
    return std::find(std::begin(Aliases), std::end(Aliases), port_alias) != std::end(Aliases);
}

/// The six configured system types in order; `count` rises by one for each that is not empty.
std::array<std::string, Systems> system_types(const Json::Value& result, int& count) {
    std::array<std::string, Systems> types;
    for (int n = 1; n <= Systems; ++n) {
        const std::string type = result["systems"]["system_" + std::to_string(n) + "_type"].asString();
        if (type.empty()) continue;
        types[static_cast<std::size_t>(n - 1)] = type;
        ++count;
    }
    return types;
}

/// One call of "get_config". Nothing when the question could not be sent; a lost or senseless answer ends the process.
/// The asymmetry between a lost question and a lost answer is wanted.
std::optional<Json::Value> ask_config(const std::string& uuid, int id, bool show) {
    Json::Value params;
    params.append(uuid);
    const std::string query = json_rpc_request(id, "get_config", params);
    if (show) std::printf("Query is: %s\n", query.c_str());

    Json::Rpc::HttpClient client(gateway().service_address());
    if (client.Send(query) == -1) {
        std::fprintf(stderr, "Error while sending data!\n");
        return std::nullopt;
    }
    std::string text;
    if (client.Recv(text) == -1) {
        std::fprintf(stderr, "Error while receiving data!\n");
        std::exit(1);
    }
    if (show) std::printf("Received: %s\n", text.c_str());
    Json::Value answer;
    if (!json_rpc_parse(text, answer)) {
        std::fprintf(stderr, "Parse error!\nError while receiving data!\n");
        std::exit(1);
    }
    return answer;
}

}  // namespace

void take_driver_config(const Json::Value& answer, MeterSettings& settings) {
    const Json::Value& result = answer["result"];
    const Json::Value& port_params = result["port_params"];

    settings.tc_sernum = result["serial"].asUInt();
    std::printf("tc_sernum: %u\n", settings.tc_sernum);
    settings.port_name = cut(port_params["name"].asString(), DeviceBytes - 1);
    std::printf("dev: %s\n", settings.port_name.c_str());
    const std::string manufacturer = result["manufacturer"].asString();
    std::printf("manufacturer = %s\n", manufacturer.c_str());
    settings.is_km56i = manufacturer == "km-5-6i" ? 1 : 0;

    // The count goes on from an earlier answer to the same settings.
    settings.system_type = system_types(result, settings.subsystem_count);
    std::printf("subsystem_count = %d\n", settings.subsystem_count);

    settings.use_pause_flag = !is_free_of_pause(result["port_alias"].asString());
    settings.tc_baud = speed_code(port_params["speed"].asUInt(), DriverCodeOf1200);
    std::printf("tc_baud: %d\n", settings.tc_baud);
    settings.tc_parity = parity_code(port_params);
    std::printf("dev: %s\n", settings.port_name.c_str());
    std::printf("tc_parity: %d\n", settings.tc_parity);
}

void take_port_config(const Json::Value& answer, const std::string& uuid, PortRecord& record) {
    const Json::Value& result = answer["result"];
    const Json::Value& port_params = result["port_params"];

    record.uuid = uuid;
    record.serial = result["serial"].asUInt();
    std::printf("serial: %u\n", record.serial);
    record.port_name = port_params["name"].asString();
    std::printf("port_name: %s\n", record.port_name.c_str());
    record.manufacturer = result["manufacturer"].asString();
    std::printf("manufacturer = %s\n", record.manufacturer.c_str());

    record.subsystem_count = 0;
    record.system_type = system_types(result, record.subsystem_count);
    std::printf("subsystem_count = %d\n", record.subsystem_count);

    const unsigned own_speed = result["speed"].asUInt();
    record.speed = speed_code(own_speed != 0 ? own_speed : port_params["speed"].asUInt(), PortCodeOf1200);
    std::printf("speed: %d\n", record.speed);
    record.parity = parity_code(port_params);
    std::printf("dev: %s\n", record.port_name.c_str());
    std::printf("tc_parity: %d\n", record.parity);
}

MeterSettings settings_of(const PortRecord& record) {
    return {.tc_sernum = record.serial,
            .port_name = record.port_name,
            .tc_baud = record.speed,
            .tc_parity = record.parity,
            .subsystem_count = record.subsystem_count,
            .system_type = record.system_type};
}

void read_driver_config(const std::string& uuid, MeterSettings& settings) {
    static int next_id = FirstRequestId;
    if (const auto answer = ask_config(uuid, next_id++, true)) take_driver_config(*answer, settings);
}

void read_port_config(const std::string& uuid, PortRecord& record) {
    static int next_id = FirstRequestId;
    if (const auto answer = ask_config(uuid, next_id++, false)) take_port_config(*answer, uuid, record);
}
