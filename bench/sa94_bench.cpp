// The SA94 driver: how many blocks it reads to find, in a full ring, the record that was stored last, for a block costs
// about a second; and what parsing a whole ring costs against moving its bytes.

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "drivers/sa94/sa94.h"
#include "ground.h"
#include "ratio.h"
#include "sa94_meter.h"

namespace {

constexpr std::time_t Noon = 1709380800;  // 2024-03-02 12:00 UTC
constexpr std::time_t Hour = 3600;
constexpr int Descriptor = 100000;  // no real descriptor is that high
constexpr std::size_t Records = 2048;
constexpr std::size_t Blocks = 1024;
constexpr double Reported = 1e9;  // told, and not wanted to be anything

/// The system's machine with a meter at the end of its line that answers at once. Logs and items have no place here.
class MeterMachine final : public DeskGateway {
  public:
    MeterMachine(const Ground& ground, sim::SimMeter& meter) : DeskGateway(ground), meter_(meter) {
        std::filesystem::remove_all(ground.real_path("/tmp/") + Ground::Uuid);
        for (const char* kind : {"messages", "debug", "general"}) {
            std::filesystem::create_directories(ground.real_path("/tmp/uni_logs.") + Ground::Uuid + "." + kind +
                                                ".txt");
        }
    }

    timeval time_of_day() override { return {.tv_sec = Noon, .tv_usec = 0}; }
    int drain_port(int /*fd*/) override { return 0; }
    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> bytes) override {
        const sim::Answer answer = meter_.hear(bytes, Noon);
        answer_ = answer.empty() ? sim::ByteVector{} : answer.front().bytes;
        read_ = 0;
        return static_cast<ssize_t>(bytes.size());
    }
    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> into) override {
        const std::size_t count = std::min(into.size(), answer_.size() - read_);
        std::copy_n(answer_.begin() + static_cast<std::ptrdiff_t>(read_), count, into.begin());
        read_ += count;
        return static_cast<ssize_t>(count);
    }

  private:
    sim::SimMeter& meter_;
    sim::ByteVector answer_;
    std::size_t read_ = 0;
};

/// A meter with 512 blocks a segment and hourly records, the last of them of 11:00.
struct Place {
    explicit Place(std::size_t records) {
        meter.fill(sim::Sa94Archive::Hourly, {.records = records, .newest = Noon - Hour});
        driver = std::make_unique<SA94>(Ground::Uuid);
        driver->take_settings({.tc_sernum = meter.config().address});
        driver->set_tty_fd(Descriptor);
        if (!driver->getFirmware() || !driver->getStatus()) throw std::logic_error("the meter is not known");
        SA94Request connect(static_cast<std::int32_t>(meter.config().address));
        connect.setConnect();
        if (!driver->Transact(connect, SA94::Attempts)) throw std::logic_error("the meter is silent");
    }

    Ground ground{Ground::InMemory};
    sim::Sa94Meter meter{{.firmware = "M301"}};
    MeterMachine machine{ground, meter};
    std::unique_ptr<SA94> driver;
};

// ---- resuming

std::size_t reads_of_search(Place& place, std::time_t time) {
    place.meter.forget_requests();
    int segment = -1;
    std::uint32_t block = 0;
    int position = -1;
    if (!place.driver->getRecordByTimestamp(HOURLY_DB, time, segment, block, position) || segment == -1) {
        throw std::logic_error("a record is not found");
    }
    return place.meter.requests(sim::Sa94Kind::Block);
}

/// The dearest of all searches for one of the last hundred records, at several fill levels of a ring that has turned.
/// Each block counts as a second. The segments' starts are two blocks, the look for the end takes up to ten steps in
/// each segment and two blocks more, the look for the time nine steps of up to two blocks, and one block, in each.
void resume_in_full_ring(benchmark::State& state) {
    constexpr double Most = 2 + 2 * 10 + 2 + 2 * (9 * 2 + 1);
    std::size_t dearest = 0;
    for (auto turn : state) {
        static_cast<void>(turn);
        for (const std::size_t more : {1U, 2U, 500U, 1023U, 1024U, 1025U, 1500U, 2047U}) {
            Place place(Records + more);
            for (int back = 1; back <= 100; ++back) {
                dearest = std::max(dearest, reads_of_search(place, Noon - back * Hour));
            }
        }
        state.SetIterationTime(static_cast<double>(dearest));
    }
    add_figure(state, "blocks read to resume in a full ring, a second each", static_cast<double>(dearest),
               "blocks of the ring", static_cast<double>(Blocks),
               {Most / static_cast<double>(Blocks), "at most " + std::to_string(static_cast<int>(Most)) + "/1024"});
}

// ---- parsing

/// The blocks of an archive, as replies.
std::vector<SA94Request> replies_of(const Place& place, int low_half) {
    std::vector<SA94Request> replies;
    for (const int segment : {low_half, otherSegment(low_half)}) {
        for (unsigned number = 0; number < Blocks / 2; ++number) {
            SA94Request& reply = replies.emplace_back(1);
            const auto block = place.meter.memory().block(static_cast<unsigned>(segment), number);
            std::copy(block.begin(), block.end(), reply.response.begin());
            reply.recv_length = BlockBytes;
        }
    }
    return replies;
}

/// Every record of the ring becomes fifteen lines, but the storage takes none of them: decoding and the wording of
/// lines and logs are measured.
void parse_whole_ring(benchmark::State& state) {
    Place place(Records);
    std::filesystem::remove_all(place.ground.real_path("/mnt/storage/") + Ground::Uuid);
    const std::vector<SA94Request> replies = replies_of(place, low_segment(HOURLY_DB));
    std::array<std::uint8_t, BlockBytes> copy{};
    compare(
        state, "parsing 2 x 512 blocks, without storage",
        [&] {
            return cpu_seconds_of(1, [&] {
                std::time_t newest = 0;
                int position = 0;
                for (const SA94Request& reply : replies) {
                    if (!place.driver->parseBlock(HOURLY_DB, reply, position, newest)) {
                        throw std::logic_error("a block ends the run");
                    }
                }
                if (newest != Noon - Hour) throw std::logic_error("the newest record was not parsed");
            });
        },
        "copying their bytes",
        [&] {
            return cpu_seconds_of(1, [&] {
                for (const SA94Request& reply : replies) {
                    std::copy_n(reply.response.begin(), copy.size(), copy.begin());
                    benchmark::DoNotOptimize(copy.data());
                    benchmark::ClobberMemory();
                }
            });
        },
        {Reported, "reported"});
}

/// A block costs a second on the line: what its parsing takes, in a ring with storage in memory, against that.
void parse_block(benchmark::State& state) {
    Place place(Records);
    const std::vector<SA94Request> replies = replies_of(place, low_segment(HOURLY_DB));
    double seconds = 0.0;
    for (auto turn : state) {
        static_cast<void>(turn);
        seconds = cpu_seconds_of(1,
                                 [&] {
                                     std::time_t newest = 0;
                                     int position = 0;
                                     for (const SA94Request& reply : replies) {
                                         place.driver->parseBlock(HOURLY_DB, reply, position, newest);
                                     }
                                 }) /
                  static_cast<double>(replies.size());
        state.SetIterationTime(seconds);
    }
    constexpr double OnTheLine = 0.9;  // the silence alone that ends an answer
    add_figure(state, "parsing a block, lines to storage in memory", seconds, "the silence behind a block", OnTheLine,
               share(20.0));
}

BENCHMARK(resume_in_full_ring)->Name("sa94/resume")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(parse_whole_ring)->Name("sa94/parse")->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(parse_block)->Name("sa94/block")->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
