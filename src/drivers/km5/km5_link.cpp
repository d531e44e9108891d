// One request to the meter: address, exchange, check, retries.

#include <algorithm>

#include "core/text.h"
#include "drivers/km5/km5.h"

namespace {

constexpr int MaxErrorAnswers = 10;
constexpr int MaxErrors = 20;

}  // namespace

int KM5::get_netaddr_from_config() {
    if (tc_sernum == 0) {
        log_line(debug_log.get(), "tc_tmp_sernum = 0, ERROR.");
        return -1;
    }
    int_to_bcd(netaddr.data(), tc_sernum, netaddr.size());
    if (km56i_mode) {
        log_line(debug_log.get(), "Its KM5-6i, select subsystem");
        netaddr[3] = static_cast<std::uint8_t>((netaddr[3] & 0xF0) | subsystem);
    }
    log_line(debug_log.get(), "Subsystem = ", subsystem,
             ", netaddr = ", format_cut(12, "%X_%X_%X_%X", netaddr[0], netaddr[1], netaddr[2], netaddr[3]));
    return 1;
}

void KM5::send_request(KM5_request& req) {
    ExchangeAnswer answer;
    send_receive(req.send_buf, answer, AnswerBytes, use_pause_flag);
    const int length = static_cast<int>(answer.size());
    log_line(debug_log.get(), "Send request, cmd: ", int{req.cmd}, ", ", length, " bytes received.");
    std::copy(answer.begin(), answer.end(), req.recv_buf.begin());
    req.RcvLng = static_cast<std::uint8_t>(length);
    log_line(debug_log.get(), "Send dump:");
    debug_log->dump_packet(req.send_buf);
    log_line(debug_log.get(), "Recv dump:");
    debug_log->dump_packet(answer);
}

bool KM5::check_control_sum(const KM5_request& req) {
    log_line(debug_log.get(), "Checking control sum...");
    const AnswerFault fault = find_fault(req);
    if (fault == AnswerFault::None) {
        log_line(debug_log.get(), "Checking control sum : success");
        return true;
    }
    log_line(debug_log.get(), fault == AnswerFault::CS1   ? "KM5 CS1 != my CS1"
                              : fault == AnswerFault::CS2 ? "KM5 CS2 != my CS2"
                                                          : "KM5 CMD != my CMD");
    log_line(debug_log.get(), "Checking control sum : failure");
    return false;
}

bool KM5::request(KM5_request& req, bool publish) {
    req.netaddr = netaddr;
    build_frame(req);
    sync_send_buffer(req);
    int errors = 0;
    send_request(req);

    // A meter that answers with an error code is a meter on the line.
    while (isError(req)) {
        log_line(debug_log.get(), "isError, ErrorCount = ", ++errors);
        if (errors > MaxErrorAnswers) {
            log_line(debug_log.get(), "Request: Failed, but Connected = true");
            if (publish) setConnected(true, uuid);
            return false;
        }
        send_request(req);
    }

    while (!check_control_sum(req) || req.RcvLng == 0) {
        log_line(debug_log.get(), "Request: Failure\nError, ErrorCount = ", ++errors);
        if (errors > MaxErrors) {
            log_line(debug_log.get(), "ErrorCount > MAX, Connected = false");
            log_line(debug_log.get(), "Requst: Failed");
            if (publish) setConnected(false, uuid);
            return false;
        }
        send_request(req);
    }
    log_line(debug_log.get(), "Request: Success");
    if (publish) setConnected(true, uuid);
    return true;
}

bool KM5::do_request(KM5_pack& pack) {
    log_line(debug_log.get(), "Start ", pack.count(), " requests.");
    for (KM5_request& req : pack.requests) {
        req.netaddr = netaddr;
        build_frame(req);
        sync_send_buffer(req);
    }

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
            log_line(debug_log.get(), "Request #", index, ", cmd: ", int{req.cmd}, ", RcvLng: ", int{req.RcvLng},
                     sums_hold ? ", error: rcv_lng == 0" : ", error: CheckSum", " : Failure.");
            send_request(req);
            if (++errors <= MaxErrors) continue;
            if (req.RcvLng != 0 && isError(req)) {
                req.cmd = req.recv_buf[4];
            } else {
                log_line(debug_log.get(), "Request #", index, ", cmd: ", int{req.cmd}, " : BRAKE. ");
                result = false;
            }
            break;
        }
        setConnected(result, uuid);
        Connected = result;
        if (result && errors <= MaxErrors) {
            log_line(debug_log.get(), "Request #", index, ", cmd: ", int{req.cmd}, " : Success.");
        }
        errors = 0;
    }
    setConnected(result, uuid);
    log_line(debug_log.get(), result ? "Do_request: return true" : "Do_request: return false");
    return result;
}

bool KM5::get_netaddr() {
    log_line(debug_log.get(), "Start get netaddr(auto recieve serial number)");
    KM5_request req;
    init_request(req);
    req.cmd = CmdIdentity;
    if (!request(req, true)) return false;
    answer_bytes(2, 5, netaddr.data(), req);
    log_line(debug_log.get(), "Your network address: ",
             format_cut(12, "%.2X %.2X %.2X %.2X", netaddr[0], netaddr[1], netaddr[2], netaddr[3]));
    return true;
}
