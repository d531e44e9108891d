#include "uplink/mqtt_sink.h"

#include <utility>

#include <fmt/format.h>
#include <mqtt_protocol.h>

#include "uplink/mqtt_loop.h"
#include "uplink/topics.h"

namespace uplink {

namespace {

constexpr int KeepAlive = 60;             // seconds
constexpr int LongestWait = 3600 * 1000;  // milliseconds: the library is woken by what happens, and to keep alive
constexpr int FirstBadReason = 0x80;
constexpr int UnknownVersion = 0x84;  // the library makes it of the 1 of a 3.1.1, too

std::string text_of(int result) {
    return result == MOSQ_ERR_ERRNO ? std::string(::strerror(errno)) : ::mosquitto_strerror(result);
}

}  // namespace

MqttSink::MqttSink(const Settings& all_settings, const std::string& own_name, Mailbox& events, std::size_t number,
                   bool is_a_trial)
    : settings(all_settings), client_name(own_name), mailbox(events), sink_number(number), is_trial(is_a_trial) {
    ::mosquitto_lib_init();
    thread = std::thread([this] { work(); });
}

MqttSink::~MqttSink() {
    {
        const std::lock_guard lock(mutex);
        is_over = true;
    }
    MqttSink::end(false);
    thread.join();
}

std::string MqttSink::base_topic(const Settings& settings) {
    return settings.prefix + '/' + topic_level(settings.gateway);
}

std::string MqttSink::record_topic(const std::string& uuid, int system, std::string_view kind) const {
    return fmt::format("{}/{}/{}/record/{}", base_topic(settings), topic_level(uuid), system, kind);
}

void MqttSink::tell(Event::What what, std::uint64_t message, std::string reason) {
    mailbox.put({.what = what, .sink = sink_number, .number = message, .reason = std::move(reason)});
}

void MqttSink::connect() {
    const std::lock_guard lock(mutex);
    is_wanted = true;
    is_ending = false;
    changed.notify_one();
}

void MqttSink::end(bool orderly) {
    const std::lock_guard lock(mutex);
    is_ending = !orderly || client == nullptr;
    changed.notify_one();
    if (client == nullptr) return;
    // Then the broker does not say so by the last will.
    if (orderly && !is_trial) publish({.topic = status_topic(), .body = "offline", .is_retained = true}, nullptr);
    ::mosquitto_disconnect(client);
}

bool MqttSink::publish(const Message& message, int* id) {
    mosquitto_property* properties = nullptr;
    if (version == 5 && message.time != 0) {
        ::mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "time",
                                             std::to_string(message.time).c_str());
    }
    const int result =
        ::mosquitto_publish_v5(client, id, message.topic.c_str(), static_cast<int>(message.body.size()),
                               message.body.data(), message.is_confirmed ? 1 : 0, message.is_retained, properties);
    ::mosquitto_property_free_all(&properties);
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST) return true;
    tell(Event::What::Refused, 0, text_of(result));
    return false;
}

void MqttSink::send(std::uint64_t number, Message message) {
    const std::lock_guard lock(mutex);
    int id = 0;
    if (client != nullptr && publish(message, &id) && message.is_confirmed) messages[id] = number;
}

void MqttSink::on_connect(mosquitto*, void* me, int reason, int, const mosquitto_property*) {
    const InCallback inside;
    MqttSink& self = *static_cast<MqttSink*>(me);
    const std::lock_guard lock(self.mutex);
    if (reason != 0) {
        self.refusal = self.version == 5 ? ::mosquitto_reason_string(reason) : ::mosquitto_connack_string(reason);
        self.is_version_unknown = self.version == 5 && reason == UnknownVersion;
        return;
    }
    if (!self.is_trial) self.publish({.topic = self.status_topic(), .body = "online", .is_retained = true}, nullptr);
    self.tell(Event::What::Connected, 0,
              self.version == 5 ? "" : "by MQTT 3.1.1: what the broker does not let through it confirms as well");
}

void MqttSink::on_publish(mosquitto*, void* me, int id, int reason, const mosquitto_property*) {
    const InCallback inside;
    MqttSink& self = *static_cast<MqttSink*>(me);
    const std::lock_guard lock(self.mutex);
    const auto found = self.messages.find(id);
    if (found == self.messages.end()) return;
    const std::uint64_t number = found->second;
    self.messages.erase(found);
    if (reason >= FirstBadReason) {
        self.tell(Event::What::Refused, number, ::mosquitto_reason_string(reason));
    } else {
        self.tell(Event::What::Confirmed, number);
    }
}

/// From connecting to the end, whose reason it tells.
std::string MqttSink::hold_connection() {
    const Broker& broker = *settings.mqtt;
    const std::unique_ptr<mosquitto, void (*)(mosquitto*)> own(::mosquitto_new(client_name.c_str(), true, this),
                                                               ::mosquitto_destroy);
    if (!own) return "no memory";
    ::mosquitto_threaded_set(own.get(), true);
    ::mosquitto_int_option(own.get(), MOSQ_OPT_PROTOCOL_VERSION, version == 5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    ::mosquitto_connect_v5_callback_set(own.get(), on_connect);
    ::mosquitto_publish_v5_callback_set(own.get(), on_publish);
    constexpr std::string_view Will = "offline";
    if (!is_trial) {
        ::mosquitto_will_set(own.get(), status_topic().c_str(), static_cast<int>(Will.size()), Will.data(), 1, true);
    }
    if (!broker.user.empty()) {
        const auto password = password_of(broker);
        if (!password) return broker.password_file + " cannot be read";
        ::mosquitto_username_pw_set(own.get(), broker.user.c_str(), password->empty() ? nullptr : password->c_str());
    }
    const Server& server = broker.servers.front();
    if (server.tls) {
        const auto or_null = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
        const int result =
            ::mosquitto_tls_set(own.get(), or_null(broker.ca), broker.ca.empty() ? "/etc/ssl/certs" : nullptr,
                                or_null(broker.cert), or_null(broker.key), nullptr);
        if (result != MOSQ_ERR_SUCCESS) return "ca, cert or key cannot be used: " + text_of(result);
    }
    int result = ::mosquitto_connect_bind_v5(own.get(), server.host.c_str(), server.port, KeepAlive, nullptr, nullptr);
    if (result != MOSQ_ERR_SUCCESS) return fmt::format("{}:{}: {}", server.host, server.port, text_of(result));
    {
        const std::lock_guard lock(mutex);
        if (is_ending) return {};
        client = own.get();
        is_version_unknown = false;
        refusal.clear();
    }
    for (bool is_over_now = false; result == MOSQ_ERR_SUCCESS && !is_over_now;) {
        result = mqtt_loop(own.get(), LongestWait);
        const std::lock_guard lock(mutex);
        is_over_now = is_ending || !refusal.empty();
    }
    const std::lock_guard lock(mutex);
    client = nullptr;
    messages.clear();
    version = is_version_unknown ? 4 : 5;
    if (!refusal.empty()) return "the broker refuses: " + refusal;
    return result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_NO_CONN ? "the connection is over" : text_of(result);
}

void MqttSink::work() {
    for (;;) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return is_wanted || is_over; });
            if (is_over) return;
            is_wanted = false;
        }
        std::string reason = hold_connection();
        if (std::exchange(is_version_unknown, false)) reason = hold_connection();  // by the old one, at once
        version = 5;
        tell(Event::What::Lost, 0, std::move(reason));
    }
}

}  // namespace uplink
