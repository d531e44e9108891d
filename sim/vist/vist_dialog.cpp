// What a VIST meter makes of a command.

#include <algorithm>
#include <charconv>

#include "vist_meter.h"

namespace sim {

namespace {

constexpr int FirstTimedVersion = 102;

constexpr const char* UnknownCommand = "E:CMD";
constexpr const char* WrongWord = "E:PARAM";
constexpr const char* WrongCount = "E:NPAR";

bool is_text(char c) {
    return c >= ' ' && c <= '~';
}

bool can_begin(char c) {
    return (c >= 'A' && c <= 'Z') || c == '/' || c == '.';
}

// The last line of a burst, without what no command begins with; nothing when the burst does not end as a line does.
std::optional<std::string> last_line(std::span<const std::uint8_t> request) {
    std::string burst(request.begin(), request.end());
    if (burst.empty() || burst.back() != '\r') return std::nullopt;
    burst.pop_back();
    const auto rubbish_end = std::find_if_not(burst.rbegin(), burst.rend(), is_text).base();
    const auto begin = std::find_if(rubbish_end, burst.end(), can_begin);
    if (begin == burst.end()) return std::nullopt;
    return std::string(begin, burst.end());
}

std::vector<std::string_view> words_of(std::string_view line) {
    std::vector<std::string_view> words;
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        if (end > 0) words.push_back(line.substr(0, end));
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return words;
}

std::optional<long> number(std::string_view word) {
    long value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return value;
}

// One reading of something whose inner sum is wrong for a while, or for ever.
void spoil_while(VistReply& reply, std::size_t& readings) {
    if (readings == 0) return;
    if (readings != VistForever) --readings;
    vist_spoil_inner_sum(*reply.packet);
}

}  // namespace

struct VistMeter::Command {
    std::string_view name;
    std::size_t fewest;  // words behind the name
    std::size_t most;
    Reply (VistMeter::*answer)(const Words& words, std::time_t now);
};

const VistMeter::Command VistMeter::Commands[] = {
    {"CALL", 1, 1, &VistMeter::call}, {"VDN", 1, 1, &VistMeter::vdn},  {"END", 0, 0, &VistMeter::end},
    {".", 0, 0, &VistMeter::dot},     {"VER", 0, 0, &VistMeter::ver},  {"VDC", 0, 0, &VistMeter::vdc},
    {"/SYS", 2, 2, &VistMeter::sys},  {"/MON", 1, 1, &VistMeter::mon}, {"/ARC/DLD", 1, 2, &VistMeter::arc},
};

Answer VistMeter::hear(std::span<const std::uint8_t> request, std::time_t now) {
    catch_up(now);
    const auto line = last_line(request);
    if (!line) return {};
    const Words words = words_of(*line);
    if (words[0] == "CALL") {
        if (words.size() != 2 || number(words[1]) != config_.network) {
            dialog_.reset();
            return {};
        }
        open(0);
    }
    if (!dialog_) return {};
    const unsigned before = dialog_->device;
    const Reply reply = obey(words, now);
    const std::string& said = *line;
    note({.at = now, .device = dialog_ ? dialog_->device : before, .line = said}, said);
    if (!reply) return {};
    return vist_spoil(*reply, fault_script.choose(*line, *reply), config_.answer_delay);
}

VistMeter::Reply VistMeter::obey(const Words& words, std::time_t now) {
    const auto command = std::find_if(std::begin(Commands), std::end(Commands),
                                      [&](const Command& candidate) { return candidate.name == words[0]; });
    if (command == std::end(Commands)) return text(UnknownCommand);
    const std::size_t given = words.size() - 1;
    if (given < command->fewest || given > command->most) return text(WrongCount);
    return (this->*command->answer)(words, now);
}

void VistMeter::open(unsigned device) {
    dialog_ = Dialog{.device = device};
    dialog_->place = selected_memory().ring.newest();
}

unsigned VistMeter::answering_devices() const {
    const auto true_ones = static_cast<unsigned>(config_.devices.size());
    if (!config_.last_device_repeats) return true_ones;
    return std::max(true_ones, static_cast<unsigned>(std::max(config_.claimed_devices.value_or(0), 0)));
}

unsigned VistMeter::remembering_device() const {
    return std::min(dialog_->device, static_cast<unsigned>(memories_.size() - 1));
}

VistMemory& VistMeter::selected_memory() {
    return memory(remembering_device());
}

VistReply VistMeter::text(std::string body) const {
    return {.network = config_.network, .device = dialog_->device, .body = std::move(body)};
}

VistReply VistMeter::packet(std::uint8_t type, const ByteVector& body) const {
    return {.network = config_.network, .device = dialog_->device, .body = {}, .packet = vist_packet(type, body)};
}

VistReply VistMeter::name() const {
    return text("NAME=" + memory(remembering_device()).device.name);
}

// ---- dialog

VistMeter::Reply VistMeter::call(const Words& /*words*/, std::time_t /*now*/) {
    return name();
}

VistMeter::Reply VistMeter::vdn(const Words& words, std::time_t /*now*/) {
    const auto device = number(words[1]);
    if (!device || *device < 0 || *device >= static_cast<long>(answering_devices())) return text(WrongWord);
    open(static_cast<unsigned>(*device));
    return name();
}

VistMeter::Reply VistMeter::end(const Words& /*words*/, std::time_t /*now*/) {
    const VistReply farewell = text("OK");
    dialog_.reset();
    if (!config_.answers_end) return std::nullopt;
    return farewell;
}

VistMeter::Reply VistMeter::dot(const Words& /*words*/, std::time_t /*now*/) {
    return text("OK");
}

VistMeter::Reply VistMeter::ver(const Words& /*words*/, std::time_t /*now*/) {
    return text("VER=" + std::to_string(config_.version));
}

VistMeter::Reply VistMeter::vdc(const Words& /*words*/, std::time_t /*now*/) {
    const int count = config_.claimed_devices.value_or(static_cast<int>(config_.devices.size()));
    return text("VDC=" + std::to_string(count));
}

// ---- settings and present values

VistMeter::Reply VistMeter::sys(const Words& words, std::time_t /*now*/) {
    const VistDevice& device = selected_memory().device;
    if (words[1] == "SPC" && words[2] == "0") return packet(VistSpecials, vist_specials_body(config_));
    if (words[1] == "SPC" && words[2] == "1") return packet(VistDeviceSpecials, vist_device_body(writing(), device));
    if (words[1] == "CFG" && words[2] == "1") return packet(VistDeviceConfig, vist_config_body(device));
    return text(WrongWord);
}

VistMeter::Reply VistMeter::mon(const Words& words, std::time_t now) {
    const VistMemory& memory = selected_memory();
    if (words[1] == "G") {
        return packet(VistIntegrators, vist_integrators_body(writing(), memory, std::nullopt));
    }
    if (words[1] == "TG" && config_.version >= FirstTimedVersion) {
        const VistDate shown = VistWhen(clock(now)).date();
        return packet(VistTimedIntegrators, vist_integrators_body(writing(), memory, shown));
    }
    if (words[1] == "C") return packet(VistMoments, vist_moments_body(writing(), memory));
    return text(WrongWord);
}

// ---- archive

VistMeter::Reply VistMeter::arc(const Words& words, std::time_t now) {
    const std::string_view what = words[1];
    if (words.size() != (what == "SET" ? 3 : 2)) return text(WrongCount);
    if (what == "SET") return archive_set(words[2]);
    if (what == "OLD") return archive_old();
    if (what == "RC") return text("RC=" + std::to_string(header(now, remembering_device()).counts.held));
    if (what == "H") return archive_header(now);
    if (what == "+" || what == "-" || what == "=") return archive_step(what);
    return text(WrongWord);
}

VistReply VistMeter::archive_header(std::time_t now) {
    VistMemory& memory = selected_memory();
    const VistHeader header = this->header(now, remembering_device());
    VistReply reply = packet(VistArchiveHeader, vist_header_body(writing(), memory, header, dialog_->device));
    spoil_while(reply, memory.header_bad_readings);
    return reply;
}

VistReply VistMeter::archive_set(std::string_view position) {
    const VistRing& ring = selected_memory().ring;
    const auto held = static_cast<long>(ring.records().size());
    const auto back = number(position);
    if (!back || *back < 1 || ring.empty()) return text(WrongWord);
    if (*back > held && config_.refuses_far_set) return text(WrongWord);
    dialog_->place = ring.newest() + 1 - static_cast<VistRing::Sequence>(std::min(*back, held));
    dialog_->just_set = true;
    return text("OK");
}

VistReply VistMeter::archive_old() {
    const VistRing& ring = selected_memory().ring;
    if (ring.empty()) return text(WrongWord);
    dialog_->place = ring.oldest();
    dialog_->just_set = true;
    return text("OK");
}

VistReply VistMeter::archive_step(std::string_view step) {
    VistRing& ring = selected_memory().ring;
    if (ring.empty()) return text(WrongWord);
    VistRing::Sequence place = std::clamp(dialog_->place, ring.oldest(), ring.newest());  // it may be overwritten
    const bool stays = dialog_->just_set && config_.plus_starts_at_set;
    if (step == "+" && !stays) {
        if (place == ring.newest()) return text(WrongWord);
        ++place;
    }
    if (step == "-") {
        if (place == ring.oldest()) return text(WrongWord);
        --place;
    }
    dialog_->place = place;
    dialog_->just_set = false;
    VistStoredRecord& record = ring.at(place);
    const std::uint32_t mask = selected_memory().device.archive_mask;
    VistReply reply = packet(VistArchiveRecord, vist_record_body(writing(), mask, record));
    spoil_while(reply, record.bad_readings);
    return reply;
}

}  // namespace sim
