#include "drivers/vist_modbus/vist_modbus_link.h"

#include <algorithm>
#include <string>
#include <vector>

#include "core/text.h"
#include "core/uni_log.h"
#include "driver/exchange.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace {

constexpr int AnswerMilliseconds = 600;
constexpr int LeastAnswer = 3;     // function, byte count and something
constexpr std::size_t DataAt = 2;  // of the first data byte in an answer's area
constexpr std::size_t DumpedPerLine = 16;

}  // namespace

int VistModbusLink::send_modbus_request(const ModbusLine& line, const ModbusRequest& row,
                                        std::span<std::uint8_t> answer, int system, bool range) const {
    log_line(log, "Sending req '", row.name, "'...");
    const int first = row.address[static_cast<std::size_t>(system)];
    const int second = range ? first + row.count - 1 : row.count;
    int answer_length = -1;
    int retries = 0;
    do {
        wait_for_pause_flags(line.use_pause_flag);
        std::fill(answer.begin(), answer.end(), std::uint8_t{0});
        answer_length = row.read(line.fd, answer, line.slave, first, second, AnswerMilliseconds, row.record_size);
        ++retries;
        const auto received = answer.first(static_cast<std::size_t>(std::max(answer_length, 0)));
        // The data stand in the order of the line again, and the two bytes before them, function and byte count, have
        // changed places.
        swap_words(received);
        log_line(log, "Received: ", answer_length, " bytes (", row.count * 2, " awaiting).");
        log_answer(received);
    } while (retries < VISTMaxErrors && answer_length < 0);

    log_line(log, "retries = ", retries, ", VISTMaxErrors = ", int{VISTMaxErrors});
    connected(retries < VISTMaxErrors);  // the limit wins, even if the last try worked
    return answer_length;
}

void VistModbusLink::log_answer(Bytes answer) const {
    log_line(log, "Dumping packet:");
    for (std::size_t at = 0; at < answer.size(); at += DumpedPerLine) {
        std::string line = "  ";
        for (std::size_t i = at; i < std::min(at + DumpedPerLine, answer.size()); ++i) {
            line += format_cut(32, "%d:0x%02x ", static_cast<int>(i) - static_cast<int>(DataAt), answer[i]);
        }
        log_line(log, line);
    }
    log_line(log, "Dumping packet done.");
}

bool VistModbusLink::request_batch(const ModbusLine& line, std::span<const ModbusRequest> rows, int system, bool range,
                                   const Process& process) const {
    std::vector<Answer> answers(rows.size());
    bool all_came = true;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (send_modbus_request(line, rows[i], answers[i], system, range) >= LeastAnswer) continue;
        log_line(log, "FAIL on ", static_cast<int>(i), " request. Over. fd = ", line.fd);
        all_came = false;
    }
    if (!all_came) return false;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].process == ModbusProcess::None) {
            log_line(log, "SKIP on ", static_cast<int>(i), " request.");
            continue;
        }
        log_line(log, "Processing '", rows[i].name, "'");
        process(rows[i], Bytes(answers[i]).subspan(DataAt));
    }
    return true;
}
