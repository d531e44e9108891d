#include "support/sa94_archive_scene.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <utility>

namespace {

constexpr int Descriptor = 100000;  // no real descriptor is that high
constexpr int NoParity = 0;
constexpr std::time_t Summer2023 = 1685577600;  // 2023-06-01 00:00 UTC
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 24 * Hour;
constexpr std::time_t ErrorStep = 61;  // so that seconds differ

SA94Logs muted_logs() {
    const auto muted = [] { return std::make_unique<UniLog>(UniLog::Muted, "", ""); };
    return {muted(), muted(), muted()};
}

std::time_t step_of(sim::Sa94Archive archive) {
    if (archive == sim::Sa94Archive::Errors) return ErrorStep;
    return archive == sim::Sa94Archive::Daily ? Day : Hour;
}

}  // namespace

// ---- searches

ssize_t Sa94FastLine::write_port(int /*fd*/, std::span<const std::uint8_t> bytes) {
    ++exchanges;
    answer_.clear();
    read_ = 0;
    for (const sim::Burst& burst : meter_.hear(bytes, now)) {
        answer_.insert(answer_.end(), burst.bytes.begin(), burst.bytes.end());
    }
    return static_cast<ssize_t>(bytes.size());
}

ssize_t Sa94FastLine::read_port(int /*fd*/, std::span<std::uint8_t> into) {
    const std::size_t count = std::min(into.size(), answer_.size() - read_);
    std::copy_n(answer_.begin() + static_cast<std::ptrdiff_t>(read_), count, into.begin());
    read_ += count;
    return static_cast<ssize_t>(count);
}

std::ostream& operator<<(std::ostream& out, const Sa94Place& place) {
    if (place.segment == -1 && place.block == 0xFFFFFFFF && place.position == -1) return out << "nowhere";
    return out << "segment " << place.segment << ", block " << place.block << ", position " << place.position;
}

Sa94Ring::Sa94Ring(sim::Sa94Archive walked, bool extended, sim::Sa94Turning turning, const std::string& zone)
    : archive(walked),
      scene_("2024-03-02 10:05:00", zone),
      logs_(muted_logs()),
      meter({.firmware = extended ? "M301" : "M300", .turning = turning}),
      line(scene_.root() + "/nowhere", meter),
      link([](Bytes tx, ExchangeAnswer& rx) { exchange_read_bytes(Descriptor, 0, tx, rx, 512, false); }, [](bool) {},
           *logs_.log_debug),
      search(search_in({extended})),
      begin_(archive == sim::Sa94Archive::Daily ? sim::Sa94When("2004-12-31 00:00").time() : Summer2023),
      step_(step_of(archive)) {
    set_gateway(&line);
    SA94Request connect(address());
    EXPECT_TRUE(link.connect(connect));
    meter.forget_requests();
}

Sa94Ring::~Sa94Ring() {
    set_gateway(nullptr);
}

sim::ByteVector Sa94Ring::record(std::time_t time) const {
    const sim::Sa94Date date = sim::sa94_date(time);
    Sa94Bytes bytes(shape().record_size);
    bytes.date(date.day, date.month, date.year);
    if (archive == sim::Sa94Archive::Hourly) bytes.hour(date.hour);
    if (archive == sim::Sa94Archive::Errors) bytes.clock(date.hour, date.minute, date.second);
    return bytes.bytes();
}

void Sa94Ring::append_at(std::time_t time) {
    append_bytes(record(time));
    ++written_;
}

void Sa94Ring::append(std::size_t records) {
    for (std::size_t k = 0; k < records; ++k) append_at(at(written_));
}

Sa94Place Sa94Ring::place_of(std::size_t k) const {
    const std::size_t half = capacity() / 2;
    const std::size_t within = k % half;
    return {.segment = k / half % 2 == 0 ? low() : high(),
            .block = static_cast<std::uint32_t>(shape().first_block + within / per_block()),
            .position = static_cast<int>(within % per_block())};
}

Sa94Place Sa94Ring::find(const SA94Search& by, std::time_t time) {
    meter.forget_requests();
    Sa94Place place{.segment = 77, .block = 77, .position = 77};
    EXPECT_TRUE(by.getRecordByTimestamp(type(), time, place.segment, place.block, place.position));
    return place;
}

Sa94Place Sa94Ring::end() {
    meter.forget_requests();
    Sa94Place place{.segment = 77, .block = 77, .position = 77};
    EXPECT_TRUE(search.findArchiveEnd(type(), place.segment, place.block, place.position));
    return place;
}

std::string Sa94Ring::blocks_read() const {
    std::string text;
    for (const sim::Sa94Heard& heard : meter.heard()) {
        if (heard.request.kind != sim::Sa94Kind::Block) continue;
        text += (text.empty() ? "" : " ") + std::to_string(heard.request.segment) + "/" +
                std::to_string(heard.request.block);
    }
    return text;
}

// ---- passes

std::string sa94_line(std::time_t time, int quality, double value) {
    return stored_line(time, quality, value) + "\n";
}

std::string sa94_line(const sim::Sa94FileValue& value) {
    return sa94_line(value.time, value.quality, value.value);
}

std::unique_ptr<SA94> Sa94ArchiveStand::new_driver() const {
    return muted_ ? std::make_unique<SA94>(Uuid, muted_logs()) : std::make_unique<SA94>(Uuid);
}

SA94& Sa94ArchiveStand::start_driver(const sim::Sa94Meter& meter) {
    driver = new_driver();
    MeterSettings settings = settings_for(meter.config().address);
    settings.tc_parity = NoParity;
    driver->take_settings(settings);
    driver->open_tty();
    return *driver;
}

SA94& Sa94ArchiveStand::start_described(sim::Sa94Meter& meter) {
    machine.disconnect_all(Port);
    machine.connect(Port, meter);
    start_driver(meter);
    EXPECT_TRUE(driver->getDescription());
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

SA94& Sa94ArchiveStand::start_behind(sim::Sa94Meter& meter, const std::string& file, std::time_t last) {
    leave_archive(file, sa94_line(last, 192, 1.0));
    start_described(meter);
    leave_archive(file, "");
    return *driver;
}

LineCounts Sa94ArchiveStand::lines() const {
    LineCounts counts;
    for (const std::string& name : scene.list(std::string("/mnt/storage/") + Uuid + "/1/tc_archives")) {
        if (name == "_hPrevE" || name == "_dPrevE") continue;
        std::istringstream text(archive(name));
        for (std::string line; std::getline(text, line);) ++counts[name][line + (text.eof() ? "" : "\n")];
    }
    return counts;
}

void Sa94ArchiveStand::count(LineCounts& counts, const sim::Sa94Meter& meter, sim::Sa94Archive archive,
                             std::size_t first, std::size_t end, int times) {
    const auto records = meter.records(archive);
    for (std::size_t k = first; k < std::min(end, records.size()); ++k) {
        for (const auto& value : meter.record_files(archive, records[k])) {
            counts[value.file][sa94_line(value)] += times;
        }
    }
}

LineCounts Sa94ArchiveStand::all_lines(const sim::Sa94Meter& meter, sim::Sa94Archive archive) {
    LineCounts counts;
    count(counts, meter, archive, 0, meter.records(archive).size());
    return counts;
}
