#include "view/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <system_error>
#include <utility>

#include "core/gateway.h"
#include "view/http.h"

namespace view {

/// One request and its answer.
struct Exchange {
    enum class Step { New, AtGate, Inside };

    std::string target;
    Step step = Step::New;
    MHD_Connection* connection = nullptr;
    Guest* guest = nullptr;
    std::string authorization;
    Request request;
    bool is_head = false;
    bool waited = false;          // for the status
    std::optional<Answer> ready;  // to be sent
    Streams::Stream* stream = nullptr;
};

namespace {

constexpr unsigned RequestBytes = 16 * 1024;  // for the headers of a request and of its answer
constexpr unsigned StalledSeconds = 60;
constexpr std::size_t MostJobs = 64;
constexpr std::int64_t Burst = 200;            // milliseconds in which a driver writes the files of a pass
constexpr std::int64_t BetweenLooks = 10'000;  // the same between two looks at the status while files change
constexpr std::int64_t BetweenHellos = 25'000;
constexpr std::int64_t LongestUnseen = 60'000;  // without a look, although nothing has changed: values grow old

std::int64_t steady_milliseconds() {
    return gateway().steady_microseconds() / 1000;
}

std::string address_of(const sockaddr* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address->sa_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text.data(), text.size());
    } else if (address->sa_family == AF_INET6) {
        ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text.data(), text.size());
    }
    return text.data();
}

std::string header(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

void* begin_exchange(void* /*server*/, const char* target, MHD_Connection* /*connection*/) {
    auto* const exchange = new Exchange;
    exchange->target = target;
    return exchange;
}

MHD_Result handle_request(void* server, MHD_Connection* connection, const char* /*path*/, const char* method,
                          const char* /*version*/, const char* /*upload*/, std::size_t* size, void** exchange) {
    auto& of_request = *static_cast<Exchange*>(*exchange);
    return static_cast<Server*>(server)->handle(of_request, connection, method, size) ? MHD_YES : MHD_NO;
}

void end_exchange(void* server, MHD_Connection* /*connection*/, void** exchange, MHD_RequestTerminationCode /*how*/) {
    static_cast<Server*>(server)->completed(static_cast<Exchange*>(*exchange));
    *exchange = nullptr;
}

void come_or_go(void* server, MHD_Connection* connection, void** guest, MHD_ConnectionNotificationCode what) {
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
        static_cast<Server*>(server)->connected(connection, guest);
    } else {
        static_cast<Server*>(server)->disconnected(*guest);
    }
}

}  // namespace

Server::Server(const sockaddr_storage& address, Gate& keeper)
    : gate(keeper), live({}), reader(MostJobs), looker(1), look(looker, mailbox), api(live, look) {
    look.on_look = [this](bool is_other) { looked(is_other); };
    const unsigned family = address.ss_family == AF_INET6 ? unsigned{MHD_USE_IPv6} : 0U;
    daemon = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | family, 0, nullptr, nullptr, handle_request,
                              this, MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_URI_LOG_CALLBACK, begin_exchange, this,
                              MHD_OPTION_NOTIFY_COMPLETED, end_exchange, this, MHD_OPTION_NOTIFY_CONNECTION, come_or_go,
                              this, MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(Guests::MostAccepted),
                              MHD_OPTION_CONNECTION_MEMORY_LIMIT, std::size_t{RequestBytes},
                              MHD_OPTION_CONNECTION_TIMEOUT, StalledSeconds, MHD_OPTION_END);
    if (daemon == nullptr) throw std::system_error(errno, std::generic_category());
}

Server::~Server() {
    // Nothing may be suspended at the end: what is under way is finished, what waits is let go.
    reader.stop();
    looker.stop();
    mailbox.run();
    streams.finish();
    for (Exchange* const exchange : std::exchange(suspended, {})) {
        exchange->ready = refusal(503, "the program ends");
        MHD_resume_connection(exchange->connection);
    }
    MHD_run(daemon);
    MHD_stop_daemon(daemon);
}

int Server::port() const {
    return MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

void Server::connected(MHD_Connection* connection, void** guest) {
    const sockaddr* const from = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
    const int socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    *guest = guests.come(socket, address_of(from), steady_milliseconds());
}

void Server::disconnected(void* guest) {
    guests.go(static_cast<Guest*>(guest));
}

void Server::completed(Exchange* exchange) {
    if (exchange->stream != nullptr) streams.close(exchange->stream);
    if (exchange->guest != nullptr) Guests::change(*exchange->guest, Guest::State::Silent, steady_milliseconds());
    delete exchange;
}

std::optional<Answer> Server::look_at_request(Exchange& exchange, const char* method) const {
    exchange.is_head = std::strcmp(method, "HEAD") == 0;
    if (!exchange.is_head && std::strcmp(method, "GET") != 0) {
        Answer refused = refusal(405, "only GET and HEAD");
        refused.headers.emplace_back("Allow", "GET, HEAD");
        return refused;
    }
    const std::string length = header(exchange.connection, "Content-Length");
    if ((!length.empty() && length != "0") || !header(exchange.connection, "Transfer-Encoding").empty()) {
        return refusal(413, "a question has no body");
    }
    if (!gate.asks_for_passwords() && !is_own_host(header(exchange.connection, "Host"))) {
        return refusal(421, "without a password file only an address or localhost may stand in Host");
    }
    auto request = parse_target(exchange.target);
    if (!request) return refusal(400, "no such path can be");
    exchange.request = std::move(*request);
    exchange.authorization = header(exchange.connection, "Authorization");
    return std::nullopt;
}

bool Server::handle(Exchange& exchange, MHD_Connection* connection, const char* method, std::size_t* upload) {
    if (exchange.step == Exchange::Step::New) {
        exchange.step = Exchange::Step::AtGate;
        exchange.connection = connection;
        exchange.guest = static_cast<Guest*>(
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
        Guests::change(*exchange.guest, Guest::State::Asked, steady_milliseconds());
        auto refused = look_at_request(exchange, method);
        if (!refused) return true;
        refused->headers.emplace_back("Connection", "close");
        return send(exchange, std::move(*refused));
    }
    if (*upload != 0) return false;
    if (!exchange.ready && exchange.step == Exchange::Step::AtGate) pass_gate(exchange);
    if (!exchange.ready && exchange.step == Exchange::Step::Inside) route(exchange);
    if (exchange.ready) return send(exchange, std::move(*std::exchange(exchange.ready, std::nullopt)));
    return true;
}

void Server::pass_gate(Exchange& exchange) {
    if (suspended.contains(&exchange)) return;
    const bool is_for_all = exchange.request.path == std::vector<std::string>{"healthz"};
    Gate::Decision decision;
    if (!is_for_all) decision = gate.decide(exchange.authorization, exchange.guest->address, steady_milliseconds());
    if (is_for_all || decision.enter) {
        exchange.step = Exchange::Step::Inside;
    } else if (decision.refusal) {
        exchange.ready = std::move(decision.refusal);
    } else if (decision.is_under_way) {
        at_gate.push_back(&exchange);
        suspend(exchange);
    } else {
        const auto decided = [this, &exchange](bool is_right) {
            exchange.ready =
                gate.decided(exchange.authorization, exchange.guest->address, is_right, steady_milliseconds());
            exchange.step = Exchange::Step::Inside;
            resume(exchange);
            for (Exchange* const other : std::exchange(at_gate, {})) resume(*other);
        };
        const bool is_posted = do_beside(exchange, [this, decided, find_out = std::move(decision.find_out)] {
            mailbox.post([decided, is_right = find_out()] { decided(is_right); });
        });
        if (!is_posted) gate.given_up(exchange.authorization, exchange.guest->address);
    }
}

void Server::route(Exchange& exchange) {
    if (suspended.contains(&exchange) || exchange.stream != nullptr) return;
    counts.connections = guests.count();
    counts.streams = streams.count();
    Reply reply = api.answer(exchange.request, counts, exchange.waited);
    if (auto* const answer = std::get_if<Answer>(&reply)) {
        exchange.ready = std::move(*answer);
    } else if (auto* const job = std::get_if<Job>(&reply)) {
        do_beside(exchange, [this, &exchange, job = std::move(*job)] {
            const auto made = std::make_shared<Answer>();
            try {
                *made = job();
            } catch (const std::exception& error) {  // no memory, for one
                std::fputs((std::string("heatmeter-view: no answer: ") + error.what() + '\n').c_str(), stderr);
                *made = refusal(500, "the answer could not be made");
            }
            mailbox.post([this, &exchange, made] {
                exchange.ready = std::move(*made);
                resume(exchange);
            });
        });
    } else if (std::holds_alternative<AfterStatus>(reply)) {
        exchange.waited = true;
        suspend(exchange);
        look.again([this, &exchange] { resume(exchange); });
    } else if (!open_stream(exchange)) {
        exchange.ready = refusal(503, "too many listen already");
    }
}

bool Server::do_beside(Exchange& exchange, std::function<void()> job) {
    if (!reader.post(std::move(job))) {
        exchange.ready = refusal(503, "too much is asked at once");
        exchange.ready->headers.emplace_back("Retry-After", "5");
        return false;
    }
    suspend(exchange);
    return true;
}

void Server::suspend(Exchange& exchange) {
    suspended.insert(&exchange);
    MHD_suspend_connection(exchange.connection);
}

void Server::resume(Exchange& exchange) {
    if (suspended.erase(&exchange) != 0) MHD_resume_connection(exchange.connection);
}

bool Server::send(Exchange& exchange, Answer answer) {
    const auto tag = std::ranges::find(answer.headers, "ETag", &std::pair<std::string, std::string>::first);
    if (tag != answer.headers.end() && header(exchange.connection, "If-None-Match") == tag->second) {
        answer.status = 304;
        answer.fixed_body = {};
    }
    const unsigned status = answer.status;
    MHD_Response* const response = response_of(std::move(answer), *exchange.guest);
    if (response == nullptr) return false;
    ++counts.answers[status];
    const MHD_Result queued = MHD_queue_response(exchange.connection, status, response);
    MHD_destroy_response(response);
    return queued == MHD_YES;
}

bool Server::open_stream(Exchange& exchange) {
    constexpr std::size_t Block = 4096;
    if (streams.count() == 0) {
        live.take_in();
        live.take_news();
        look_at = steady_milliseconds();
    }
    const std::string greeting = "retry: 2000\n\nevent: hello\ndata: " + Api::hello(gateway().now()) + "\n\n";
    exchange.stream = streams.open(exchange.connection, greeting);
    if (exchange.stream == nullptr) return false;
    MHD_Response* const response =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, Block, Streams::read, exchange.stream, nullptr);
    if (response == nullptr) return true;  // the connection ends by its time
    add_safety(response);
    MHD_add_response_header(response, "Content-Type", "text/event-stream");
    MHD_add_response_header(response, "Cache-Control", "no-store");
    MHD_add_response_header(response, "X-Accel-Buffering", "no");  // a proxy in front shall not keep it back
    ++counts.answers[200];
    MHD_queue_response(exchange.connection, 200, response);
    MHD_destroy_response(response);
    Guests::change(*exchange.guest, Guest::State::Listening, steady_milliseconds());
    return true;
}

void Server::tell_news() {
    const std::vector<contract::News> news = live.take_news();
    if (news.empty() || streams.count() == 0) return;
    const std::int64_t now = gateway().now();
    struct OfSystem {
        std::vector<std::string> names;
        bool has_record = false;
    };
    std::map<std::pair<std::string, int>, OfSystem> places;
    for (const contract::News& piece : news) {
        OfSystem& place = places[{piece.uuid, piece.system}];
        if (piece.what == contract::News::What::Record) {
            place.has_record = true;
        } else {
            place.names.push_back(piece.name);
        }
    }
    for (const contract::LiveMeter& meter : live.meters()) {
        for (const contract::LiveSystem& system : meter.systems) {
            const auto place = places.find({meter.meter.uuid, system.number});
            if (place == places.end()) continue;
            if (!place->second.names.empty()) {
                streams.tell("values", api.values_news(meter, system, place->second.names, now));
            }
            if (place->second.has_record) streams.tell("records", Api::records_news(meter, system, now));
        }
    }
    // Levels follow from values, a little later.
    const std::int64_t steady = steady_milliseconds();
    if (look_at < 0) look_at = std::max(steady + 1000, steady + BetweenLooks - look.age());
}

void Server::looked(bool is_other) {
    if (is_other) streams.tell("status", Api::hello(gateway().now()));
    if (streams.count() == 0) return;
    std::vector<pid_t> processes;
    for (const contract::Process& process : look.last()->here.processes) processes.push_back(process.pid);
    daemons.look_after(processes);
}

int Server::keep_time() {
    const std::int64_t now = steady_milliseconds();
    if (streams.count() == 0) {
        files_at = look_at = hello_at = -1;
        daemons.forget();
    } else if (hello_at < 0) {
        hello_at = now + BetweenHellos;
    }
    if (files_at >= 0 && files_at <= now) {
        files_at = -1;
        live.take_in();
    }
    tell_news();
    if (hello_at >= 0 && hello_at <= now) {
        hello_at = now + BetweenHellos;
        streams.tell("hello", Api::hello(gateway().now()));
        if (look.age() > LongestUnseen - BetweenHellos / 2) look_at = now;
    }
    if (look_at >= 0 && look_at <= now) {
        look_at = -1;
        look.again({});
    }
    if (streams.woke()) return 0;  // what goes on shows in no descriptor and in no time-out of the daemon
    MHD_UNSIGNED_LONG_LONG of_daemon = 0;
    std::int64_t next = guests.look_round(now);
    if (MHD_get_timeout(daemon, &of_daemon) == MHD_YES) {
        const auto end = now + static_cast<std::int64_t>(of_daemon);
        next = next < 0 ? end : std::min(next, end);
    }
    for (const std::int64_t at : {files_at, look_at, hello_at}) {
        if (at >= 0) next = next < 0 ? at : std::min(next, at);
    }
    return next < 0 ? -1 : static_cast<int>(std::max<std::int64_t>(0, next - now));
}

void Server::run(int end) {
    const int of_daemon = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    for (;;) {
        const int milliseconds = keep_time();
        const bool wants_files = streams.count() != 0 && files_at < 0;
        std::vector<pollfd> waiting;
        for (const int fd : {end, of_daemon, mailbox.descriptor(), wants_files ? live.descriptor() : -1}) {
            waiting.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        }
        for (const int fd : daemons.descriptors()) waiting.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        if (::poll(waiting.data(), waiting.size(), milliseconds) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (waiting[0].revents != 0) return;
        if (waiting[2].revents != 0) mailbox.run();
        if (waiting[3].revents != 0) files_at = steady_milliseconds() + Burst;
        if (std::any_of(waiting.begin() + 4, waiting.end(), [](const pollfd& one) { return one.revents != 0; })) {
            daemons.forget();
            look_at = steady_milliseconds();
        }
        MHD_run(daemon);
    }
}

}  // namespace view
