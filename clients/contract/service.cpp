#include "contract/service.h"

#include <exception>
#include <optional>

#include <json/value.h>

#include "config/http_client.h"
#include "config/json_rpc.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr int RequestId = 1;
constexpr long Patience = 3;  // seconds
constexpr int MostSystems = 6;

/// Reads keys as the daemon does: a missing one is empty or 0, one that cannot be taken is a fault.
class AnswerReader {
  public:
    explicit AnswerReader(ServiceAnswer& into) : answer(into) {}

    const Json::Value& member(const Json::Value& object, const char* key) {
        if (object.isObject() || object.isNull()) return object[key];
        fail(key);
        return Json::Value::nullSingleton();
    }
    std::uint32_t number(const Json::Value& object, const char* key, const char* name) {
        const Json::Value& value = member(object, key);
        try {
            return value.asUInt();
        } catch (const std::exception&) {
            fail(name);
            return 0;
        }
    }
    std::string text(const Json::Value& object, const char* key, const char* name) {
        const Json::Value& value = member(object, key);
        try {
            return value.asString();
        } catch (const std::exception&) {
            fail(name);
            return "";
        }
    }

  private:
    void fail(const std::string& key) {
        answer.state = ServiceState::Nonsense;
        if (answer.fault.empty()) answer.fault = "its key " + key + " has a wrong type";
    }

    ServiceAnswer& answer;
};

}  // namespace

ServiceAnswer parse_service_answer(const std::string& text) {
    ServiceAnswer answer;
    Json::Value whole;
    bool parsed = false;
    try {
        parsed = json_rpc_parse(text, whole);
    } catch (const std::exception&) {
        parsed = false;
    }
    if (!parsed) {
        answer.state = ServiceState::Nonsense;
        answer.fault = "its answer is no JSON";
        return answer;
    }
    answer.state = ServiceState::Answers;
    AnswerReader reader(answer);
    const Json::Value& result = reader.member(whole, "result");
    const Json::Value& port = reader.member(result, "port_params");
    answer.serial = reader.number(result, "serial", "serial");
    answer.own_speed = reader.number(result, "speed", "speed");
    answer.manufacturer = reader.text(result, "manufacturer", "manufacturer");
    answer.alias = reader.text(result, "port_alias", "port_alias");
    answer.port = reader.text(port, "name", "port_params.name");
    answer.port.resize(std::min(answer.port.find('\0'), answer.port.size()));
    answer.speed = reader.number(port, "speed", "port_params.speed");
    answer.parity = reader.text(port, "parity", "port_params.parity");
    const Json::Value& systems = reader.member(result, "systems");
    for (int n = 1; n <= MostSystems; ++n) {
        const std::string key = "system_" + std::to_string(n) + "_type";
        std::string type = reader.text(systems, key.c_str(), ("systems." + key).c_str());
        if (!type.empty()) answer.systems.push_back(std::move(type));
    }
    return answer;
}

ServiceAnswer ask_service(const std::string& uuid) {
    ServiceAnswer answer;
    Json::Value params;
    params.append(uuid);
    Json::Rpc::HttpClient client(gateway().service_address(), Patience);
    std::string text;
    if (client.Send(json_rpc_request(RequestId, "get_config", params)) == -1) {
        answer.state = ServiceState::Off;
    } else if (client.Recv(text) == -1) {
        answer.state = ServiceState::Silent;
    } else {
        answer = parse_service_answer(text);
    }
    return answer;
}

Family family_of_manufacturer(const std::string& manufacturer) {
    if (manufacturer.starts_with("km-5")) return KM5;
    if (manufacturer == "vis-t-modbus") return VISTmodbus;
    if (manufacturer == "vis-t") return VIST;
    if (manufacturer == "sa-94-2m") return SA94;
    return NoFamily;
}

}  // namespace contract
