#include "contract/tries.h"

#include <algorithm>
#include <charconv>

namespace contract {

namespace {

/// The number behind the last one of a word; nothing without it.
std::optional<long> number_behind(std::string_view text, std::string_view word) {
    const std::size_t at = text.rfind(word);
    if (at == std::string_view::npos) return std::nullopt;
    text.remove_prefix(at + word.size());
    long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} ? std::optional(number) : std::nullopt;
}

constexpr std::string_view InsideLines[] = {
    // of several families
    " 0x", "Dumping packet", "  0x",
    // KM5
    "Send dump:", "Recv dump:", "Checking control sum", "KM5 CS1 !=", "KM5 CS2 !=", "KM5 CMD !=", "Request: Failure",
    "Error, ErrorCount = ", "isError, ErrorCount = ", "Request #",
    // SA-94
    "Recv ", "Must be response", "Response must not be",
    // VIST
    "send_request::", "Packet ", "Response = ", "Response error.", "TC : ", "Start request cycle..",
    "ErrCnt = ", "VISTMaxErrors = ", "Selected subsytem = ", "Param index = ", "Request format = ", "NETADDR: ",
    "VDNUMBER: ", "SETPOS: ", "VDN cmd failed", "setConnected(true)", "RET_"};

struct Explanation {
    std::string_view beginning;
    std::string_view text;
};
constexpr Explanation Explanations[] = {
    {"KM5 CS1 != my CS1", "behind \"0 bytes received\" this is silence; only behind bytes it is a wrong sum"},
    {"ErrorCount > MAX, Connected = false",
     "of the question for the clock it changes nothing: the item Connected stays"},
    {"Get all commands and has description: success.", "the pass went through, also when nobody answered"},
    {"Archives are not OK. Stop EXTDS", "normal until the first archives have been read"},
    {"Actual Archives = FALSE", "normal until the first archives have been read"},
    {"Archive retriving FAILED!", "the usual end of a walk through the archive: there is no next record"},
    {"Record's timestamp less that coming record's timestamp",
     "the next record is more than an hour newer: there is a hole"},
    {"Try to get virtual device count for TC VIST FAIL", "the software version was asked for, not the count"},
    {"Try to get software version FAIL", "the count of virtual devices was asked for, not the version"},
    {"Current header timestamp is exists", "no new hour yet"},
    {"Flush archive header: failure", "no new hour yet"},
    {"KM5::is_all_archives_ok, fResult = true", "before the first pass nothing has been compared yet"},
};

}  // namespace

TryReader::Part TryReader::begin(std::string_view text) {
    *this = TryReader();
    open = true;
    received = number_behind(text, text.starts_with("Send request, cmd: ") ? ", " : "Received: ");
    return Part::Begin;
}

TryReader::Part TryReader::take(std::string_view text) {
    const bool is_km5 = text.starts_with("Send request, cmd: ");
    const bool is_modbus = text.starts_with("Received: ") && text.find(" bytes (") != std::string_view::npos;
    const bool is_vist = text.starts_with("Requesting: ");
    const bool is_sa94 = text.starts_with("Send ") && text.ends_with(" bytes: ");
    if (is_km5 || is_modbus || is_vist || is_sa94) {
        begin(text);
        may_be_unframed = is_modbus || is_sa94;
        if (is_sa94 || is_vist) received.reset();
        return Part::Begin;
    }
    const bool is_inside = text.empty() || std::ranges::any_of(InsideLines, [text](std::string_view beginning) {
                               return text.starts_with(beginning);
                           });
    if (!open || !is_inside) {
        open = false;
        return Part::Outside;
    }
    if (text.starts_with("Recv ") && text.ends_with(" bytes: ")) received = number_behind(text, "Recv ");
    if (text.starts_with("send_request::Received ")) received = number_behind(text, "Received ");
    if (text.starts_with("Response must not be") || text.starts_with("send_request::Request is END")) {
        wants_answer = false;
    }
    if (text.find(": failure") != std::string_view::npos || text.find("FAIL [error format") != std::string_view::npos ||
        text.starts_with("VDN cmd failed")) {
        failed = true;
    }
    if (text.starts_with("Response error.") || text.starts_with("isError, ")) refused = true;
    if (text.starts_with("Checking control sum : success") || text.starts_with("setConnected(true)")) good = true;
    return Part::Inside;
}

std::optional<Heard> TryReader::heard() const {
    if (!wants_answer || !received) return std::nullopt;
    if (*received <= 0) return Heard::Nothing;
    if (refused) return Heard::Answer;
    if (failed) return Heard::NoAnswer;
    if (good || may_be_unframed) return Heard::Answer;
    // Of a scrap a VIST's driver says no more.
    constexpr long ShortestPacket = 8;
    return *received < ShortestPacket ? std::optional(Heard::NoAnswer) : std::nullopt;
}

Silence silence_at_end(const Log& log) {
    Silence silence;
    TryReader reader;
    std::int64_t begun = 0;
    std::optional<Heard> heard;
    const auto count = [&] {
        if (!heard) return;
        if (*heard == Heard::Answer) {
            silence = {.tries = 0, .with_bytes = 0, .since = 0, .until = 0, .last_answer = begun};
            return;
        }
        if (silence.tries == 0) silence.since = begun;
        ++silence.tries;
        silence.with_bytes += *heard == Heard::NoAnswer ? 1 : 0;
        silence.until = begun;
    };
    for (const LogLine& line : log.lines()) {
        const TryReader::Part part = reader.take(line.text);
        if (part == TryReader::Part::Inside) {
            heard = reader.heard();
            continue;
        }
        count();
        heard = part == TryReader::Part::Begin ? reader.heard() : std::nullopt;
        begun = line.time();
    }
    count();
    return silence;
}

std::string_view explanation_of(std::string_view text) {
    for (const Explanation& row : Explanations) {
        if (text.starts_with(row.beginning)) return row.text;
    }
    return {};
}

}  // namespace contract
