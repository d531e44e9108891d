#pragma once
// A Unix stream socket on which other programs of the same user say lines to this one, and hear what comes of them.

#include <poll.h>
#include <sys/types.h>

#include <functional>
#include <iosfwd>
#include <list>
#include <string>
#include <vector>

namespace sim {

class ControlSocket {
  public:
    /// Listens at `path` (mode 0600), in the place of a socket that nobody listens at any more. Throws
    /// std::system_error, also when somebody does.
    explicit ControlSocket(const std::string& path);
    /// Takes the socket away, unless another one stands there by now.
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    /// Adds what is readable when work() has something to do.
    void watch(std::vector<pollfd>& watched) const;
    /// Answers each line that has come with what `obey` makes of it. Never waits: who does not read is hung up on.
    void work(const std::function<std::string(const std::string& line)>& obey);

  private:
    struct Client {
        int fd;
        std::string heard{};
    };

    void listen();
    bool serve(Client& client, const std::function<std::string(const std::string& line)>& obey) const;

    std::string path_;
    int fd_ = -1;
    ino_t inode_ = 0;
    std::list<Client> clients_;
};

/// Says a line at the control socket `path` and passes on what is answered; whether its last line is "ok". Throws
/// std::system_error.
bool tell(const std::string& path, const std::string& line, std::ostream& answer);

}  // namespace sim
