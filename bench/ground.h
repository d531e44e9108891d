#pragma once
// The ground that a benchmark stands on: a private folder for "/", and a machine with the operating system's own calls
// below that folder.

#include <string>

#include "desk_gateway.h"

/// A folder that stands for "/", with the directories of one meter; it goes when the object goes.
class Ground {
  public:
    /// Where the storage lies: in memory, or on the disk that the benchmark was started on. /tmp is in memory, as on a
    /// gateway: a file system on a disk would write an item out at each rewriting.
    enum Storage { InMemory, OnDisk };
    explicit Ground(Storage storage);
    ~Ground();
    Ground(const Ground&) = delete;
    Ground& operator=(const Ground&) = delete;

    const std::string& root() const { return root_; }
    /// Where a path of the gateway really lies.
    std::string real_path(const std::string& path) const { return root_ + path; }

    static constexpr const char* Uuid = "9b2f6c1e-0d53-4c58-9f0a-6d1f2a7c4b11";

  private:
    std::string root_;
    std::string storage_;
};

/// The system's machine on a ground, with a watch on the silences. In use as long as it lives.
class DeskGateway : public sim::DeskGateway {
  public:
    explicit DeskGateway(const Ground& ground) : sim::DeskGateway(ground.root()) {}

    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;

    /// Reads that ended in silence.
    int silences() const { return silences_; }
    /// How long these reads took.
    double silent_seconds() const { return silent_seconds_; }

  private:
    int silences_ = 0;
    double silent_seconds_ = 0.0;
};
