// The configuration service's answer, any bytes: what is taken from it stays within its limits, whatever it says.
// jsoncpp's exceptions end the daemon, as they are meant to, and are caught here.

#include <json/value.h>

#include "config/config_client.h"
#include "config/json_rpc.h"
#include "fuzz_ground.h"

namespace {

void take_as_driver(const Json::Value& answer) {
    MeterSettings settings;
    take_driver_config(answer, settings);
    expect(settings.port_name.size() < 128, "a device path has less than 128 bytes");
    expect(settings.port_name.find('\0') == std::string::npos, "a device path ends at its first zero byte");
    expect(settings.is_km56i == 0 || settings.is_km56i == 1, "is_km56i is 0 or 1");
    expect(settings.tc_baud >= 0 && settings.tc_baud <= 7, "a speed code is 0 to 7");
    expect(settings.tc_parity == 1 || settings.tc_parity == 2, "a parity code is 1 or 2");
    int types = 0;
    for (const std::string& type : settings.system_type) types += type.empty() ? 0 : 1;
    expect(settings.subsystem_count == types, "as many subsystems as system types that are not empty");

    take_driver_config(answer, settings);
    expect(settings.subsystem_count == 2 * types, "the count goes on from the answer before");
}

void take_as_port(const Json::Value& answer) {
    PortRecord record;
    take_port_config(answer, FuzzUuid, record);
    take_port_config(answer, FuzzUuid, record);
    expect(record.uuid == FuzzUuid, "a record belongs to the uuid asked for");
    expect(record.speed >= 1 && record.speed <= 7, "a speed code of the port is 1 to 7");
    expect(record.parity == 1 || record.parity == 2, "a parity code of the port is 1 or 2");
    int types = 0;
    for (const std::string& type : record.system_type) types += type.empty() ? 0 : 1;
    expect(record.subsystem_count == types, "the count of a record begins anew");
}

template <typename Work>
void past_exceptions(Work work) {
    try {
        work();
    } catch (const Json::Exception&) {
        return;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(FuzzInput(data, size).rest());
    const FuzzGateway machine(empty_root());
    past_exceptions([&] {
        Json::Value answer;
        if (!json_rpc_parse(text, answer)) return;
        past_exceptions([&] { take_as_driver(answer); });
        past_exceptions([&] { take_as_port(answer); });
    });
    return 0;
}
