#include "drivers/sa94/sa94_link.h"

#include <algorithm>
#include <utility>

SA94Link::SA94Link(Exchange one_exchange, Connected connected, UniLog& line_log)
    : exchange(std::move(one_exchange)), set_connected(std::move(connected)), log(line_log) {}

void SA94Link::exchangeOnce(SA94Request& request) const {
    ExchangeAnswer answer;
    exchange(request.sent(), answer);
    std::copy(answer.begin(), answer.end(), request.response.begin());
    request.recv_length = static_cast<std::uint32_t>(answer.size());
}

bool SA94Link::Transact(SA94Request& request, int attempts) const {
    bool ok = true;
    for (int attempt = 0; attempt < attempts;) {
        // No caller asks for another number than 24, so the reconnection never happens. With any other number it would
        // reconnect within itself for as long as the line is silent.
        if (attempt == attempts - 1 && attempts != Attempts) {
            SA94Request reconnect(request.address);
            reconnect.setConnect();
            Transact(reconnect, 2);
        }
        log_line(&log, "Send ", request.send_length, " bytes: ");
        log.dump_packet(request.sent());
        exchangeOnce(request);
        ++attempt;
        log_line(&log, "Recv ", request.recv_length, " bytes: ");
        log.dump_packet(request.received());
        if (!request.must_answer) {
            log_line(&log, "Response must not be, return.");
            return true;
        }
        log_line(&log, "Must be response");
        ok = request.recv_length != 0;
        if (ok) break;
    }
    set_connected(ok);
    return ok;
}

bool SA94Link::connect(SA94Request& request) const {
    request.setConnect();
    return Transact(request);
}

void SA94Link::disconnect(SA94Request& request) const {
    request.setDisconnect();
    Transact(request);
}

bool SA94Link::ReadArchiveRecord(SA94Request& request, bool extended, int segment, std::uint32_t block) const {
    const auto number = static_cast<std::uint32_t>(segment);
    if (extended) {
        request.setReadBlockExtended(number, block);
    } else {
        request.setReadBlock(number, block);
    }
    return Transact(request);
}
