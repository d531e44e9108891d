// An archive file, any bytes: the scan by blocks finds what the plain loop of fgets and sscanf finds, a set of files is
// judged by that, and a line that is appended to whatever stands there is found again.
//
// Input: eight bytes, the sizes of the scan's blocks less one, in turn; one byte, how much of the file's beginning is
// missing from the second file of the set, in 512ths (and twice as much from the third); then the file.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "archive/archive_holder.h"
#include "archive/record_time_scan.h"
#include "core/local_time.h"
#include "fuzz_ground.h"

namespace {

constexpr std::size_t Borders = 8;

class Meter final : public ArchiveHolder {
  public:
    Meter() { uuid = std::string(FuzzUuid); }
};

std::string real_path(const std::string& name) {
    return full_root() + archive_path(FuzzUuid, 1, "tc_archives", name);
}

void write_file(const std::string& name, std::string_view text) {
    std::ofstream(real_path(name), std::ios::binary) << text;
}

std::time_t plain_last_time(const std::string& name) {
    std::FILE* const file = std::fopen(real_path(name).c_str(), "r");
    if (file == nullptr) return 0;
    char line[64];
    long greatest = 0;
    while (std::fgets(line, sizeof(line), file) != nullptr) {
        long time = 0;
        int quality = 0;
        double value = 0.0;
        if (std::sscanf(line, "%ld,%d,%lf\n", &time, &quality, &value) == 3 && time > greatest) greatest = time;
    }
    std::fclose(file);
    return greatest;
}

std::time_t time_by_blocks(std::string_view file, std::span<const std::uint8_t> sizes) {
    RecordTimeScan scan;
    for (std::size_t turn = 0; !file.empty(); ++turn) {
        const std::size_t size = sizes.empty() ? 64 : 1 + std::size_t{sizes[turn % sizes.size()]};
        const std::string block(file.substr(0, size));  // of its own, so that no read behind it goes unseen
        scan.feed(block);
        file.remove_prefix(block.size());
    }
    return scan.finish();
}

/// The common time by the rule for a set of files; -1 when they disagree.
std::time_t expected_integrity(std::span<const std::string> names) {
    std::time_t first = 0;
    for (const std::string& name : names) {
        const std::time_t time = plain_last_time(name);
        if (time == 0) continue;
        if (first != 0 && time != first) return -1;
        first = time;
    }
    return first;
}

void check_set(Meter& meter, std::span<const std::string> names) {
    const std::time_t expected = expected_integrity(names);
    const std::time_t found = meter.check_integrity(names.data(), static_cast<int>(names.size()), 1, 0);
    expect(found == std::max<std::time_t>(expected, 0), "check_integrity tells the common time");
    if (expected >= 0) return;
    for (const std::string& name : names) {
        std::ifstream file(real_path(name), std::ios::binary | std::ios::ate);
        expect(file && file.tellg() == 0, "a set that disagrees is emptied");
    }
}

void check_appended(Meter& meter, const std::string& name) {
    const std::time_t before = plain_last_time(name);
    const std::time_t time = FuzzGateway::Start + 1800;
    const std::tm tm = local_time(time);
    meter.add_value(name, 12.5);
    meter.flush_values(tm, 0, QualityGood, 1, 0);
    expect(plain_last_time(name) == std::max(before, time), "a line appended to any file can be read");
    expect(meter.last_record_time(name, 1, "tc_archives") == std::max(before, time), "and is found");
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const auto sizes = input.bytes(Borders);
    const std::size_t left_out = input.byte();
    const std::string_view file = input.rest();

    const FuzzGateway machine(full_root());
    const std::array<std::string, 3> names = {"A1", "A4", "A6"};
    const auto begin_at = [&](std::size_t share) { return file.substr(file.size() * left_out * share / 512); };
    write_file(names[0], file);
    write_file(names[1], begin_at(1));
    write_file(names[2], begin_at(2));

    Meter meter;
    const std::time_t plain = plain_last_time(names[0]);
    expect(time_by_blocks(file, sizes) == plain, "the scan by blocks agrees with the plain loop");
    expect(meter.last_record_time(names[0], 1, "tc_archives") == plain, "last_record_time agrees with the plain loop");
    check_set(meter, names);
    write_file(names[0], file);
    check_appended(meter, names[0]);
    std::remove((full_root() + "/tmp/arch.integrity.fail.1").c_str());
    return 0;
}
