#pragma once
// A stand-in for the gateway's configuration service: JSON-RPC over HTTP on the loopback interface, answered from a
// table of meters by a thread of its own. It can misbehave on demand. Every operation may be called at any time.

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// What the service knows of one meter; empty texts are sent as empty texts.
struct MeterSettings {
    unsigned serial = 0;
    std::string port_name{};
    unsigned speed = 9600;     ///< "port_params" . "speed"
    std::string parity = "N";  ///< "E" is even
    std::string manufacturer{};
    std::array<std::string, 6> system_types{};  ///< an empty one is left out of the answer
    std::string port_alias{};                   ///< left out of the answer when empty
    std::optional<unsigned> top_speed{};        ///< "speed" beside "port_params"
};

class ConfigService {
  public:
    /// Listens on 127.0.0.1; port 0 takes any free one. Throws std::system_error when the port is taken.
    explicit ConfigService(int port = 0);
    ~ConfigService();

    int port() const;
    std::string address() const;  ///< "http://127.0.0.1:PORT/"

    /// Adds a meter, or replaces its settings. The answer for any other uuid has an "error" and no "result".
    void set_meter(const std::string& uuid, const MeterSettings& settings);
    /// Answers for this uuid with `result` (a JSON text) in the place of what set_meter told.
    void set_result(const std::string& uuid, const std::string& result);

    // ---- what has been asked

    struct CurrentValue {
        std::string name;
        double value;
        int a;
        int b;
    };
    std::vector<std::string> requests() const;         ///< the bodies of all requests, in order
    std::vector<std::string> heads() const;            ///< their request lines and header lines
    std::vector<CurrentValue> current_values() const;  ///< every call of "put_current_value", in order

    // ---- misbehaviour, for every request from now on; each call replaces the one before, a delay adds to any of them

    void behave();                                  ///< right answers, at once
    void answer_with(const std::string& body);      ///< this body, status 200
    void answer_with_status(int status);            ///< the right body under another HTTP status
    void redirect_to(const std::string& location);  ///< status 302 and no body
    void pad_answers(std::size_t bytes);            ///< the right body, with blanks behind it up to this length
    void hang_up();                                 ///< reads the request and closes the connection
    void cut_answers();                             ///< closes the connection in the middle of the body
    void delay_answers(double seconds);             ///< real seconds

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace sim
