#pragma once
// The stands of the SA94 archive tests. One has a line without time, for thousands of searches; the other has a scene
// with a line in virtual time, for passes that leave files behind. Both have a simulated meter with a memory of its
// own.

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drivers/sa94/sa94.h"
#include "sa94_meter.h"
#include "support/bare_gateway.h"
#include "support/sa94_scene.h"
#include "support/scene.h"

/// A line whose answers lie there as soon as the request is written. Nothing can be stored on this machine.
class Sa94FastLine final : public BareGateway {
  public:
    Sa94FastLine(const std::string& root, sim::SimMeter& meter) : BareGateway(root), meter_(meter) {}

    timeval time_of_day() override { return {.tv_sec = now, .tv_usec = 0}; }
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;
    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override;

    std::time_t now = 1709373900;  // 2024-03-02 10:05 UTC
    std::size_t exchanges = 0;

  private:
    sim::SimMeter& meter_;
    sim::ByteVector answer_;
    std::size_t read_ = 0;
};

/// A place in a ring, for comparing and printing; `segment` is -1 for no place at all.
struct Sa94Place {
    int segment = -1;
    std::uint32_t block = 0xFFFFFFFF;
    int position = -1;

    bool operator==(const Sa94Place&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Sa94Place& place);

/// A ring that is written record by record at an even step, and a search that is in conversation with its meter. The
/// logs are muted.
class Sa94Ring {
  public:
    /// Memory of 512 or of 128 blocks a segment.
    Sa94Ring(sim::Sa94Archive archive, bool extended, sim::Sa94Turning turning = sim::Sa94Turning::EraseSegment,
             const std::string& zone = "UTC");
    ~Sa94Ring();

    void append(std::size_t records);
    void append_at(std::time_t time);
    void append_bytes(const sim::ByteVector& record) { meter.store_raw(archive, record); }
    /// Time of the k-th record ever written, from 0 on.
    std::time_t at(std::size_t k) const { return begin_ + static_cast<std::time_t>(k) * step_; }
    std::size_t written() const { return written_; }
    std::size_t capacity() const { return shape().capacity(); }
    std::size_t per_block() const { return shape().records_per_block(); }
    sim::Sa94Shape shape() const { return meter.memory().shape(archive); }
    int type() const { return static_cast<int>(archive); }
    int low() const { return static_cast<int>(shape().low_segment); }
    int high() const { return low() + 1; }
    /// Where the k-th record of a ring that has not turned lies.
    Sa94Place place_of(std::size_t k) const;
    sim::Sa94Memory::Block block(int segment, std::uint32_t number) {
        return meter.memory().block(static_cast<unsigned>(segment), number);
    }
    /// The bytes of a record with this time.
    sim::ByteVector record(std::time_t time) const;

    /// A search that must not fail, with nothing heard before it.
    Sa94Place find(std::time_t time) { return find(search, time); }
    Sa94Place find(const SA94Search& by, std::time_t time);
    /// The same of the end of the archive.
    Sa94Place end();
    /// What the search has read, as "2/64 2/32".
    std::string blocks_read() const;
    std::size_t reads() const { return meter.requests(sim::Sa94Kind::Block); }

    const sim::Sa94Archive archive;

    std::int32_t address() const { return static_cast<std::int32_t>(meter.config().address); }
    /// A search that takes the memory for one of this size.
    SA94Search search_in(SA94Memory memory) const { return {link, logs_, memory, address()}; }

  private:
    Scene scene_;
    SA94Logs logs_;

  public:
    sim::Sa94Meter meter;
    Sa94FastLine line;
    const SA94Link link;
    const SA94Search search;

  private:
    std::time_t begin_;
    std::time_t step_;
    std::size_t written_ = 0;
};

// ---- passes

/// "%ld,%d,%f" with its line end.
std::string sa94_line(std::time_t time, int quality, double value);
std::string sa94_line(const sim::Sa94FileValue& value);

class Sa94ArchiveStand : public DriverStand<SA94> {
  protected:
    using DriverStand::DriverStand;

    /// A new driver for the meter's address on the open line, as after the start of the daemon.
    SA94& start_driver(const sim::Sa94Meter& meter);
    /// start_driver with the meter alone on the line, then the description, and nothing heard so far.
    SA94& start_described(sim::Sa94Meter& meter);
    /// The same, with this time in this file, which is empty since.
    SA94& start_behind(sim::Sa94Meter& meter, const std::string& file, std::time_t last);
    std::unique_ptr<SA94> new_driver() const;
    /// Drivers from now on write no logs: a long test takes half the time without them.
    void mute_logs() { muted_ = true; }

    /// What stands in the archive files, with the line ends; files without lines and those of the energy totals are
    /// left out.
    LineCounts lines() const;
    /// The lines of records from the `first` up to, without, the `end`.
    static void count(LineCounts& counts, const sim::Sa94Meter& meter, sim::Sa94Archive archive, std::size_t first,
                      std::size_t end, int times = 1);
    static LineCounts all_lines(const sim::Sa94Meter& meter, sim::Sa94Archive archive);

  private:
    Sa94NamesKept names_kept_;
    bool muted_ = false;
};
