#include "config/publisher.h"

#include <cstdio>

#include <json/value.h>

#include "config/http_client.h"
#include "config/json_rpc.h"
#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"

namespace {

constexpr std::size_t CommandBytes = 150;
constexpr std::size_t StateLineBytes = 512;
constexpr int Subsystems = 6;

int put_text(const std::string& value, const std::string& uuid, const std::string& item, int subsystem) {
    const std::string path = "/tmp/" + uuid + "/" + std::to_string(subsystem) + "/tc_items/" + item;
    const std::string cut_path = operand_in_command(CommandBytes, "echo \"" + value + "\" > ", path);
    if (cut_path.starts_with("/tmp/")) overwrite_file(cut_path, value + "\n");
    return 1;
}

}  // namespace

int put_item(int value, const std::string& uuid, const std::string& item, UniLog* /*log*/, int subsystem) {
    return put_text(format_cut(CommandBytes, "%d", value), uuid, item, subsystem);
}

int put_item(long value, const std::string& uuid, const std::string& item, UniLog* /*log*/, int subsystem) {
    return put_text(format_cut(CommandBytes, "%ld", value), uuid, item, subsystem);
}

int put_item(unsigned long long value, const std::string& uuid, const std::string& item, UniLog* /*log*/,
             int subsystem) {
    return put_text(format_cut(CommandBytes, "%llu", value), uuid, item, subsystem);
}

int put_item(double value, const std::string& uuid, const std::string& item, UniLog* /*log*/, int subsystem) {
    return put_text(format_cut(CommandBytes, "%f", value), uuid, item, subsystem);
}

int put_item(const std::string& value, const std::string& uuid, const std::string& item, UniLog* /*log*/,
             int subsystem) {
    return put_text(cut(value, CommandBytes), uuid, item, subsystem);
}

int put_item(const char* value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem) {
    return put_item(std::string(value), uuid, item, log, subsystem);
}

void setConnected(bool flag, const std::string& uuid) {
    for (int n = 1; n <= Subsystems; ++n) put_item(flag ? 1 : 0, uuid, "Connected", nullptr, n);
}

void driver_state(const std::string& name, const std::string& text) {
    const std::tm tm = local_time(gateway().now());
    const std::string line =
        format_cut(StateLineBytes, "[%02d.%02d.%02d %02d:%02d:%02d] [%s]  %s\n", tm.tm_mday, tm.tm_mon + 1,
                   tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec, name.c_str(), text.c_str());
    overwrite_file("/tmp/driver." + name + ".state", line, 0644);
}

void put_current_value(const std::string& name, double value, int a, int b) {
    static int next_id = 1;
    Json::Value params;
    params.append(name);
    params.append(value);
    params.append(a);
    params.append(b);

    Json::Rpc::HttpClient client(gateway().service_address());
    if (client.Send(json_rpc_request(next_id++, "put_current_value", params)) == -1) {
        std::fprintf(stderr, "Error while sending data!\n");
        return;
    }
    std::string answer;
    if (client.Recv(answer) == -1) std::fprintf(stderr, "Error while receiving data!\n");
}
