#include "drivers/km5/km5_link.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int MaxErrorAnswers = 10;
constexpr int MaxErrors = 20;

void make_frame(KM5_request& req, const KM5_netaddr& netaddr) {
    req.netaddr = netaddr;
    build_frame(req);
    sync_send_buffer(req);
}

}  // namespace

KM5Link::KM5Link(UniLog* log_of_line, Exchange exchange_on_line, Listener listener_of_outcome)
    : log(log_of_line), exchange(std::move(exchange_on_line)), listener(std::move(listener_of_outcome)) {}

void KM5Link::send_request(KM5_request& req) {
    ExchangeAnswer answer;
    exchange(req.send_buf, answer, AnswerBytes);
    const int length = static_cast<int>(answer.size());
    log_line(log, "Send request, cmd: ", int{req.cmd}, ", ", length, " bytes received.");
    std::copy(answer.begin(), answer.end(), req.recv_buf.begin());
    req.RcvLng = static_cast<std::uint8_t>(length);
    log_line(log, "Send dump:");
    log->dump_packet(req.send_buf);
    log_line(log, "Recv dump:");
    log->dump_packet(answer);
}

bool KM5Link::check_control_sum(const KM5_request& req) {
    log_line(log, "Checking control sum...");
    const AnswerFault fault = find_fault(req);
    if (fault == AnswerFault::None) {
        log_line(log, "Checking control sum : success");
        return true;
    }
    log_line(log, fault == AnswerFault::CS1   ? "KM5 CS1 != my CS1"
                  : fault == AnswerFault::CS2 ? "KM5 CS2 != my CS2"
                                              : "KM5 CMD != my CMD");
    log_line(log, "Checking control sum : failure");
    return false;
}

bool KM5Link::request(KM5_request& req, const KM5_netaddr& netaddr, bool publish) {
    make_frame(req, netaddr);
    int errors = 0;
    send_request(req);

    // A meter that answers with an error code is a meter on the line.
    while (isError(req)) {
        log_line(log, "isError, ErrorCount = ", ++errors);
        if (errors > MaxErrorAnswers) {
            log_line(log, "Request: Failed, but Connected = true");
            if (publish) listener(true);
            return false;
        }
        send_request(req);
    }

    while (!check_control_sum(req) || req.RcvLng == 0) {
        log_line(log, "Request: Failure\nError, ErrorCount = ", ++errors);
        if (errors > MaxErrors) {
            log_line(log, "ErrorCount > MAX, Connected = false");
            log_line(log, "Requst: Failed");
            if (publish) listener(false);
            return false;
        }
        send_request(req);
    }
    log_line(log, "Request: Success");
    if (publish) listener(true);
    return true;
}

bool KM5Link::do_request(KM5_pack& pack, const KM5_netaddr& netaddr) {
    log_line(log, "Start ", pack.count(), " requests.");
    for (KM5_request& req : pack.requests) make_frame(req, netaddr);

    bool result = true;
    int errors = 0;
    for (std::uint32_t index = 0; index < pack.count() && result; ++index) {
        KM5_request& req = pack.requests[index];
        send_request(req);
        while (true) {
            const bool sums_hold = check_control_sum(req);
            if (sums_hold && req.RcvLng != 0) break;
            if (req.RcvLng != 0 && isError(req)) {
                req.cmd = req.recv_buf[4];
                errors = 0;
                break;
            }
            log_line(log, "Request #", index, ", cmd: ", int{req.cmd}, ", RcvLng: ", int{req.RcvLng},
                     sums_hold ? ", error: rcv_lng == 0" : ", error: CheckSum", " : Failure.");
            send_request(req);
            if (++errors <= MaxErrors) continue;
            if (req.RcvLng != 0 && isError(req)) {
                req.cmd = req.recv_buf[4];
            } else {
                log_line(log, "Request #", index, ", cmd: ", int{req.cmd}, " : BRAKE. ");
                result = false;
            }
            break;
        }
        listener(result);
        Connected = result;
        if (result && errors <= MaxErrors) {
            log_line(log, "Request #", index, ", cmd: ", int{req.cmd}, " : Success.");
        }
        errors = 0;
    }
    listener(result);
    log_line(log, result ? "Do_request: return true" : "Do_request: return false");
    return result;
}
