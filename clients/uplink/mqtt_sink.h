#pragma once
// A broker of MQTT, by libmosquitto, in a thread of its own: looking up a name, connecting and the handshake of TLS
// wait, and what is sent goes out beside them.
//
// Version 5 tells with each answer whether the broker has taken a message; 3.1.1, which answers all alike, is spoken
// with a broker that says that it knows nothing else. Each connection begins with 5.

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <mosquitto.h>

#include "uplink/settings.h"
#include "uplink/sink.h"

namespace uplink {

class MqttSink : public Sink {
  public:
    /// The settings and the mailbox outlive this. `client`: the name under which the broker knows it.
    /// `is_trial`: it says nothing to those who listen at the broker, neither now nor by a last will.
    MqttSink(const Settings& settings, const std::string& client, Mailbox& mailbox, std::size_t number,
             bool is_trial = false);
    ~MqttSink() override;

    const char* name() const override { return "mqtt"; }
    void connect() override;
    void send(std::uint64_t number, Message message) override;
    void end(bool orderly) override;
    std::string record_topic(const std::string& uuid, int system, std::string_view kind) const override;

    /// "PREFIX/GATEWAY"
    static std::string base_topic(const Settings& settings);

  private:
    void work();
    std::string hold_connection();
    void tell(Event::What what, std::uint64_t message = 0, std::string reason = {});
    bool publish(const Message& message, int* id);
    std::string status_topic() const { return base_topic(settings) + "/status"; }

    static void on_connect(mosquitto* client, void* self, int reason, int flags, const mosquitto_property* properties);
    static void on_publish(mosquitto* client, void* self, int id, int reason, const mosquitto_property* properties);

    const Settings& settings;
    const std::string client_name;
    Mailbox& mailbox;
    const std::size_t sink_number;
    const bool is_trial;

    std::mutex mutex;
    std::condition_variable changed;
    bool is_wanted = false;  // a connection
    bool is_ending = false;
    bool is_over = false;
    mosquitto* client = nullptr;            // while there is a connection
    std::map<int, std::uint64_t> messages;  // by the broker's number
    int version = 5;
    bool is_version_unknown = false;  // to the broker
    std::string refusal;
    std::thread thread;
};

}  // namespace uplink
