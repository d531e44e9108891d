#pragma once
// An HTTP server on the loopback interface, on libmicrohttpd, whose answers can be wrong on demand.

#include <functional>
#include <memory>
#include <string>

struct MHD_Daemon;

namespace sim {

struct HttpRequest {
    std::string head;  ///< request line and header lines, with their line ends
    std::string body;
};

struct HttpReply {
    int status = 200;
    std::string location{};  ///< of a redirection
    std::string body{};
    bool hang_up = false;  ///< the connection is closed without an answer
    bool cut = false;      ///< the connection is closed in the middle of the body
};

class HttpListener {
  public:
    /// Called in the listener's own thread, one request at a time.
    using Handler = std::function<HttpReply(const HttpRequest&)>;

    /// Listens on 127.0.0.1; port 0 takes any free one. Throws std::system_error when the port is taken.
    HttpListener(int port, Handler handler);
    /// Waits until the request in work, if any, has been answered.
    ~HttpListener();
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;

    int port() const;
    HttpReply handle(const HttpRequest& request) const { return handler_(request); }

  private:
    Handler handler_;
    MHD_Daemon* daemon_;
};

}  // namespace sim
