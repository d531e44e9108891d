// A KM5 meter that may say anything: every operation of the driver that decodes an answer, in any order.
//
// Input: four bytes of scene (see Scene), four of the newest record that is stored already; then, as long as bytes are
// left, a byte for an operation (see operate), its arguments, and the answers that the operation gets for its requests.
// An answer begins with a byte h:
//     h below 0x80    a frame with the right address, echo and sums around h bytes of payload, which follow
//     0x80 to 0xCF    h - 0x80 bytes of any kind, which follow
//     0xD0 to 0xDF    an error answer; its code is chosen by the two lowest bits
//     0xE0 to 0xFF    silence, for this request and the next h - 0xE0
// When the input is used up, or the meter has been asked often enough, the run ends in the middle of what it does then.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <limits>
#include <utility>

#include "archive/archive_holder.h"
#include "core/files.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"
#include "fuzz_ground.h"

namespace {

struct RunEnded {};

constexpr int MostExchanges = 100;
constexpr int MostOfPatientScene = 600;  // a lost archive record takes 441
constexpr int Descriptor = 100000;       // no real descriptor is that high
constexpr std::array<std::uint8_t, 4> ErrorCodes = {0xEF, 0xF0, 0xF1, 0xFB};

void append_sums(std::vector<std::uint8_t>& frame) {
    unsigned exclusive_or = 0;
    unsigned sum = 0;
    for (const std::uint8_t byte : frame) {
        exclusive_or ^= byte;
        sum += byte;
    }
    frame.push_back(static_cast<std::uint8_t>(exclusive_or));
    frame.push_back(static_cast<std::uint8_t>(sum & 0xFF));
}

/// The machine whose one serial line answers what the input says.
class ScriptedLine final : public FuzzGateway {
  public:
    ScriptedLine(const std::string& root, FuzzInput& input, int most_exchanges)
        : FuzzGateway(root), input_(input), exchanges_left_(most_exchanges) {}

    /// Payloads of the answers that come in front of the input's.
    void answer_first(std::deque<std::vector<std::uint8_t>> payloads) { first_ = std::move(payloads); }

    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> request) override {
        expect(request.size() == RequestBytes, "a request has 16 bytes");
        if (exchanges_left_-- == 0) throw RunEnded{};
        read_ = 0;
        answer_ = next_answer(request);
        return static_cast<ssize_t>(request.size());
    }

    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> into) override {
        const std::size_t count = std::min(into.size(), answer_.size() - read_);
        std::copy_n(answer_.begin() + static_cast<std::ptrdiff_t>(read_), count, into.begin());
        read_ += count;
        return static_cast<ssize_t>(count);
    }

  private:
    std::vector<std::uint8_t> next_answer(std::span<const std::uint8_t> request) {
        std::vector<std::uint8_t> frame(request.begin(), request.begin() + 5);
        if (!first_.empty()) {
            frame.insert(frame.end(), first_.front().begin(), first_.front().end());
            first_.pop_front();
            append_sums(frame);
            return frame;
        }
        if (silent_ > 0) {
            --silent_;
            return {};
        }
        if (input_.empty()) throw RunEnded{};
        const std::uint8_t head = input_.byte();
        if (head >= 0xE0) {
            silent_ = head - 0xE0;
            return {};
        }
        if (head >= 0x80 && head < 0xD0) {
            const auto bytes = input_.bytes(head - 0x80U);
            return {bytes.begin(), bytes.end()};
        }
        if (head >= 0xD0) {
            frame[4] = ErrorCodes[head % ErrorCodes.size()];
        } else {
            const auto payload = input_.bytes(head);
            frame.insert(frame.end(), payload.begin(), payload.end());
        }
        append_sums(frame);
        return frame;
    }

    FuzzInput& input_;
    std::deque<std::vector<std::uint8_t>> first_;
    std::vector<std::uint8_t> answer_;
    std::size_t read_ = 0;
    int silent_ = 0;
    int exchanges_left_;
};

/// The first bytes of the input.
struct Scene {
    explicit Scene(FuzzInput& input) : flags(input.byte()), model(input.byte()), version(input.byte()) {
        system_type = input.byte() % 2 == 0 ? "gvs" : "heat";
        newest_record = static_cast<std::time_t>(input.word() & 0x7FFFFFFF);
    }

    bool has_files() const { return (flags & 0x01) != 0; }
    bool has_summer_time() const { return (flags & 0x02) != 0; }
    bool km56i() const { return (flags & 0x04) != 0; }
    bool att_must_be() const { return (flags & 0x08) != 0; }
    bool is_described() const { return (flags & 0x10) != 0; }
    bool has_read_before() const { return (flags & 0x20) != 0; }
    bool is_att() const { return (flags & 0x40) != 0; }
    bool is_patient() const { return (flags & 0x80) != 0; }

    /// What an earlier run has left in the files.
    void leave_files() const {
        if (!has_files() || !has_read_before()) return;
        const std::string line = std::to_string(newest_record) + ",192,1.000000\n";
        for (int n = 1; n <= KM5::MaxSubsystems; ++n) {
            for (const char* name : {"A1", "A29", "_A57"}) {
                append_file(archive_path(FuzzUuid, n, "tc_archives", name), line);
            }
        }
    }

    void prepare(KM5& driver, ScriptedLine& line) const {
        MeterSettings settings{.tc_sernum = 12345678, .subsystem_count = km56i() ? 3 : 1};
        settings.system_type.fill(system_type);
        driver.take_settings(settings);
        driver.set_tty_fd(Descriptor);
        if (!is_described() && !is_att()) return;
        const auto index = static_cast<std::uint8_t>(model % 9 - 1);  // 0 to 6 are models
        const std::string letters = is_att() ? "ATT3" : km56i() ? "KM5I" : "KM52";
        std::string text = std::to_string(version / 64.0F).substr(0, 4) + std::string(2, '\0') + letters;
        const std::vector<std::uint8_t> told(text.begin(), text.end());
        line.answer_first({{0, 0, 0, 0, index}, told});
        driver.getModel();
        line.answer_first({told});
        if (is_described()) driver.get_version();
        line.answer_first({});
    }

    std::uint8_t flags;
    std::uint8_t model;
    std::uint8_t version;
    std::string system_type;
    std::time_t newest_record;
};

void use_time_zone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
}

/// The decoders alone, on a record of an exchange that holds any bytes.
void check_decoders(FuzzInput& input) {
    KM5_request req;
    init_request(req);
    req.cmd = input.byte();
    req.RcvLng = static_cast<std::uint8_t>(input.byte() % (AnswerBytes + 1));
    const auto bytes = input.bytes(AnswerBytes);
    std::copy(bytes.begin(), bytes.end(), req.recv_buf.begin());
    build_frame(req);
    sync_send_buffer(req);

    const AnswerFault fault = find_fault(req);
    if (req.RcvLng >= 2) {
        std::vector<std::uint8_t> frame(req.recv_buf.begin(), req.recv_buf.begin() + req.RcvLng - 2);
        append_sums(frame);
        const bool sums_hold = std::equal(frame.begin(), frame.end(), req.recv_buf.begin());
        expect((fault == AnswerFault::None) == (sums_hold && req.recv_buf[4] == req.cmd),
               "a good answer has right sums and the echo, and no other has");
    }
    expect(isError(req) == (std::count(ErrorCodes.begin(), ErrorCodes.end(), req.recv_buf[4]) != 0),
           "four codes are error answers");

    std::tm tm = km5::decode_date(req.recv_buf);
    expect(tm.tm_mday >= 0 && tm.tm_mday <= 165 && tm.tm_mon >= -1 && tm.tm_mon <= 164, "a nibble is at most 15");
    expect(tm.tm_year >= 100 && tm.tm_year <= 265, "a year belongs to this century, or the next");
    const std::time_t time = make_time(tm);
    expect(time >= std::numeric_limits<std::int32_t>::min() && time <= std::numeric_limits<std::int32_t>::max(),
           "a date fits 32 bits or is -1");

    const Bytes answer = Bytes(req.recv_buf).first(req.RcvLng);
    const int mode = km5::decode_status(answer).TSMode;
    expect(mode >= 0 && mode <= 4, "TSMode is 0 to 4");
    const KM5_bounds bounds = km5::decode_bounds(answer);
    for (const int word : {bounds.first, bounds.last, bounds.count, km5::decode_index(answer)}) {
        expect(word >= 0 && word <= 65535, "an index has sixteen bits");
    }
    expect(km5::decode_event(answer).code <= 127, "a code has seven bits");
    const KM5_meter meter{.model = req.data[0] % 9, .version = 3.0F};
    km5::decode_page(req.cmd, 0, answer, meter, true);
    const KM5_sorted sorted = km5::sort_record(km5::decode_record(answer), meter.model, false);
    expect(sorted.totals.size() + sorted.averages.size() <= 12, "two positions belong to no model");
    std::array<std::uint8_t, 5> text{};
    answer_bytes(1, 5, text.data(), req);
    expect(std::isfinite(parse_version(text)), "a version is a number");
}

struct Marks {
    explicit Marks(const KM5& driver) : marks{driver.get_progress(0), driver.get_progress(1), driver.get_progress(2)} {}

    void check(const KM5& driver, std::time_t now) const {
        for (int s = 0; s < KM5::MaxSubsystems; ++s) {
            const KM5Progress& before = marks[s];
            const KM5Progress& after = driver.get_progress(s);
            expect(after.last_request_HOUR >= before.last_request_HOUR &&
                       after.last_request_DAY >= before.last_request_DAY &&
                       after.last_request_ERROR >= before.last_request_ERROR,
                   "what has been read is not forgotten");
            expect(after.last_request_HOUR <= std::max(before.last_request_HOUR, now + 3600),
                   "no hour of the future is read");
            expect(after.last_request_DAY <= std::max(before.last_request_DAY, now + 86400),
                   "no day of the future is read");
        }
    }

    KM5Progress marks[KM5::MaxSubsystems];
};

void operate(KM5& driver, FuzzInput& input) {
    float value = 0.0F;
    KM5_pack pack;
    KM5_status status;
    MeterSettings settings = driver.settings();
    switch (input.byte() % 15) {
        case 0:
            check_decoders(input);
            break;
        case 1:
            driver.getModel();
            break;
        case 2:
            driver.get_version();
            break;
        case 3:
            driver.get_status(status);
            break;
        case 4:
            driver.get_all_current_values();
            driver.flush_instant_data();
            break;
        case 5:
            driver.get_archives(ArchiveHourly);
            break;
        case 6:
            driver.get_archives(ArchiveDaily);
            break;
        case 7:
            driver.get_archives(input.byte() % 6);
            break;
        case 8:
            driver.get_error_archives();
            break;
        case 9:
            driver.get_description();
            break;
        case 10:
            driver.is_update_due();
            break;
        case 11:
            driver.gen_pack_current(pack);
            driver.do_request(pack);
            break;
        case 12:
            driver.get_netaddr();
            driver.read_EEPROM(input.byte(), 4, value);
            break;
        case 13:
            gateway().sleep(3601);
            driver.run_main();
            break;
        default:
            // The next description or pass ends at another subsystem.
            settings.subsystem_count = 1 + input.byte() % KM5::MaxSubsystems;
            driver.take_settings(settings);
            break;
    }
}

/// Every line of an archive file is one that a reader takes for a line.
void check_lines(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "r");
    char line[64];
    while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
        long time = 0;
        int quality = 0;
        double value = 0.0;
        expect(std::sscanf(line, "%ld,%d,%lf\n", &time, &quality, &value) == 3, "an archive line can be read");
        expect(std::string_view(line).ends_with('\n'), "in one piece");
        expect(quality == QualityGood || quality == 0, "with one of two qualities");
    }
    if (file != nullptr) std::fclose(file);
}

void check_archives() {
    for (int n = 1; n <= KM5::MaxSubsystems; ++n) {
        const std::string folder = full_root() + archive_path(FuzzUuid, n, "tc_archives", "");
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().filename() != "_EXISTS_FIRST_RECORD") check_lines(entry.path());
        }
    }
}

void run(const Scene& scene, ScriptedLine& line, FuzzInput& input) {
    scene.leave_files();
    KM5 driver(FuzzUuid, scene.km56i(), scene.att_must_be());
    scene.prepare(driver, line);
    try {
        while (!input.empty()) {
            const Marks marks(driver);
            operate(driver, input);
            marks.check(driver, gateway().now());
            const int subsystem = driver.get_carried().subsystem;
            expect(subsystem >= 0 && subsystem < KM5::MaxSubsystems, "there are three subsystems");
        }
    } catch (const RunEnded&) {
        return;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const Scene scene(input);
    use_time_zone(scene.has_summer_time() ? "EET-2EEST,M3.5.0/3,M10.5.0/4" : "UTC0");
    ScriptedLine line(scene.has_files() ? full_root() : empty_root(), input,
                      scene.is_patient() ? MostOfPatientScene : MostExchanges);
    run(scene, line, input);
    if (!scene.has_files()) return 0;
    check_archives();
    empty_directories();
    return 0;
}
