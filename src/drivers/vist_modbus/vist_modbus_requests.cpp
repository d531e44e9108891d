// One row of a table with its tries, and a whole table.

#include <algorithm>

#include "core/text.h"
#include "driver/exchange.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace {

constexpr int AnswerMilliseconds = 600;
constexpr int LeastAnswer = 3;     // function, byte count and something
constexpr std::size_t DataAt = 2;  // of the first data byte in an answer's area
constexpr std::size_t DumpedPerLine = 16;

}  // namespace

int HCD_VISTmodbus::send_modbus_request(int fd, const ModbusRequest& row, std::span<std::uint8_t> answer, int system,
                                        bool range) {
    log_line(log.get(), "Sending req '", row.name, "'...");
    slave = static_cast<int>(tc_sernum);
    request_system = system;
    const int first = row.address[static_cast<std::size_t>(system)];
    const int second = range ? first + row.count - 1 : row.count;
    int retries = 0;
    do {
        wait_for_pause_flags(use_pause_flag);
        std::fill(answer.begin(), answer.end(), std::uint8_t{0});
        answer_length = row.read(fd, answer, slave, first, second, AnswerMilliseconds);
        ++retries;
        const auto received = answer.first(static_cast<std::size_t>(std::max(answer_length, 0)));
        // The data stand in the order of the line again, and the two bytes before them, function and byte count, have
        // changed places.
        swap_words(received);
        log_line(log.get(), "Received: ", answer_length, " bytes (", row.count * 2, " awaiting).");
        log_answer(received);
    } while (retries < VISTMaxErrors && answer_length < 0);

    log_line(log.get(), "retries = ", retries, ", VISTMaxErrors = ", int{VISTMaxErrors});
    setConnected(retries < VISTMaxErrors, uuid);  // the limit wins, even if the last try worked
    return answer_length;
}

void HCD_VISTmodbus::log_answer(Bytes answer) {
    log_line(log.get(), "Dumping packet:");
    for (std::size_t at = 0; at < answer.size(); at += DumpedPerLine) {
        std::string line = "  ";
        for (std::size_t i = at; i < std::min(at + DumpedPerLine, answer.size()); ++i) {
            line += format_cut(32, "%d:0x%02x ", static_cast<int>(i) - static_cast<int>(DataAt), answer[i]);
        }
        log_line(log.get(), line);
    }
    log_line(log.get(), "Dumping packet done.");
}

bool HCD_VISTmodbus::request_batch(int fd, std::span<const ModbusRequest> rows, int system, bool range) {
    answers.resize(rows.size());
    bool all_came = true;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (send_modbus_request(fd, rows[i], answers[i], system, range) >= LeastAnswer) continue;
        log_line(log.get(), "FAIL on ", static_cast<int>(i), " request. Over. fd = ", fd);
        all_came = false;
    }
    if (!all_came) return false;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].process == nullptr) {
            log_line(log.get(), "SKIP on ", static_cast<int>(i), " request.");
            continue;
        }
        log_line(log.get(), "Processing '", rows[i].name, "'");
        (this->*rows[i].process)(Bytes(answers[i]).subspan(DataAt), rows[i]);
    }
    return true;
}
