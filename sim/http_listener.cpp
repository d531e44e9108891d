#include "http_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <microhttpd.h>

namespace sim {

namespace {

MHD_Result add_header_line(void* head, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    *static_cast<std::string*>(head) += std::string(name) + ": " + (value != nullptr ? value : "") + "\r\n";
    return MHD_YES;
}

/// The first half of a body, and then a broken connection.
struct HalfBody {
    std::string text;
};

ssize_t read_half(void* source, std::uint64_t at, char* into, std::size_t room) {
    const std::string& text = static_cast<HalfBody*>(source)->text;
    const std::size_t half = text.size() / 2;
    if (at >= half) return MHD_CONTENT_READER_END_WITH_ERROR;
    const std::size_t count = std::min(room, half - static_cast<std::size_t>(at));
    std::memcpy(into, text.data() + at, count);
    return static_cast<ssize_t>(count);
}

void free_half(void* source) {
    delete static_cast<HalfBody*>(source);
}

MHD_Result send(MHD_Connection* connection, const HttpReply& reply) {
    if (reply.hang_up) return MHD_NO;
    MHD_Response* const response =
        reply.cut
            ? MHD_create_response_from_callback(reply.body.size(), 4096, read_half, new HalfBody{reply.body}, free_half)
            : MHD_create_response_from_buffer(reply.body.size(), const_cast<char*>(reply.body.data()),
                                              MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    if (!reply.location.empty()) MHD_add_response_header(response, MHD_HTTP_HEADER_LOCATION, reply.location.c_str());
    const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(reply.status), response);
    MHD_destroy_response(response);
    return result;
}

/// Called once for the head, then for each piece of the body, then once more with nothing left.
MHD_Result converse(void* listener, MHD_Connection* connection, const char* url, const char* method,
                    const char* version, const char* piece, std::size_t* length, void** state) {
    auto* request = static_cast<HttpRequest*>(*state);
    if (request == nullptr) {
        *state = request = new HttpRequest;
        request->head = std::string(method) + " " + url + " " + version + "\r\n";
        MHD_get_connection_values(connection, MHD_HEADER_KIND, add_header_line, &request->head);
        request->head += "\r\n";
        return MHD_YES;
    }
    if (*length != 0) {
        request->body.append(piece, *length);
        *length = 0;
        return MHD_YES;
    }
    return send(connection, static_cast<const HttpListener*>(listener)->handle(*request));
}

void forget(void* /*listener*/, MHD_Connection* /*connection*/, void** state, MHD_RequestTerminationCode /*how*/) {
    delete static_cast<HttpRequest*>(*state);
    *state = nullptr;
}

}  // namespace

HttpListener::HttpListener(int port, Handler handler) : handler_(std::move(handler)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD, static_cast<std::uint16_t>(port), nullptr, nullptr,
                               converse, this, MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_NOTIFY_COMPLETED, forget,
                               nullptr, MHD_OPTION_END);
    if (daemon_ == nullptr) throw std::system_error(errno, std::generic_category(), "port " + std::to_string(port));
}

HttpListener::~HttpListener() {
    MHD_stop_daemon(daemon_);
}

int HttpListener::port() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

}  // namespace sim
