#pragma once
// The stand of the VIST archive tests: a scene, a line, a driver on it, packets made by hand, and short words for what
// they leave behind.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "drivers/vist/hcd_vist.h"
#include "drivers/vist/vist_base.h"
#include "support/driver_stand.h"
#include "vist_meter.h"

std::string vist_line(const sim::VistFileValue& value);

class VistArchiveStand : public DriverStand<HCD_VIST> {
  protected:
    /// `start` is local time in `zone`.
    explicit VistArchiveStand(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");
    ~VistArchiveStand() override;

    /// A new driver for network number 1 on the open line, as after the start of the daemon.
    HCD_VIST& start_driver();
    /// start_driver with the meter on the line, then the description, and nothing heard so far.
    HCD_VIST& start_described(sim::VistMeter& meter);

    /// The same line of quality 192 and value 1 in all staged files of a list.
    void leave_record(std::time_t time, int n = 1);
    void leave_header(std::time_t time, int n = 1);

    int general_logged(const std::string& line) const;
    /// The commands on the line so far, without carriage return.
    Texts commands() const;

    std::unique_ptr<UniLog> general;
};

/// Bytes in the making, big-endian unless `little`.
class VistBytes {
  public:
    explicit VistBytes(bool little = false) : little_(little) {}
    VistBytes& n(std::uint64_t value, int width);
    VistBytes& b(std::initializer_list<int> values);
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

  private:
    bool little_;
    std::vector<std::uint8_t> bytes_;
};

/// "HPT", size, outer sum, type, body; the body's own sum at `inner_at` covers all that follows `inner_from`.
std::vector<std::uint8_t> vist_test_packet(int type, std::vector<std::uint8_t> body, std::size_t inner_at,
                                           std::size_t inner_from);

using VistDaemon = Daemon<VIST_base>;
