// What heatmeter-uplink reads of settings, any bytes: each mistake has its place and is one line, and what is taken
// without a mistake can be used. And names of any bytes become parts of subjects and topics that mean nothing in them.
//
// Input: a byte, 0 for settings, all others for a name; then the text.

#include <algorithm>

#include "contract/plain_text.h"
#include "fuzz_ground.h"
#include "uplink/settings.h"
#include "uplink/topics.h"

namespace {

void look_at_broker(const std::optional<uplink::Broker>& broker) {
    if (!broker) return;
    expect(!broker->servers.empty(), "a broker has an address");
    for (const uplink::Server& server : broker->servers) {
        expect(!server.host.empty() && server.port >= 1 && server.port <= 65535, "an address is whole");
    }
    expect(broker->cert.empty() == broker->key.empty(), "a certificate has its key");
}

void look_at_settings(std::string_view text) {
    const uplink::Settings settings = uplink::parse_settings("f", std::string(text));
    for (const std::string& problem : settings.problems()) {
        expect(problem.starts_with("f:") && contract::for_terminal(problem) == problem,
               "a problem has its place, and is one line");
    }
    if (!settings.wrong.empty()) return;
    expect(!settings.gateway.empty(), "a gateway has a name");
    expect(settings.mqtt || settings.nats, "there is a broker");
    expect(settings.unchanged_minutes > 0 && settings.lines_per_second >= 0, "numbers are in their range");
    look_at_broker(settings.mqtt);
    look_at_broker(settings.nats);
}

void look_at_name(std::string_view name) {
    const std::string token = uplink::subject_token(name);
    expect(token.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_%") ==
               std::string::npos,
           "a token has plain signs");
    const std::string level = uplink::topic_level(name);
    expect(level.find_first_of("+#/") == std::string::npos, "a level is one level");
    expect(contract::for_terminal(level) == level, "a level is text without control characters");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    if (input.byte() == 0) {
        look_at_settings(input.rest());
    } else {
        look_at_name(input.rest());
    }
    return 0;
}
