#include "drivers/vist/vist_functions.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "config/publisher.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int VISTMaxErrors = 4;
constexpr int AnswerBytes = 299;
constexpr std::size_t CommandBytes = 300;
constexpr int BufferBytes = 300;
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

VISTFunctions::VISTFunctions(HCD_VIST* driver) : pVISTdrv(driver) {
    std::printf("VISTFunctions, pVISTdrv pointer = %p\n", static_cast<void*>(pVISTdrv));
    tempbuff = driver->buffers.CreateBuffer("@tempbuff", BufferBytes);
    intbuff = driver->buffers.CreateBuffer("@intbuff", BufferBytes);
    mombuff = driver->buffers.CreateBuffer("@mombuff", BufferBytes);
    archheader = driver->buffers.CreateBuffer("@archheader", BufferBytes);
}

bool VISTFunctions::send_request(const std::string& command, ExchangeAnswer& answer) {
    UniLog* const log = pVISTdrv->log.get();
    log_line(log, "send_request::send ", static_cast<int>(command.size()), " bytes.");
    pVISTdrv->send_receive_locked({reinterpret_cast<const std::uint8_t*>(command.data()), command.size()}, answer,
                                  AnswerBytes);
    if (command == EndCommand) {
        log_line(log, "send_request::Request is END => return false;");
        return false;
    }
    log_line(log, "send_request::Received ", static_cast<int>(answer.size()), " bytes.");
    log->dump_packet(answer);
    return !answer.empty();
}

std::string VISTFunctions::build_command(const VISTRequest& row, int rec_count) {
    UniLog* const log = pVISTdrv->log.get();
    log_line(log, "Selected subsytem = ", pVISTdrv->selected_subsystem);
    log_line(log, "Param index = ", row.param_index);
    log_line(log, "Request format = ", row.request_format);
    int number = 0;
    switch (row.param_index) {
        case NETADDR:
            number = vdn_num.device_num;
            log_line(log, "NETADDR: vdn_num.device_num = ", number);
            break;
        case VDNUMBER:
            number = vdn_num.virtdev_num;
            log_line(log, "VDNUMBER: vdn_num.virtdev_num  = ", number);
            break;
        case SETPOS:
            number = rec_count;
            log_line(log, "SETPOS: rec_count = ", number);
            break;
        default:
            return row.request_format;
    }
    std::array<char, CommandBytes> command{};
    std::snprintf(command.data(), command.size(), row.request_format, number);
    return command.data();
}

bool VISTFunctions::do_request(std::span<const VISTRequest> rows, int rec_count) {
    UniLog* const log = pVISTdrv->log.get();
    log_line(log, "Starting requests...");
    pVISTdrv->set_busy(1);
    log_line(log, "pVISTdrv->virtdev_cnt : ", pVISTdrv->virtdev_cnt);
    log_line(log, "pVISTdrv pointer = ", format_cut(32, "%p", static_cast<void*>(pVISTdrv)));
    log_line(log, "virtdev_cnt = ", pVISTdrv->virtdev_cnt);

    int ErrCnt = 0;
    std::size_t reached = 0;  // rows that have succeeded; walking them again after a restart clears no error
    bool fDone = false;
    for (std::size_t i = 0; i < rows.size();) {
        log_line(log, "Start request cycle..");
        log_line(log, "ErrCnt = ", ErrCnt);
        log_line(log, "VISTMaxErrors = ", VISTMaxErrors);
        if (ErrCnt > VISTMaxErrors) {
            log_line(log, "Request error limit hit!");
            fDone = false;
            log_line(log, "setConnected(false)");
            setConnected(false, pVISTdrv->get_uuid());
            break;
        }
        vdn_num.virtdev_num = pVISTdrv->selected_subsystem;
        if (rec_count == 0) return false;

        const VISTRequest& row = rows[i];
        const std::string command = build_command(row, rec_count);
        pVISTdrv->stat_tx_bytes += static_cast<std::uint32_t>(command.size());
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
            ++pVISTdrv->stat_send_errors;
            continue;
        }
        pVISTdrv->stat_rx_bytes += static_cast<std::uint32_t>(answer.size());
        switch (row.is_binary ? take_binary(row, i, answer, ErrCnt) : take_text(row, i, answer, ErrCnt)) {
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
            setConnected(true, pVISTdrv->get_uuid());
        }
    }
    pVISTdrv->set_busy(0);
    log_line(log, fDone ? "Send batch over, OK" : "Send batch over, FAIL");
    return fDone;
}

VISTFunctions::Outcome VISTFunctions::take_text(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer,
                                                int& ErrCnt) {
    UniLog* const log = pVISTdrv->log.get();
    const std::string text(answer.begin(), answer.end());
    log_line(log, "Response = ", text);
    const TextFrame frame = scan_frame(text, row.response_format);
    const bool bad = is_error_word(frame.word);
    if (bad) log_line(log, "Response error.");
    log_line(log, "TC : ", frame.word);
    if (frame.parsed == -1 || frame.parsed < row.min_fields || !text.ends_with("}>") || bad) {
        log_line(log, "Packet ", static_cast<unsigned long>(index), " in ", row.name, " FAIL [error format, text].");
        ++ErrCnt;
        pVISTdrv->stat_text_error_bytes += static_cast<std::uint32_t>(answer.size());
        return Outcome::Stay;
    }
    if (row.value_index < 0 || row.value_index >= frame.parsed) return Outcome::Advance;
    return take_value(row, frame.second, frame.third, answer.size(), ErrCnt);
}

VISTFunctions::Outcome VISTFunctions::take_value(const VISTRequest& row, int second, int third, std::size_t length,
                                                 int& ErrCnt) {
    UniLog* const log = pVISTdrv->log.get();
    if (row.ret_kind == RET_INT) {
        log_line(log, "RET_INT");
        ret_int = third;
    }
    if (row.ret_kind == RET_NEW) log_line(log, "RET_NEW");
    if (row.ret_kind != RET_VDN) return Outcome::Advance;
    log_line(log, "RET_VDN");
    ret_vdn = second;
    if (ret_vdn == vdn_num.virtdev_num) return Outcome::Advance;
    log_line(log, "VDN cmd failed, compare error:", vdn_num.virtdev_num, " expected, but found ", ret_vdn);
    ++ErrCnt;
    pVISTdrv->stat_vdn_error_bytes += static_cast<std::uint32_t>(length);
    return Outcome::WrongVdn;
}

void VISTFunctions::log_packet(const ExchangeAnswer& answer) {
    UniLog* const log = pVISTdrv->log.get();
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
                                                  const ExchangeAnswer& answer, int& ErrCnt) {
    // Nothing is charged for a scrap of an answer, however often it comes; the leniency is deliberate.
    if (current_buffer == -1 || answer.size() < ShortestPacket) return Outcome::Stay;
    UniLog* const log = pVISTdrv->log.get();
    const PacketBuffer buffer = pVISTdrv->buffers.GetBuffer(current_buffer);
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
    do_request(reqReturn);  // takes the meter out of its binary reply
    ++ErrCnt;
    pVISTdrv->stat_binary_error_bytes += static_cast<std::uint32_t>(answer.size());
    constexpr std::uint8_t TextHead[] = {'H', 'L', '0'};
    if (!std::equal(std::begin(TextHead), std::end(TextHead), answer.begin())) return Outcome::Stay;
    log_line(log, "Seems to be text format instead of binary. FAIL anyway. Will restart all.");
    return Outcome::Restart;
}
