#pragma once
// The JSON-RPC texts of the gateway's services.

#include <string>

namespace Json {
class Value;
}

/// A JSON-RPC 2.0 request as one line of text.
std::string json_rpc_request(int id, const std::string& method, const Json::Value& params);

/// Parses an answer, comments allowed. False when it is not JSON, or nested too deep.
bool json_rpc_parse(const std::string& text, Json::Value& answer);
