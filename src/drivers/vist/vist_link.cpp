#include "drivers/vist/vist_link.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "core/text.h"

namespace {

constexpr int VISTMaxErrors = 4;
constexpr int AnswerBytes = 299;
constexpr std::size_t CommandBytes = 300;
constexpr std::size_t ShortestPacket = 8;
constexpr std::size_t DumpRowBytes = 16;
constexpr const char* EndCommand = "END\r";

struct TextFrame {
    int parsed = -1;   ///< fields that were scanned
    int first = 0;     ///< the meter's network number
    int second = 0;    ///< the virtual device number
    int third = 0;     ///< the number of the body
    std::string word;  ///< an error word, or whatever body has the shape of one
};

bool is_error_word(const std::string& word) {
    return word == "E:CMD" || word == "E:PARAM" || word == "E:NPAR" || word == "E:PWD";
}

TextFrame scan_frame(const std::string& answer, const char* format) {
    TextFrame frame;
    std::array<char, AnswerBytes + 1> text{};  // no answer is longer, so no field of it can be
    const bool third_is_text = std::string(format).find("%s") != std::string::npos;
    frame.parsed = third_is_text ? std::sscanf(answer.c_str(), format, &frame.first, &frame.second, text.data())
                                 : std::sscanf(answer.c_str(), format, &frame.first, &frame.second, &frame.third);
    int number = 0;
    std::array<char, AnswerBytes + 1> word{};
    // cppcheck-suppress invalidscanf ; the field has room for the longest answer
    std::sscanf(answer.c_str(), "HL0[%d:%d]{%[A-Z:A-Z]}>", &number, &number, word.data());
    frame.word = word.data();
    return frame;
}

}  // namespace

VISTFunctions::VISTFunctions(const void* driver, UniLog* log_of_driver, VISTLine line_of_driver)
    : pVISTdrv(driver), log(log_of_driver), line(std::move(line_of_driver)) {
    std::printf("VISTFunctions, pVISTdrv pointer = %p\n", pVISTdrv);
}

bool VISTFunctions::send_request(const std::string& command, ExchangeAnswer& answer) {
    log_line(log, "send_request::send ", static_cast<int>(command.size()), " bytes.");
    line.exchange({reinterpret_cast<const std::uint8_t*>(command.data()), command.size()}, answer, AnswerBytes);
    if (command == EndCommand) {
        log_line(log, "send_request::Request is END => return false;");
        return false;
    }
    log_line(log, "send_request::Received ", static_cast<int>(answer.size()), " bytes.");
    log->dump_packet(answer);
    return !answer.empty();
}

std::string VISTFunctions::build_command(const VISTRequest& row, const VISTParameters& parameters) {
    log_line(log, "Selected subsytem = ", parameters.virtdev_num);
    log_line(log, "Param index = ", row.param_index);
    log_line(log, "Request format = ", row.request_format);
    int number = 0;
    switch (row.param_index) {
        case NETADDR:
            number = parameters.device_num;
            log_line(log, "NETADDR: vdn_num.device_num = ", number);
            break;
        case VDNUMBER:
            number = parameters.virtdev_num;
            log_line(log, "VDNUMBER: vdn_num.virtdev_num  = ", number);
            break;
        case SETPOS:
            number = parameters.rec_count;
            log_line(log, "SETPOS: rec_count = ", number);
            break;
        default:
            return row.request_format;
    }
    std::array<char, CommandBytes> command{};
    std::snprintf(command.data(), command.size(), row.request_format, number);
    return command.data();
}

VISTReply VISTFunctions::do_request(std::span<const VISTRequest> rows, const VISTParameters& parameters) {
    log_line(log, "Starting requests...");
    line.set_busy(1);
    log_line(log, "pVISTdrv->virtdev_cnt : ", parameters.virtdev_cnt);
    log_line(log, "pVISTdrv pointer = ", format_cut(32, "%p", pVISTdrv));
    log_line(log, "virtdev_cnt = ", parameters.virtdev_cnt);

    Conversation talk{.parameters = parameters, .reply = {}};
    int& ErrCnt = talk.ErrCnt;
    bool& fDone = talk.reply.done;
    std::size_t reached = 0;  // rows that have succeeded; walking them again after a restart clears no error
    for (std::size_t i = 0; i < rows.size();) {
        log_line(log, "Start request cycle..");
        log_line(log, "ErrCnt = ", ErrCnt);
        log_line(log, "VISTMaxErrors = ", VISTMaxErrors);
        if (ErrCnt > VISTMaxErrors) {
            log_line(log, "Request error limit hit!");
            fDone = false;
            log_line(log, "setConnected(false)");
            line.set_connected(false);
            break;
        }
        if (parameters.rec_count == 0) return {};

        const VISTRequest& row = rows[i];
        const std::string command = build_command(row, parameters);
        counted.stat_tx_bytes += static_cast<std::uint32_t>(command.size());
        const bool is_end = command == EndCommand;
        if (is_end) log_line(log, "Request is \"END\"");
        log_line(log, "Requesting: ", command);
        ExchangeAnswer answer;
        const bool answered = send_request(command, answer);
        if (is_end) {
            log_line(log, "Request is \"END\" => fDone = true");
            ++i;
            fDone = true;
            continue;
        }
        if (!answered) {
            log_line(log, "Packet ", static_cast<unsigned long>(i), " in ", row.name, " FAIL [send request].");
            fDone = false;
            ++ErrCnt;
            ++counted.stat_send_errors;
            continue;
        }
        counted.stat_rx_bytes += static_cast<std::uint32_t>(answer.size());
        switch (row.is_binary ? take_binary(row, i, answer, talk) : take_text(row, i, answer, talk)) {
            case Outcome::WrongVdn:
                continue;
            case Outcome::Stay:
                break;
            case Outcome::Restart:
                i = 0;
                break;
            case Outcome::Advance:
                if (i >= reached) ErrCnt = 0;
                reached = std::max(reached, ++i);
                fDone = true;
                break;
        }
        // Also after a failed row, once an earlier row of the conversation has succeeded.
        if (fDone) {
            log_line(log, "setConnected(true)");
            line.set_connected(true);
        }
    }
    line.set_busy(0);
    log_line(log, fDone ? "Send batch over, OK" : "Send batch over, FAIL");
    return talk.reply;
}

VISTFunctions::Outcome VISTFunctions::take_text(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer,
                                                Conversation& talk) {
    const std::string text(answer.begin(), answer.end());
    log_line(log, "Response = ", text);
    const TextFrame frame = scan_frame(text, row.response_format);
    const bool bad = is_error_word(frame.word);
    if (bad) log_line(log, "Response error.");
    log_line(log, "TC : ", frame.word);
    if (frame.parsed == -1 || frame.parsed < row.min_fields || !text.ends_with("}>") || bad) {
        log_line(log, "Packet ", static_cast<unsigned long>(index), " in ", row.name, " FAIL [error format, text].");
        ++talk.ErrCnt;
        counted.stat_text_error_bytes += static_cast<std::uint32_t>(answer.size());
        return Outcome::Stay;
    }
    if (row.value_index < 0 || row.value_index >= frame.parsed) return Outcome::Advance;
    if (row.ret_kind == RET_INT) {
        log_line(log, "RET_INT");
        talk.reply.ret_int = frame.third;
    }
    if (row.ret_kind == RET_NEW) log_line(log, "RET_NEW");
    if (row.ret_kind != RET_VDN) return Outcome::Advance;
    log_line(log, "RET_VDN");
    talk.reply.ret_vdn = frame.second;
    const int wanted = talk.parameters.virtdev_num;
    if (frame.second == wanted) return Outcome::Advance;
    log_line(log, "VDN cmd failed, compare error:", wanted, " expected, but found ", frame.second);
    ++talk.ErrCnt;
    counted.stat_vdn_error_bytes += static_cast<std::uint32_t>(answer.size());
    return Outcome::WrongVdn;
}

void VISTFunctions::log_packet(const ExchangeAnswer& answer) {
    log_line(log, "Dumping packet:");
    for (std::size_t at = 0; at < answer.size(); at += DumpRowBytes) {
        std::string row = "  ";
        for (std::size_t i = at; i < std::min(at + DumpRowBytes, answer.size()); ++i) {
            row += format_cut(8, "0x%02x  ", answer[i]);
        }
        log_line(log, row);
    }
    log_line(log, "Dumping packet done.");
}

VISTFunctions::Outcome VISTFunctions::take_binary(const VISTRequest& row, std::size_t index,
                                                  const ExchangeAnswer& answer, Conversation& talk) {
    // Nothing is charged for a scrap of an answer, however often it comes; the leniency is deliberate.
    const PacketBuffer buffer = talk.parameters.current_buffer;
    if (buffer.empty() || answer.size() < ShortestPacket) return Outcome::Stay;
    log_packet(answer);
    if (is_good_packet(answer, row.packet_type)) {
        if (row.ret_kind == RET_NEW) log_line(log, "RET_NEW 2");
        std::copy_n(answer.begin(), std::min(answer.size(), buffer.size()), buffer.begin());
        return Outcome::Advance;
    }
    log_line(log, "Packet ", static_cast<unsigned long>(index), " in ", row.name,
             " FAIL [error format, binary, expected type: ", int{row.packet_type}, "]");
    log_line(log, "Packet CRC ", int{answer[PacketCrcAt]}, ", expected ",
             int{checksum(Bytes(answer).subspan(PacketTypeAt))});
    VISTParameters out_of_packet = talk.parameters;
    out_of_packet.rec_count = VISTParameters::NoPosition;
    do_request(vist::reqReturn, out_of_packet);  // takes the meter out of its binary reply
    ++talk.ErrCnt;
    counted.stat_binary_error_bytes += static_cast<std::uint32_t>(answer.size());
    constexpr std::uint8_t TextHead[] = {'H', 'L', '0'};
    if (!std::equal(std::begin(TextHead), std::end(TextHead), answer.begin())) return Outcome::Stay;
    log_line(log, "Seems to be text format instead of binary. FAIL anyway. Will restart all.");
    return Outcome::Restart;
}
