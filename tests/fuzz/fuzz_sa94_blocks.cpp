// An SA-94 meter whose memory may hold anything: blocks of any bytes through the parser, by any firmware's tables and
// at any status, and whole passes over an archive.
//
// Input: a byte of scene (1 summer time, 2 no place for files), a byte for the firmware's number, one for the status.
// Then the text of the two energy files, up to a zero byte each. Then, as long as bytes are left, operations: a byte
// (see operate), and what it needs. A block is told by a byte for the count of its bytes, up to 128, and the bytes; the
// last one is repeated up to the block's end. A count of 0xF0 or more on the line is silence.

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <optional>
#include <vector>

#include "drivers/sa94/sa94.h"
#include "drivers/sa94/sa94_values.h"
#include "fuzz_ground.h"

namespace {

constexpr int Descriptor = 100000;  // no real descriptor is that high
constexpr int MostExchanges = 100;
constexpr std::uint8_t Silence = 0xF0;
constexpr std::size_t MostEnergyText = 40;
constexpr std::array Archives = {HOURLY_DB, DAILY_DB, ERROR_DB};

struct RunEnded {};

/// A meter that answers every request for a block with the next one of the input, and anything else with one byte.
class ScriptedLine final : public FuzzGateway {
  public:
    ScriptedLine(const std::string& root, FuzzInput& input) : FuzzGateway(root), input_(input) {}

    ssize_t write_port(int fd, std::span<const std::uint8_t> request) override;
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;

    /// What the meter has called itself last.
    const SA94Version* version = nullptr;
    std::uint8_t status = 0;

    /// The meter tells a driver all this, and nothing is taken from the input for that.
    void introduce(SA94& driver);

  private:
    FuzzInput& input_;
    bool introducing_ = false;
    std::vector<std::uint8_t> answer_;
    std::size_t read_ = 0;
    int exchanges_left_ = MostExchanges;
};

std::vector<std::uint8_t> block_of(FuzzInput& input, std::uint8_t count) {
    const auto bytes = input.bytes(count % 129U);
    std::vector<std::uint8_t> block(bytes.begin(), bytes.end());
    block.resize(BlockBytes, block.empty() ? std::uint8_t{0xFF} : block.back());
    return block;
}

ssize_t ScriptedLine::write_port(int /*fd*/, std::span<const std::uint8_t> request) {
    expect(!request.empty() && request.size() <= 3, "a request has one to three bytes");
    if (introducing_) {
        answer_ = {status};
        answer_.insert(answer_.end(), version->name.begin(), version->name.end());
        read_ = 0;
        return static_cast<ssize_t>(request.size());
    }
    if (exchanges_left_-- == 0 || input_.empty()) throw RunEnded{};
    read_ = 0;
    const bool is_block = request[0] >= 0xA0 && request[0] < 0xC0;
    const std::uint8_t head = input_.byte();
    answer_.clear();
    if (head < Silence) answer_ = is_block ? block_of(input_, head) : std::vector<std::uint8_t>{head};
    if (is_block) {
        expect(request[0] != 0xB7 || (request.size() == 3 && request[1] < 0x80 && request[2] < 0x40), "a long request");
        expect(request[0] == 0xB7 || (request.size() == 2 && request[0] < 0xA8 && request[1] < 0x80), "a short one");
    }
    if (request[0] == 0xA0 && request[1] == 2 && !answer_.empty()) {
        const SA94Version* const found = find_version(firmware_text(answer_));
        if (found != nullptr) version = found;
    }
    return static_cast<ssize_t>(request.size());
}

ssize_t ScriptedLine::read_port(int /*fd*/, std::span<std::uint8_t> into) {
    const std::size_t count = std::min(into.size(), answer_.size() - read_);
    std::copy_n(answer_.begin() + static_cast<std::ptrdiff_t>(read_), count, into.begin());
    read_ += count;
    return static_cast<ssize_t>(count);
}

// ---- the decoders, against what they mean

bool is_same(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) || (std::isnan(a) && std::isnan(b));
}

/// The meter's float by its arithmetic: sign, a power of two, and one and a fraction of 23 bits.
float reference_float(std::span<const std::uint8_t, 4> b) {
    const int exponent = b[0] < 2 ? 0 : b[0] - 2;
    const int fraction = (b[1] % 128 * 256 + b[2]) * 256 + b[3];
    const double sign = b[1] >= 128 ? -1.0 : 1.0;
    if (exponent == 0) return static_cast<float>(sign * std::ldexp(fraction, -149));
    return static_cast<float>(sign * std::ldexp(8388608 + fraction, exponent - 150));
}

void check_decoders(std::span<const std::uint8_t> block) {
    for (std::size_t at = 0; at + 4 <= block.size(); at += 2) {
        const auto four = block.subspan(at).first<4>();
        const float found = decodeSaFloat(four[0], four[1], four[2], four[3]);
        expect(is_same(found, reference_float(four)), "a float is what its bytes mean");
        expect(is_same(found, decodeSaFloat(Bytes(four))), "in either form");
        expect(std::isfinite(found), "every exponent byte gives a finite number");
        expect(decodeWord(four[0], four[1]) == four[0] * 256.0F + four[1], "a word is what its bytes mean");
        expect(bcdToInt(four[0]) == four[0] / 16 * 10 + four[0] % 16, "so are two digits");
    }
}

// ---- the driver

void ScriptedLine::introduce(SA94& driver) {
    driver.take_settings({.tc_sernum = 1});
    driver.set_tty_fd(Descriptor);
    introducing_ = true;
    expect(driver.getFirmware() && driver.getStatus(), "a meter that says who it is is known");
    introducing_ = false;
}

/// Bytes between the start of a record and the place where its time stands are the archive's own affair.
void check_times(SA94Memory memory, Bytes block) {
    constexpr std::time_t Latest = std::numeric_limits<std::int32_t>::max();
    for (const int archive : Archives) {
        for (int position = 0; position < memory.recordsPerBlock(archive); ++position) {
            const Bytes record = memory.record_at(archive, block, position);
            const std::time_t time = recordTime(archive, record);
            expect(time >= -1 && time <= Latest, "a time fits 32 bits");
            if (record[3] == 0xFF) expect(time == -1, "what was never written has no time");
        }
    }
    expect(
        isNullBlock(block) == std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0xFF; }),
        "a null block is one");
}

void parse(SA94& driver, const SA94Version& version, FuzzInput& input) {
    const SA94Memory memory{version.extended};
    const int archive = Archives[input.byte() % Archives.size()];
    SA94Request request(1);
    const auto block = block_of(input, input.byte());
    check_decoders(block);
    check_times(memory, block);
    std::copy(block.begin(), block.end(), request.response.begin());
    request.recv_length = BlockBytes;
    const int begin = input.byte() % memory.recordsPerBlock(archive);
    int position = begin;
    const std::time_t before = 1600000000;
    std::time_t newest = before;
    const bool goes_on = driver.parseBlock(archive, request, position, newest);
    constexpr std::array WithoutLayout = {1, 2, 8, 13};
    const bool has_layout =
        archive == ERROR_DB || std::find(WithoutLayout.begin(), WithoutLayout.end(), version.id) == WithoutLayout.end();
    expect(position == begin || (position == 0 && goes_on), "the place is kept, or begins anew in the next block");
    expect(newest >= before && newest <= gateway().now() + 745L * 86400, "the newest record is one of this time");
    expect(has_layout || (!goes_on && newest == before), "without a layout the first record ends the run");
    if (isNullBlock(request.response)) expect(!goes_on && newest == before, "behind the end nothing is read");
}

// ---- the files

/// The text up to the next zero byte.
std::string energy_text(FuzzInput& input) {
    std::string text;
    while (text.size() < MostEnergyText && !input.empty()) {
        const std::uint8_t byte = input.byte();
        if (byte == 0) break;
        text += static_cast<char>(byte);
    }
    return text;
}

std::string archive_file(const std::string& name) {
    return full_root() + "/mnt/storage/" + FuzzUuid + "/1/tc_archives/" + name;
}

void put_file(const std::string& name, const std::string& text) {
    std::FILE* const file = std::fopen(archive_file(name).c_str(), "w");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}

/// What a reader of the first 31 bytes of the first line takes for a number.
double reference_energy(const std::string& text) {
    return std::strtod(text.substr(0, std::min(text.find('\n'), std::size_t{31})).c_str(), nullptr);
}

bool is_same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

void check_lines() {
    namespace fs = std::filesystem;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(full_root() + "/mnt/storage")) {
        const std::string name = entry.path().filename().string();
        if (!entry.is_regular_file() || name == "_hPrevE" || name == "_dPrevE") continue;
        std::FILE* const file = std::fopen(entry.path().c_str(), "r");
        char line[300];
        while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
            long time = 0;
            int quality = 0;
            double value = 0.0;
            expect(std::sscanf(line, "%ld,%d,%lf\n", &time, &quality, &value) == 3, "an archive line can be read");
            // A line is cut at 255 characters: only an energy that no meter has counted is as long as that.
            expect(std::strchr(line, '\n') != nullptr || std::strlen(line) >= 255, "in one piece");
            expect(quality == QualityGood || (quality == 0 && name == "_A57"), "with one of two qualities");
            expect(time > 0 && time <= FuzzGateway::Start + 746L * 86400, "of a time that the meter can have meant");
        }
        if (file != nullptr) std::fclose(file);
    }
}

// ---- the driver, from file to file

/// A new process, whose files tell how far its meter was read.
void restart(std::optional<SA94>& process, ScriptedLine& line, FuzzInput& input) {
    check_lines();
    empty_directories();
    const auto put_line = [](const char* name, std::time_t time) {
        put_file(name, std::to_string(time) + ",192,1.000000\n");
    };
    put_line("A2", FuzzGateway::Start - 3600 * input.byte());
    put_line("A34", FuzzGateway::Start - 86400 * (input.byte() - 1));  // a total of a day is dated by its end
    put_line("_A57", FuzzGateway::Start - 60 * input.byte());
    process.emplace(FuzzUuid);
    line.introduce(*process);
}

void operate(std::optional<SA94>& process, ScriptedLine& line, FuzzInput& input) {
    SA94& driver = *process;
    std::time_t time = 0;
    int segment = 0;
    std::uint32_t block = 0;
    int position = 0;
    const SA94Memory memory{line.version->extended};
    const std::uint8_t operation = input.byte();
    const int archive = Archives[operation / 8 % Archives.size()];
    switch (operation % 8) {
        case 0:
            restart(process, line, input);
            break;
        case 1:
            driver.getArchives(archive);
            break;
        case 2:
            if (!driver.getRecordByTimestamp(archive, FuzzGateway::Start - 3600 * input.byte(), segment, block,
                                             position))
                break;
            expect(segment == -1 || (segment / 2 * 2 == low_segment(archive) && block < memory.blocksPerSegment() &&
                                     position >= 0 && position < memory.recordsPerBlock(archive)),
                   "a find lies in the archive");
            break;
        case 3:
            if (driver.getFirstRecordInfo(archive, time, segment, block))
                expect(otherSegment(segment) >= 2, "an archive begins in one of its segments");
            break;
        case 4:
            driver.getDescription();
            break;
        case 5:
            driver.getCurrentParameters();
            break;
        default:
            parse(driver, *line.version, input);
            break;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    // Logs and items that cannot be opened are not written: the words are formed all the same.
    std::filesystem::remove_all(full_root() + "/tmp/" + FuzzUuid);
    for (const char* file : {"messages", "debug", "general"}) {
        std::filesystem::create_directories(full_root() + "/tmp/uni_logs." + FuzzUuid + "." + file + ".txt");
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto Names = CurrentParameters;
    CurrentParameters = Names;  // what an earlier run has renamed
    FuzzInput input(data, size);
    const std::uint8_t scene = input.byte();
    ::setenv("TZ", (scene & 1) != 0 ? "EET-2EEST,M3.5.0/3,M10.5.0/4" : "UTC0", 1);
    ::tzset();
    const int firmware_id = input.byte() % 18;
    const std::uint8_t status = input.byte();
    const std::string hourly = energy_text(input);
    const std::string daily = energy_text(input);
    put_file("_hPrevE", hourly);
    put_file("_dPrevE", daily);
    const bool placeless = (scene & 2) != 0;
    ScriptedLine line(placeless ? empty_root() : full_root(), input);
    std::optional<SA94> process(FuzzUuid);
    expect(is_same(process->progress().hPrevE, placeless ? 0.0 : reference_energy(hourly)),
           "the energy of an hour is read");
    expect(is_same(process->progress().dPrevE, placeless ? 0.0 : reference_energy(daily)), "and that of a day");
    line.version =
        std::find_if(Versions.begin(), Versions.end(), [=](const auto& row) { return row.id == firmware_id; });
    line.status = status;
    line.introduce(*process);
    try {
        while (!input.empty()) operate(process, line, input);
    } catch (const RunEnded&) {
        input.bytes(size);
    }
    check_lines();
    empty_directories();
    return 0;
}
