// The port, one request to the meter and its tries.

#include <algorithm>

#include "core/gateway.h"
#include "driver/line_settings.h"
#include "drivers/sa94/sa94.h"

void SA94::open_tty() {
    log_line(log_general.get(), "Open port: ", port_name, ", bauds: ", tc_baud, ", parity: ", tc_parity);
    tty_fd = gateway().open_port(port_name.c_str());
    if (tty_fd < 1) {
        log_line(log_general.get(), "Opening port - FAILURE");
        return;
    }
    log_line(log_general.get(), "Open port - Success");
    gateway().set_line(tty_fd, line_termios(LineOfSa94, tc_baud, tc_parity));
}

void SA94::exchangeOnce(SA94Request& request) {
    ExchangeAnswer answer;
    send_receive(request.sent(), answer, SA94Request::ResponseBytes, false);
    std::copy(answer.begin(), answer.end(), request.response.begin());
    request.recv_length = static_cast<std::uint32_t>(answer.size());
}

bool SA94::Transact(SA94Request& request, int attempts) {
    UniLog* const log = log_debug.get();
    bool ok = true;
    for (int attempt = 0; attempt < attempts;) {
        // No caller asks for another number than 24, so the reconnection never happens. With any other number it would
        // reconnect within itself for as long as the line is silent.
        if (attempt == attempts - 1 && attempts != Attempts) {
            SA94Request reconnect = new_request();
            reconnect.setConnect();
            Transact(reconnect, 2);
        }
        log_line(log, "Send ", request.send_length, " bytes: ");
        log->dump_packet(request.sent());
        exchangeOnce(request);
        ++attempt;
        log_line(log, "Recv ", request.recv_length, " bytes: ");
        log->dump_packet(request.received());
        if (!request.must_answer) {
            log_line(log, "Response must not be, return.");
            return true;
        }
        log_line(log, "Must be response");
        ok = request.recv_length != 0;
        if (ok) break;
    }
    setConnected(ok, uuid);
    return ok;
}

bool SA94::connect(SA94Request& request) {
    request.setConnect();
    return Transact(request, Attempts);
}

void SA94::disconnect(SA94Request& request) {
    request.setDisconnect();
    Transact(request, Attempts);
}

bool SA94::ReadArchiveRecord(SA94Request& request, int segment, std::uint32_t block) {
    const auto number = static_cast<std::uint32_t>(segment);
    if (extended) {
        request.setReadBlockExtended(number, block);
    } else {
        request.setReadBlock(number, block);
    }
    return Transact(request, Attempts);
}
