#include "support/sa94_archive_scene.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <utility>

namespace {

constexpr std::size_t PrefixLength = 24;      // "DD/MM/YY hh:mm:ss.mmm : "
constexpr int Descriptor = 100000;            // no real descriptor is that high
constexpr std::size_t TooLongForItems = 150;  // with such a name of a meter no item file is even tried
constexpr int SpeedCode9600 = 3;
constexpr int NoParity = 0;
constexpr std::time_t Summer2023 = 1685577600;  // 2023-06-01 00:00 UTC
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 24 * Hour;
constexpr std::time_t ErrorStep = 61;  // so that seconds differ

bool has_prefix(const std::string& line) {
    return line.size() >= PrefixLength && line[2] == '/' && line.compare(PrefixLength - 3, 3, " : ") == 0;
}

void mute(SA94& driver) {
    for (auto* log : {&driver.log_messages, &driver.log_debug, &driver.log_general}) {
        *log = std::make_unique<UniLog>(UniLog::Muted, "", "");
    }
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

Sa94Ring::Sa94Ring(sim::Sa94Archive archive_, bool extended, sim::Sa94Turning turning, const std::string& zone)
    : archive(archive_),
      scene_("2024-03-02 10:05:00", zone),
      meter({.firmware = extended ? "M301" : "M300", .turning = turning}),
      line(scene_.root() + "/nowhere", meter),
      begin_(archive == sim::Sa94Archive::Daily ? sim::Sa94When("2004-12-31 00:00").time() : Summer2023),
      step_(step_of(archive)) {
    set_gateway(&line);
    driver = std::make_unique<SA94>(std::string(TooLongForItems, 'm'));
    driver->tc_sernum = meter.config().address;
    driver->set_tty_fd(Descriptor);
    driver->extended = extended;
    mute(*driver);
    SA94Request connect(static_cast<std::int32_t>(meter.config().address));
    connect.setConnect();
    EXPECT_TRUE(driver->Transact(connect, SA94::Attempts));
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

Sa94Place Sa94Ring::find(std::time_t time) {
    meter.forget_requests();
    Sa94Place place{.segment = 77, .block = 77, .position = 77};
    EXPECT_TRUE(driver->getRecordByTimestamp(type(), time, place.segment, place.block, place.position));
    return place;
}

Sa94Place Sa94Ring::end() {
    meter.forget_requests();
    Sa94Place place{.segment = 77, .block = 77, .position = 77};
    EXPECT_TRUE(driver->findArchiveEnd(type(), place.segment, place.block, place.position));
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
    char text[80];
    std::snprintf(text, sizeof(text), "%ld,%d,%f\n", static_cast<long>(time), quality, value);
    return text;
}

std::string sa94_line(const sim::Sa94FileValue& value) {
    return sa94_line(value.time, value.quality, value.value);
}

std::string sa94_difference(const Sa94LineCounts& found, const Sa94LineCounts& expected) {
    std::map<std::string, int> balance;
    for (const auto& [file, lines] : found) {
        for (const auto& [line, times] : lines) balance[file + " " + line] += times;
    }
    for (const auto& [file, lines] : expected) {
        for (const auto& [line, times] : lines) balance[file + " " + line] -= times;
    }
    std::string text;
    for (const auto& [line, times] : balance) {
        if (times > 0) text += "surplus " + line;
        if (times < 0) text += "missing " + line;
    }
    return text;
}

Sa94ArchiveBench::Sa94ArchiveBench(const std::string& start, const std::string& zone) : scene(start, zone) {
    scene.make_tree(Uuid);
    machine.add_device(Port);
}

SA94& Sa94ArchiveBench::start_driver(const sim::Sa94Meter& meter) {
    driver = std::make_unique<SA94>(Uuid);
    driver->tc_sernum = meter.config().address;
    driver->port_name = Port;
    driver->tc_baud = SpeedCode9600;
    driver->tc_parity = NoParity;
    driver->open_tty();
    return *driver;
}

SA94& Sa94ArchiveBench::start_described(sim::Sa94Meter& meter) {
    machine.disconnect_all(Port);
    machine.connect(Port, meter);
    start_driver(meter);
    EXPECT_TRUE(driver->getDescription());
    meter.forget_requests();
    machine.forget_exchanges();
    return *driver;
}

void Sa94ArchiveBench::mute_logs() {
    mute(*driver);
}

std::string Sa94ArchiveBench::item(const std::string& name) const {
    std::string text = scene.item(Uuid, 1, name).value_or("(none)\n");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string Sa94ArchiveBench::archive(const std::string& name) const {
    return scene.archive(Uuid, 1, name).value_or("");
}

void Sa94ArchiveBench::leave_archive(const std::string& name, const std::string& text) {
    scene.write(std::string("/mnt/storage/") + Uuid + "/1/tc_archives/" + name, text);
}

Sa94LineCounts Sa94ArchiveBench::lines() const {
    Sa94LineCounts counts;
    for (const std::string& name : scene.list(std::string("/mnt/storage/") + Uuid + "/1/tc_archives")) {
        if (name == "_hPrevE" || name == "_dPrevE") continue;
        std::istringstream text(archive(name));
        for (std::string line; std::getline(text, line);) ++counts[name][line + (text.eof() ? "" : "\n")];
    }
    return counts;
}

void Sa94ArchiveBench::count(Sa94LineCounts& counts, const sim::Sa94Meter& meter, sim::Sa94Archive archive,
                             std::size_t first, std::size_t end, int times) {
    const auto records = meter.records(archive);
    for (std::size_t k = first; k < std::min(end, records.size()); ++k) {
        for (const auto& value : meter.record_files(archive, records[k])) {
            counts[value.file][sa94_line(value)] += times;
        }
    }
}

Sa94LineCounts Sa94ArchiveBench::all_lines(const sim::Sa94Meter& meter, sim::Sa94Archive archive) {
    Sa94LineCounts counts;
    count(counts, meter, archive, 0, meter.records(archive).size());
    return counts;
}

std::vector<std::string> Sa94ArchiveBench::log(const std::string& kind) const {
    std::string text = scene.file(std::string("/tmp/uni_logs.") + Uuid + "." + kind + ".txt").value_or("");
    std::erase(text, '\0');
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(has_prefix(line) ? line.substr(PrefixLength) : line);
    }
    return lines;
}

int Sa94ArchiveBench::logged(const std::string& kind, const std::string& line) const {
    const auto all = log(kind);
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}
