// An archive line, which is durable before the next one begins, and the way back: how far a file goes.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include "archive/archive_holder.h"
#include "core/local_time.h"
#include "ground.h"
#include "ratio.h"

namespace {

constexpr std::time_t Noon = 1709380800;  // 2024-03-02 12:00 UTC
constexpr int TenYearsOfHours = 87600;
constexpr const char* BareLine = "1709380800,192,12345.678901\n";

class Meter final : public ArchiveHolder {
  public:
    Meter() { uuid = Ground::Uuid; }
};

std::string archive_folder(const Ground& ground) {
    return ground.real_path("/mnt/storage/") + Ground::Uuid + "/1/tc_archives/";
}

/// A line that is as safe, by nothing but the system calls that this takes.
void append_bare(const char* path) {
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND, 0666);
    [[maybe_unused]] const ssize_t written = ::write(fd, BareLine, std::strlen(BareLine));
    ::fdatasync(fd);
    ::close(fd);
}

void append_line(benchmark::State& state) {
    const Ground ground(Ground::OnDisk);
    const DeskGateway machine(ground);
    const std::string path = archive_folder(ground) + "bare";
    const std::tm record_tm = local_time(Noon);
    Meter meter;
    const auto add_and_flush = [&] {
        meter.add_value("A1", 12345.678901);
        meter.flush_values(record_tm, 0, QualityGood, 1, 0);
    };
    compare(
        state, "an archive line", [&] { return seconds_of(1, add_and_flush); }, "bare open, write, fdatasync, close",
        [&] { return seconds_of(1, [&] { append_bare(path.c_str()); }); }, times_as_long(1.2));
}

void write_ten_years(const std::string& path) {
    std::ofstream file(path);
    for (int hour = 0; hour < TenYearsOfHours; ++hour) {
        file << archive_line(200, Noon + hour * 3600L, QualityGood, 20.0 + hour / 7.0);
    }
}

long plain_last_time(const char* path) {
    std::FILE* const file = std::fopen(path, "r");
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

void last_time(benchmark::State& state) {
    const Ground ground(Ground::InMemory);
    const DeskGateway machine(ground);
    const std::string path = archive_folder(ground) + "A1";
    write_ten_years(path);
    const auto scan = [] { return Meter().last_record_time("A1", 1, "tc_archives"); };  // a meter with no memory of it
    const auto plain = [&] { return plain_last_time(path.c_str()); };
    if (scan() != plain() || scan() == 0) throw std::logic_error("last_record_time differs from the plain loop");
    compare(
        state, "last_record_time of ten years",
        [&] { return cpu_seconds_of(1, [&] { benchmark::DoNotOptimize(scan()); }); }, "fgets and sscanf",
        [&] { return cpu_seconds_of(1, [&] { benchmark::DoNotOptimize(plain()); }); }, times_faster(15.0));
}

BENCHMARK(append_line)->Name("archive/line")->Iterations(1000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(last_time)->Name("archive/last_time")->Iterations(40)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
