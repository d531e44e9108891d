#include "sa94_meter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::int64_t SecondsPerHour = 3600;
constexpr std::int64_t SecondsPerDay = 86400;
constexpr std::int64_t SecondsBetweenErrors = 600;
constexpr std::uint8_t ErrorCodes = 20;

// Service data, segment 0.
constexpr unsigned TubeBlock = 0;
constexpr unsigned FirstTube = 36;
constexpr unsigned SecondTube = 44;
constexpr unsigned FirmwareBlock = 2;
constexpr unsigned FirmwareAt = 1;
constexpr std::size_t FirmwareWidth = 14;

void check(const Sa94Config& config) {
    if (config.address >> 20 != 0) throw std::invalid_argument("an address has 20 bits");
    if (config.firmware.size() > FirmwareWidth) throw std::invalid_argument("a firmware text has up to 14 characters");
}

std::int64_t floored(std::int64_t face, std::int64_t unit) {
    return face - (face % unit + unit) % unit;
}

std::int64_t usual_step(Sa94Archive archive) {
    if (archive == Sa94Archive::Errors) return SecondsBetweenErrors;
    return archive == Sa94Archive::Hourly ? SecondsPerHour : SecondsPerDay;
}

}  // namespace

Sa94Meter::Sa94Meter(Sa94Config config) {
    swap_for(std::move(config));
}

void Sa94Meter::swap_for(Sa94Config config) {
    check(config);
    config_ = std::move(config);
    firmware_ = sa94_firmware(config_.firmware);
    memory_ = Sa94Memory(config_.extended.value_or(firmware_.extended), config_.turning);
    std::string text = config_.firmware;
    text.resize(FirmwareWidth, ' ');
    memory_.write(0, FirmwareBlock, FirmwareAt, ByteVector(text.begin(), text.end()));
    set_tubes(config_.tubes);
    values_.clear();
    meter_clock.replace(config_.clock_offset, config_.clock_drift_ppm);
    in_conversation_ = false;
}

// ---- what it says

Answer Sa94Meter::hear(std::span<const std::uint8_t> bytes, std::time_t now) {
    catch_up(now);
    const auto request = sa94_question(bytes);
    if (!request || !is_meant(*request)) return {};
    const Sa94Fault fault = fault_script.choose(*request);
    const unsigned which = request->kind == Sa94Kind::Block ? request->segment : request->code;
    note({.at = now, .request = *request}, {request->kind, which, request->block});
    if (fault.kind == Sa94Fault::Kind::Silence) return {};
    const ByteVector right = answer(*request, fault, now);
    if (right.empty()) return {};
    return sa94_spoil(right, fault, config_.answer_delay);
}

bool Sa94Meter::is_meant(const Sa94Question& request) {
    if (request.kind != Sa94Kind::Connect) return in_conversation_;
    if (request.address == config_.address) return true;
    in_conversation_ = false;
    return false;
}

ByteVector Sa94Meter::answer(const Sa94Question& request, const Sa94Fault& fault, std::time_t now) {
    switch (request.kind) {
        case Sa94Kind::Connect:
            in_conversation_ = true;
            return {config_.status};
        case Sa94Kind::Disconnect:
            in_conversation_ = false;
            return {};
        case Sa94Kind::Parameter:
            return parameter(request.code, now);
        case Sa94Kind::Block:
            return block(request, fault.kind == Sa94Fault::Kind::WrongBlock ? fault.number : 0);
    }
    return {};
}

ByteVector Sa94Meter::block(const Sa94Question& request, std::size_t further_on) const {
    if (request.extended_form && !memory_.extended()) return {};
    const std::size_t number = (request.block + further_on) % memory_.blocks_per_segment();
    const auto content = memory_.block(request.segment, static_cast<unsigned>(number));
    return {content.begin(), content.end()};
}

ByteVector Sa94Meter::parameter(unsigned code, std::time_t now) const {
    if (code >= Sa94ParameterCodes) return {};
    const Sa94Date shown = clock(now);
    if (code == Sa94CodeOfTime) {
        return {0, sa94_bcd(shown.hour), sa94_bcd(shown.minute), sa94_bcd(shown.second)};
    }
    if (code == Sa94CodeOfDate) {
        return {0, sa94_bcd(shown.day), sa94_bcd(shown.month), sa94_bcd(shown.year)};
    }
    const auto found = std::find_if(firmware_.parameters.begin(), firmware_.parameters.end(),
                                    [&](const auto& row) { return row.code == code; });
    const auto bytes = sa94_float(found == firmware_.parameters.end() ? 0.0F : parameter_value(*found, now));
    return {bytes.begin(), bytes.end()};
}

// ---- present state

const Sa94Parameter& Sa94Meter::parameter_named(const std::string& name) const {
    const auto found = std::find_if(firmware_.parameters.begin(), firmware_.parameters.end(),
                                    [&](const auto& row) { return row.name == name; });
    if (found == firmware_.parameters.end()) throw std::invalid_argument("this firmware has no parameter " + name);
    return *found;
}

float Sa94Meter::parameter_value(const Sa94Parameter& parameter, std::time_t now) const {
    if (const auto set = values_.find(parameter.name); set != values_.end()) return set->second;
    const Sa94Quantity& quantity = sa94_quantity(sa94_meaning(parameter.quantity, config_.status));
    // Without sway a mean is that of midnight on a Thursday, the day on which the face began to count.
    const bool moves = config_.sway || quantity.per_hour != 0.0;
    const double amount = sa94_amount(quantity, config_.address, moves ? face(now) : 0, 1.0);
    return static_cast<float>(parameter.scale.bare(amount));
}

void Sa94Meter::set_value(const std::string& name, float value) {
    parameter_named(name);
    sa94_float(value);  // throws when it cannot be said
    values_[name] = value;
}

bool Sa94Meter::has_value(const std::string& name) const {
    const auto& rows = firmware_.parameters;
    return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.name == name; });
}

float Sa94Meter::value(const std::string& name, std::time_t now) const {
    return parameter_value(parameter_named(name), now);
}

void Sa94Meter::set_tubes(const Sa94Tubes& tubes) {
    config_.tubes = tubes;
    memory_.write(0, TubeBlock, FirstTube, ByteVector{tubes.DN1, tubes.Q1max, tubes.Q1min});
    memory_.write(0, TubeBlock, SecondTube, ByteVector{tubes.DN2, tubes.Q2max, tubes.Q2min});
}

// ---- clock

std::int64_t Sa94Meter::face(std::time_t now) const {
    return sa94_face(sa94_date(now)) + meter_clock.ahead(now);
}

void Sa94Meter::set_clock(const Sa94When& shown, std::time_t now) {
    catch_up(now);
    const std::int64_t set = sa94_face(shown.date());
    meter_clock.set(set - sa94_face(sa94_date(now)), now);
    hours_.pass_over(set);
}

// ---- archives

void Sa94Meter::store(Sa94Archive archive, const Sa94Record& record) {
    const Sa94Bytes bytes = sa94_record(firmware_, archive, record, config_.status);
    memory_.append(archive, std::span(bytes).first(memory_.shape(archive).record_size));
}

void Sa94Meter::store_event(const Sa94Event& event) {
    const Sa94Bytes bytes = sa94_event(event);
    memory_.append(Sa94Archive::Errors, std::span(bytes).first(memory_.shape(Sa94Archive::Errors).record_size));
}

void Sa94Meter::fill(Sa94Archive archive, const Sa94Fill& how) {
    memory_.erase_ring(archive, how.begin_in_high);
    if (how.records == 0) return;
    const Sa94Shape ring = memory_.shape(archive);
    const std::int64_t step = how.step == 0 ? usual_step(archive) : how.step;
    const std::int64_t oldest = sa94_face(how.newest.date()) - step * static_cast<std::int64_t>(how.records - 1);
    // Whole turns that leave no trace; one turn at least is written, and so everything that it has to erase erased.
    const std::size_t turns = how.records / ring.capacity();
    const std::size_t passed_over = turns > 1 ? (turns - 1) * ring.capacity() : 0;
    if (archive == Sa94Archive::Errors) return fill_errors(how, oldest, step, passed_over);

    Sa94Chronicle chronicle(firmware_, archive, config_.address, config_.status);
    for (std::size_t k = passed_over; k < how.records; ++k) {
        const std::int64_t begin = oldest + step * static_cast<std::int64_t>(k);
        const Sa94Bytes bytes = how.bare ? chronicle.bare_record(begin) : chronicle.record(begin);
        memory_.append(archive, std::span(bytes).first(ring.record_size));
    }
}

void Sa94Meter::fill_errors(const Sa94Fill& how, std::int64_t oldest, std::int64_t step, std::size_t passed_over) {
    Sa94Chronicle chronicle(firmware_, Sa94Archive::Errors, config_.address, 0);
    for (std::size_t k = passed_over; k < how.records; ++k) {
        Sa94Bytes bytes = chronicle.bare_record(oldest + step * static_cast<std::int64_t>(k));
        bytes[0] = static_cast<std::uint8_t>((k / 2 % ErrorCodes + 1) | (k % 2 == 1 ? 0x80U : 0U));
        memory_.append(Sa94Archive::Errors, std::span(bytes).first<8>());
    }
}

void Sa94Meter::record_archives(bool on, const Sa94When& from) {
    on ? hours_.begin(sa94_face(from.date())) : hours_.end();
}

void Sa94Meter::catch_up(std::time_t now) {
    meter_clock.begin(now);
    std::optional<Sa94Chronicle> hourly, daily;
    const auto write = [&](std::optional<Sa94Chronicle>& chronicle, Sa94Archive archive, std::int64_t begin) {
        if (hours_.misses(begin)) return;
        if (!chronicle) chronicle.emplace(firmware_, archive, config_.address, config_.status);
        const Sa94Bytes bytes = chronicle->record(begin);
        memory_.append(archive, std::span(bytes).first(memory_.shape(archive).record_size));
    };
    const auto next = [](std::int64_t time) { return floored(time, SecondsPerHour) + SecondsPerHour; };
    hours_.catch_up(face(now), next, [&](std::int64_t end) {
        write(hourly, Sa94Archive::Hourly, end - SecondsPerHour);
        if (end % SecondsPerDay == 0) write(daily, Sa94Archive::Daily, end - SecondsPerDay);
    });
}

void Sa94Meter::erase_record(Sa94Archive archive, const Sa94StoredRecord& record) {
    std::ranges::fill(memory_.bytes(archive, record), std::uint8_t{0xFF});
}

std::vector<Sa94FileValue> Sa94Meter::record_files(Sa94Archive archive, const Sa94StoredRecord& record) const {
    return sa94_record_files(firmware_, archive, memory_.bytes(archive, record), config_.status);
}

// ---- what a test looks at

std::size_t Sa94Meter::requests(Sa94Kind kind, std::optional<unsigned> segment_or_code,
                                std::optional<unsigned> block) const {
    return count([=](const Sa94Asked& asked) {
        const auto& [asked_kind, which, asked_block] = asked;
        return asked_kind == kind && segment_or_code.value_or(which) == which &&
               block.value_or(asked_block) == asked_block;
    });
}

}  // namespace sim
