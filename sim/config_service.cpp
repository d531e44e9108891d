#include "config_service.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <json/json.h>

#include "http_listener.h"

namespace sim {

namespace {

enum class Manner { Right, GivenBody, HangUp, Cut };

struct Behaviour {
    Manner manner = Manner::Right;
    std::string body{};      // of GivenBody
    int status = 200;        // HTTP
    std::string location{};  // of a redirection
    std::size_t padded_to = 0;
};

// JSON-RPC's own numbers, and one of the service's.
constexpr int ParseError = -32700;
constexpr int MethodNotFound = -32601;
constexpr int UnknownMeter = -32000;

std::string text_of(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value) + "\n";
}

bool parse(const std::string& text, Json::Value& value) {
    std::istringstream stream(text);
    return Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, nullptr);
}

Json::Value result_of(const MeterSettings& meter) {
    Json::Value result;
    result["serial"] = meter.serial;
    result["manufacturer"] = meter.manufacturer;
    result["port_params"]["name"] = meter.port_name;
    result["port_params"]["speed"] = meter.speed;
    result["port_params"]["parity"] = meter.parity;
    result["systems"] = Json::objectValue;
    for (std::size_t i = 0; i < meter.system_types.size(); ++i) {
        if (meter.system_types[i].empty()) continue;
        result["systems"]["system_" + std::to_string(i + 1) + "_type"] = meter.system_types[i];
    }
    if (!meter.port_alias.empty()) result["port_alias"] = meter.port_alias;
    if (meter.top_speed) result["speed"] = *meter.top_speed;
    return result;
}

Json::Value error(int code, const std::string& message) {
    Json::Value answer;
    answer["error"]["code"] = code;
    answer["error"]["message"] = message;
    return answer;
}

bool is_current_value(const Json::Value& params) {
    return params.isArray() && params.size() == 4 && params[0].isString() && params[1].isDouble() &&
           params[2].isInt() && params[3].isInt();
}

}  // namespace

struct ConfigService::Impl {
    explicit Impl(int port) : listener(port, [this](const HttpRequest& request) { return reply(request); }) {}

    ~Impl() {
        change([this] { stopping = true; });
    }

    /// Everything that a test says or asks passes here; an answer that waits for its delay takes notice.
    template <typename Change>
    void change(Change make) {
        const std::lock_guard lock(mutex);
        make();
        changed.notify_all();
    }

    void behave_as(Behaviour now) {
        change([&] { behaviour = std::move(now); });
    }

    HttpReply reply(const HttpRequest& request) {
        std::unique_lock lock(mutex);
        heads.push_back(request.head);
        requests.push_back(request.body);
        changed.wait_for(lock, delay, [this] { return stopping || delay.count() == 0; });
        if (behaviour.manner == Manner::HangUp) return {.hang_up = true};
        return {.status = behaviour.status,
                .location = behaviour.location,
                .body = body_for(request),
                .cut = behaviour.manner == Manner::Cut};
    }

    std::string body_for(const HttpRequest& request) {
        if (!behaviour.location.empty()) return {};
        if (behaviour.manner == Manner::GivenBody) return behaviour.body;
        std::string body = text_of(answer_to(request.body));
        if (body.size() < behaviour.padded_to) body.resize(behaviour.padded_to, ' ');
        return body;
    }

    Json::Value answer_to(const std::string& text) {
        Json::Value question;
        if (!parse(text, question) || !question.isObject()) return error(ParseError, "not a request");
        Json::Value answer = called(question["method"], question["params"]);
        answer["jsonrpc"] = "2.0";
        answer["id"] = question["id"];
        return answer;
    }

    Json::Value called(const Json::Value& method, const Json::Value& params) {
        Json::Value answer;
        if (method == "get_config" && params.isArray() && params.size() == 1 && params[0].isString()) {
            const auto found = results.find(params[0].asString());
            if (found == results.end()) return error(UnknownMeter, "unknown meter");
            answer["result"] = found->second;
        } else if (method == "put_current_value" && is_current_value(params)) {
            values.push_back({params[0].asString(), params[1].asDouble(), params[2].asInt(), params[3].asInt()});
            answer["result"] = true;
        } else {
            return error(MethodNotFound, "unknown method or parameters");
        }
        return answer;
    }

    mutable std::mutex mutex;
    std::condition_variable changed;
    bool stopping = false;
    Behaviour behaviour;
    std::chrono::duration<double> delay{0};
    std::map<std::string, Json::Value> results;
    std::vector<std::string> requests;
    std::vector<std::string> heads;
    std::vector<CurrentValue> values;
    HttpListener listener;  // last: its thread uses all of the above
};

ConfigService::ConfigService(int port) : impl_(std::make_unique<Impl>(port)) {}

ConfigService::~ConfigService() = default;

int ConfigService::port() const {
    return impl_->listener.port();
}

std::string ConfigService::address() const {
    return "http://127.0.0.1:" + std::to_string(port()) + "/";
}

void ConfigService::set_meter(const std::string& uuid, const MeterSettings& settings) {
    impl_->change([&] { impl_->results[uuid] = result_of(settings); });
}

void ConfigService::set_result(const std::string& uuid, const std::string& result) {
    Json::Value value;
    if (!parse(result, value)) throw std::invalid_argument("not JSON: " + result);
    impl_->change([&] { impl_->results[uuid] = value; });
}

std::vector<std::string> ConfigService::requests() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->requests;
}

std::vector<std::string> ConfigService::heads() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->heads;
}

std::vector<ConfigService::CurrentValue> ConfigService::current_values() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->values;
}

void ConfigService::behave() {
    impl_->change([this] {
        impl_->behaviour = {};
        impl_->delay = impl_->delay.zero();
    });
}

void ConfigService::answer_with(const std::string& body) {
    impl_->behave_as({.manner = Manner::GivenBody, .body = body});
}

void ConfigService::answer_with_status(int status) {
    impl_->behave_as({.status = status});
}

void ConfigService::redirect_to(const std::string& location) {
    impl_->behave_as({.status = 302, .location = location});
}

void ConfigService::pad_answers(std::size_t bytes) {
    impl_->behave_as({.padded_to = bytes});
}

void ConfigService::hang_up() {
    impl_->behave_as({.manner = Manner::HangUp});
}

void ConfigService::cut_answers() {
    impl_->behave_as({.manner = Manner::Cut});
}

void ConfigService::delay_answers(double seconds) {
    impl_->change([&] { impl_->delay = std::chrono::duration<double>(seconds); });
}

}  // namespace sim
