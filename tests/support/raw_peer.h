#pragma once
// A peer that sends bytes as they stand to whoever asks over HTTP, right or wrong: for the answers that no HTTP server
// would give.

#include <functional>
#include <string>
#include <thread>

struct RawRequest {
    std::string head;  ///< request line and header lines, with their line ends
    std::string body;
};

class RawPeer {
  public:
    /// Gets a request and returns all that is sent before the connection is closed; nothing at all is an answer too.
    /// Called in the peer's own thread.
    using Handler = std::function<std::string(const RawRequest&)>;

    /// Listens on any free port of 127.0.0.1, one connection at a time.
    explicit RawPeer(Handler handler);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    int port() const { return port_; }

  private:
    void serve();
    void converse(int connection);
    bool wait_readable(int fd, int milliseconds) const;

    Handler handler_;
    int socket_;
    int stop_;  // eventfd, readable once the peer is to stop
    int port_;
    std::thread thread_;
};
