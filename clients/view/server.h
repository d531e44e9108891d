#pragma once
// The loop: connections, what they ask, files that change, signals. One thread; what takes long is done beside it.

#include <sys/socket.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "contract/live.h"
#include "view/api.h"
#include "view/ends.h"
#include "view/gate.h"
#include "view/guests.h"
#include "view/look.h"
#include "view/streams.h"
#include "view/worker.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace view {

struct Exchange;

class Server {
  public:
    /// Listens from here on. Throws std::system_error when it cannot. `gate` outlives this.
    Server(const sockaddr_storage& address, Gate& gate);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const;
    /// Serves until the descriptor is readable.
    void run(int end);

    // For libmicrohttpd.
    void connected(MHD_Connection* connection, void** guest);
    void disconnected(void* guest);
    /// False: the connection is to be closed.
    bool handle(Exchange& exchange, MHD_Connection* connection, const char* method, std::size_t* upload);
    void completed(Exchange* exchange);

  private:
    /// The refusal of what is no request of ours.
    std::optional<Answer> look_at_request(Exchange& exchange, const char* method) const;
    void pass_gate(Exchange& exchange);
    void route(Exchange& exchange);
    bool do_beside(Exchange& exchange, std::function<void()> job);
    void suspend(Exchange& exchange);
    void resume(Exchange& exchange);
    bool send(Exchange& exchange, Answer answer);
    bool open_stream(Exchange& exchange);

    void tell_news();
    void looked(bool is_other);
    /// Does what is due. Milliseconds until the next thing is, -1: never.
    int keep_time();

    Gate& gate;
    Guests guests;
    Streams streams;
    Counts counts;
    contract::Live live;
    Mailbox mailbox;
    Worker reader;  // of archives, and of passwords
    Worker looker;  // at the status
    Look look;
    Api api;
    Ends daemons;  // of the last look, while streams are open
    MHD_Daemon* daemon = nullptr;
    std::set<Exchange*> suspended;
    std::vector<Exchange*> at_gate;  // those of them that wait for what is found out for another one

    // When streams are open, milliseconds of a clock that nobody sets; -1: not awaited.
    std::int64_t files_at = -1;  // to take in what has changed: a driver writes many files at once
    std::int64_t look_at = -1;   // to look at the status
    std::int64_t hello_at = -1;  // to tell the streams that one is there
};

}  // namespace view
