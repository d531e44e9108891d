#include "support/sa94_scene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr std::size_t BlockSize = 128;
constexpr std::uint32_t Address = 0x12345;
constexpr int NoParity = 0;

std::string hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%s%02X", text.empty() ? "" : " ", byte);
        text += digits;
    }
    return text;
}

}  // namespace

// ---- the meter

void Sa94Puppet::put_block(unsigned segment, unsigned block, sim::ByteVector bytes) {
    blocks_[{segment, block}] = std::move(bytes);
}

void Sa94Puppet::put_firmware(const std::string& text) {
    put_block(0, 2, Sa94Bytes(BlockSize).put(1, {text.begin(), text.end()}).bytes());
}

void Sa94Puppet::put_tubes(std::array<std::uint8_t, 3> first, std::array<std::uint8_t, 3> second) {
    Sa94Bytes block(BlockSize, 0x77);
    block.put(36, {first.begin(), first.end()}).put(44, {second.begin(), second.end()});
    put_block(0, 0, block.bytes());
}

void Sa94Puppet::say(const sim::ByteVector& bytes, int times) {
    for (int i = 0; i < times; ++i) first_.push_back(bytes);
}

sim::Answer Sa94Puppet::hear(std::span<const std::uint8_t> request, std::time_t /*now*/) {
    heard.push_back(hex(request));
    if (listener) listener(heard.back());
    sim::ByteVector bytes;
    if (!first_.empty()) {
        bytes = first_.front();
        first_.pop_front();
    } else if (std::find(deaf_to_.begin(), deaf_to_.end(), heard.back()) == deaf_to_.end()) {
        bytes = answer_to(request);
    }
    if (bytes.empty()) return {};
    return {{.delay_seconds = 0.02, .bytes = std::move(bytes)}};
}

sim::ByteVector Sa94Puppet::answer_to(std::span<const std::uint8_t> request) const {
    const unsigned first = request[0];
    const auto block = [this](unsigned segment, unsigned number) {
        const auto found = blocks_.find({segment, number});
        return found == blocks_.end() ? sim::ByteVector(BlockSize, 0xFF) : found->second;
    };
    if (request.size() == 3 && first >= 0xC0) return {status};
    if (request.size() == 2 && first >= 0xA0 && first <= 0xA7) return block(first - 0xA0U, request[1]);
    if (request.size() == 3 && first == 0xB7) {
        return block((request[1] & 0x38U) >> 3, (request[1] & 7U) << 6 | request[2]);
    }
    if (request.size() == 1 && first >= 0x80 && first <= 0x8F) {
        const auto found = parameters_.find(first - 0x80U);
        return found == parameters_.end() ? sim::ByteVector(4, 0) : found->second;
    }
    return {};
}

// ---- bytes

std::uint8_t sa94_bytes::bcd(int number) {
    return static_cast<std::uint8_t>(number / 10 * 16 + number % 10);
}

sim::ByteVector sa94_bytes::real(float value) {
    if (value == 0.0F) return {0, 0, 0, 0};
    int exponent = 0;
    const float fraction = std::frexp(std::fabs(value), &exponent);  // from a half up to one
    const auto mantissa = static_cast<unsigned>(std::ldexp(fraction, 24)) - 0x800000U;
    const unsigned sign = value < 0 ? 0x80U : 0U;
    return {static_cast<std::uint8_t>(exponent + 128), static_cast<std::uint8_t>(sign | mantissa >> 16),
            static_cast<std::uint8_t>(mantissa >> 8), static_cast<std::uint8_t>(mantissa)};
}

Sa94Bytes sa94_bytes::erased_block() {
    return Sa94Bytes(BlockSize, 0xFF);
}

SA94Request sa94_bytes::reply_of(const std::vector<Sa94Bytes>& records) {
    Sa94Bytes block = erased_block();
    for (std::size_t i = 0; i < records.size(); ++i) block.record(i, records[i]);
    SA94Request request(1);
    std::copy(block.bytes().begin(), block.bytes().end(), request.response.begin());
    return request;
}

Sa94Bytes& Sa94Bytes::put(std::size_t at, const sim::ByteVector& bytes) {
    for (const std::uint8_t byte : bytes) bytes_.at(at++) = byte;
    return *this;
}

Sa94Bytes& Sa94Bytes::date(int day, int month, int year) {
    return put(1, {sa94_bytes::bcd(day), sa94_bytes::bcd(month), sa94_bytes::bcd(year)});
}

Sa94Bytes& Sa94Bytes::hour(int hour) {
    return put(5, {sa94_bytes::bcd(hour)});
}

Sa94Bytes& Sa94Bytes::clock(int hour, int minute, int second) {
    return put(5, {sa94_bytes::bcd(hour), sa94_bytes::bcd(minute), sa94_bytes::bcd(second)});
}

Sa94Bytes& Sa94Bytes::real(std::size_t at, float value) {
    return put(at, sa94_bytes::real(value));
}

Sa94Bytes& Sa94Bytes::word(std::size_t at, unsigned value) {
    return put(at, {static_cast<std::uint8_t>(value / 256), static_cast<std::uint8_t>(value % 256)});
}

Sa94Bytes& Sa94Bytes::record(std::size_t position, const Sa94Bytes& record) {
    return put(position * record.bytes().size(), record.bytes());
}

// ---- the stand

Sa94Stand::Sa94Stand(const std::string& start, const std::string& zone) : DriverStand(start, zone) {
    machine.connect(Port, meter);
    start_driver();
}

SA94& Sa94Stand::start_driver() {
    driver = std::make_unique<SA94>(Uuid);
    MeterSettings settings = settings_for(Address);
    settings.tc_parity = NoParity;
    driver->take_settings(settings);
    driver->open_tty();
    return *driver;
}

void Sa94Stand::identify(int firmware_id, int status) {
    const double before = machine.seconds();
    const std::size_t heard = meter.heard.size();
    const Texts items_before = items();
    meter.put_firmware(
        std::find_if(Versions.begin(), Versions.end(), [&](const auto& row) { return row.id == firmware_id; })->name);
    meter.status = static_cast<std::uint8_t>(status);
    EXPECT_TRUE(driver->getFirmware() && driver->getStatus());
    machine.step_clock(before - machine.seconds());
    meter.heard.resize(heard);
    for (const std::string& name : items()) {
        const bool kept = std::find(items_before.begin(), items_before.end(), name) != items_before.end();
        if (!kept) scene.remove("/tmp/m1/1/tc_items/" + name);
    }
    clear_logs();
}

void Sa94Stand::resume(std::time_t hourly, std::time_t daily, std::time_t errors) {
    constexpr std::time_t Day = 86400;  // a total of a day is dated by its end
    if (hourly != 0) leave_archive("A2", stored_line(hourly, 192, 1.0) + "\n");
    if (daily != 0) leave_archive("A34", stored_line(daily + Day, 192, 1.0) + "\n");
    if (errors != 0) leave_archive("_A57", stored_line(errors, 192, 1.0) + "\n");
    start_driver();
    for (const std::string& name : archive_names()) scene.remove("/mnt/storage/m1/1/tc_archives/" + name);
    clear_logs();
}

void Sa94Stand::clear_logs() {
    for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
}

int Sa94Stand::sent_times(const std::string& request) const {
    return static_cast<int>(std::count(sent().begin(), sent().end(), request));
}
