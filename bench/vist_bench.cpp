// The VIST driver: what decoding a packet costs against moving its bytes, and what it costs to find out, in each pass,
// how far the 28 files of a device go.

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "archive/archive_holder.h"
#include "drivers/vist/vist_decode.h"
#include "ground.h"
#include "ratio.h"
#include "vist_memory.h"
#include "vist_packets.h"

namespace {

constexpr std::time_t Noon = 1709380800;  // 2024-03-02 12:00 UTC
constexpr int TenYearsOfHours = 87600;
constexpr int DecodedPerTurn = 200;
constexpr double Reported = 1e9;  // told, and not wanted to be anything

const std::array<std::string, 8> HeaderNames = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
const std::array<std::string, 20> DataNames = {"A2",  "A3",  "A5",  "A7",  "A9",  "A11", "A13", "A15", "A20", "A21",
                                               "A22", "A17", "A18", "A19", "A28", "A25", "A26", "A27", "A24", "A23"};

class Meter final : public ArchiveHolder {
  public:
    Meter() { uuid = Ground::Uuid; }

    /// What a pass does before it asks its meter for anything.
    std::time_t resume() {
        return check_integrity(HeaderNames.data(), HeaderNames.size(), 1, 1) +
               check_integrity(DataNames.data(), DataNames.size(), 1, 1);
    }
};

/// Storage in memory, with the directory of staged files.
class VistGround {
  public:
    VistGround() : ground(Ground::InMemory), machine(ground) {
        const std::string folder = ground.real_path("/mnt/storage/") + Ground::Uuid + "/1/";
        std::filesystem::create_directories(folder + "tmp_archives");
    }
    std::string staged(const std::string& name) const {
        return ground.real_path("/mnt/storage/") + Ground::Uuid + "/1/tmp_archives/" + name;
    }
    Ground ground;
    DeskGateway machine;
};

// ---- decoding

struct Decoder {
    const char* name;
    sim::ByteVector packet;
    void (*decode)(PacketBuffer buffer);
};

Decoder decoder_of(int kind) {
    const sim::VistMemory memory(sim::VistDevice{}, 0, 10);
    const sim::VistWriting writing{};
    const sim::VistWhen noon(Noon);
    switch (kind) {
        case 0:
            return {
                "an integrator packet",
                sim::vist_packet(sim::VistTimedIntegrators, sim::vist_integrators_body(writing, memory, noon.date())),
                [](PacketBuffer buffer) { benchmark::DoNotOptimize(vist::decode_values(buffer, false, 102, {})); }};
        case 1:
            return {"a moment packet", sim::vist_packet(sim::VistMoments, sim::vist_moments_body(writing, memory)),
                    [](PacketBuffer buffer) { benchmark::DoNotOptimize(vist::decode_values(buffer, true, 102, {})); }};
        case 2:
            return {"an archive header",
                    sim::vist_packet(sim::VistArchiveHeader,
                                     sim::vist_header_body(writing, memory, {.time = Noon, .date = noon.date()}, 0)),
                    [](PacketBuffer buffer) { benchmark::DoNotOptimize(vist::decode_header(buffer)); }};
        default:
            return {
                "an archive record",
                sim::vist_packet(sim::VistArchiveRecord, sim::vist_record_body(writing, memory.device.archive_mask,
                                                                               {.time = Noon, .date = noon.date()})),
                [](PacketBuffer buffer) {
                    vist::ArchiveHeader header;
                    header.fSwapArch = true;
                    header.arch_mask = sim::VistDevice{}.archive_mask;
                    benchmark::DoNotOptimize(vist::decode_record_time(buffer));
                    benchmark::DoNotOptimize(vist::decode_record(buffer, header));
                }};
    }
}

void decode_packet(benchmark::State& state) {
    const Decoder decoder = decoder_of(static_cast<int>(state.range(0)));
    std::array<std::uint8_t, 300> buffer{};
    const auto put = [&] { std::copy(decoder.packet.begin(), decoder.packet.end(), buffer.begin()); };
    compare(
        state, decoder.name,
        [&] {
            return cpu_seconds_of(DecodedPerTurn, [&] {
                put();
                decoder.decode(buffer);
            });
        },
        "copying its bytes",
        [&] {
            return cpu_seconds_of(DecodedPerTurn, [&] {
                put();
                benchmark::DoNotOptimize(buffer.data());
                benchmark::ClobberMemory();
            });
        },
        {Reported, "reported"});
}

// ---- resuming

void write_ten_years(const VistGround& place) {
    for (const auto& name : HeaderNames) {
        std::ofstream file(place.staged(name));
        for (int hour = 0; hour < TenYearsOfHours; ++hour) {
            file << archive_line(200, Noon + hour * 3600L, QualityGood, 20.0 + hour / 7.0);
        }
    }
    for (const auto& name : DataNames) {
        std::filesystem::copy_file(place.staged("A1"), place.staged(name));
    }
}

/// A set of files is looked at again when nothing has been written since: files that changed in the last two seconds
/// are not remembered, so the first pass comes later than that.
void resume_ten_years(benchmark::State& state) {
    const VistGround place;
    write_ten_years(place);
    constexpr auto UntilFilesAreOld = std::chrono::seconds(3);
    std::this_thread::sleep_for(UntilFilesAreOld);
    Meter known;
    if (known.resume() != 2 * (Noon + (TenYearsOfHours - 1) * 3600L)) throw std::logic_error("the files do not agree");
    compare(
        state, "second check_integrity of 28 files, ten years",
        [&] { return cpu_seconds_of(1, [&] { benchmark::DoNotOptimize(known.resume()); }); }, "the first",
        [] {
            Meter stranger;
            return cpu_seconds_of(1, [&] { benchmark::DoNotOptimize(stranger.resume()); });
        },
        times_faster(20.0));
}

BENCHMARK(decode_packet)
    ->Name("vist/decode")
    ->DenseRange(0, 3)
    ->Iterations(50)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(resume_ten_years)->Name("vist/resume")->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
