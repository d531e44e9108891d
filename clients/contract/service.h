#pragma once
// What the configuration service says of a meter, with the daemon's own question.

#include <cstdint>
#include <string>
#include <vector>

#include "contract/catalogue.h"

namespace contract {

enum class ServiceState {
    NotAsked,
    Answers,
    Off,       ///< nobody listens
    Silent,    ///< no answer
    Nonsense,  ///< no JSON, or a value of a wrong type: the daemon's process ends
};

struct ServiceAnswer {
    ServiceState state = ServiceState::NotAsked;
    std::string fault;  ///< of nonsense: which key
    std::uint32_t serial = 0;
    std::string port;
    std::uint32_t speed = 0;      ///< that counts in normal mode
    std::uint32_t own_speed = 0;  ///< that of the meter itself, for single-bus mode
    std::string parity;
    std::string manufacturer;
    std::string alias;
    std::vector<std::string> systems;  ///< types that are not empty

    /// It names neither port nor serial number: so it answers for a uuid that it does not know.
    bool knows() const { return !port.empty() || serial != 0; }
};

/// Waits a few seconds at most.
ServiceAnswer ask_service(const std::string& uuid);
/// What an answer's text says.
ServiceAnswer parse_service_answer(const std::string& text);

/// The family that a manufacturer belongs to; NoFamily for an unknown one.
Family family_of_manufacturer(const std::string& manufacturer);

}  // namespace contract
