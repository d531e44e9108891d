#pragma once
// The transport of a JSON-RPC call to a service of the gateway: one HTTP POST, one answer.

#include <memory>
#include <string>

namespace Json::Rpc {

class HttpClient {
  public:
    /// Remembers the address; connects with the first Send. An answer is waited for so long, a connection at most ten
    /// seconds of it.
    explicit HttpClient(std::string address, long answer_seconds = 30);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Delivers the text as the body of a POST. -1 when it could not be delivered, 0 otherwise.
    int Send(const std::string& text);
    /// Stores the body of the answer to the last Send. -1 when no whole answer came in time or it was longer
    /// than 1 MiB, 0 otherwise.
    int Recv(std::string& text);

  private:
    struct Connection;
    std::unique_ptr<Connection> connection;
};

}  // namespace Json::Rpc
