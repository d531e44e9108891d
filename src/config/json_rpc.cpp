#include "config/json_rpc.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

// The services of the gateway know the output of this writer and the tolerance of this reader; jsoncpp would rather
// have its newer interfaces used.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

std::string json_rpc_request(int id, const std::string& method, const Json::Value& params) {
    Json::Value request;
    request["jsonrpc"] = "2.0";
    request["id"] = id;
    request["method"] = method;
    request["params"] = params;
    return Json::FastWriter().write(request);
}

bool json_rpc_parse(const std::string& text, Json::Value& answer) {
    try {
        return Json::Reader().parse(text, answer, true);
    } catch (const Json::RuntimeError&) {  // nested deeper than the reader goes
        return false;
    }
}
