#pragma once
// The bench of the VIST link and description tests: a scene, a line, a driver on it, a meter that says what it is told,
// and short words for what they leave behind.

#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "drivers/vist/hcd_vist.h"
#include "support/driver_bench.h"

/// A meter without sense: it answers each command with what is put down for it, unless something else is to be said
/// first. Outside of that it keeps silent.
class VistPuppet final : public sim::SimMeter {
  public:
    VistPuppet();

    /// What a command (with its numbers, without carriage return) is answered with from now on.
    void put(const std::string& command, const sim::ByteVector& bytes) { answers_[command] = bytes; }
    void put_body(const std::string& command, const std::string& body, int device = 0);
    /// A packet with a right size and a right sum.
    void put_packet(const std::string& command, int type, const sim::ByteVector& body);
    /// Said to the next requests, whatever they are; nothing at all is silence.
    VistPuppet& say(const sim::ByteVector& bytes, int times = 1);
    VistPuppet& say(const std::string& text, int times = 1);
    VistPuppet& keep_silent(int times = 1) { return say(sim::ByteVector{}, times); }

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    std::vector<std::string> heard;  ///< requests as they came

  private:
    std::map<std::string, sim::ByteVector> answers_;
    std::deque<sim::ByteVector> first_;
};

namespace vist_frames {

/// "HL0[1:device]{body}>"
sim::ByteVector text(const std::string& body, int device = 0);
/// "HPT", size, sum, type, body.
sim::ByteVector packet(int type, const sim::ByteVector& body);
sim::ByteVector raw(const std::string& bytes);

}  // namespace vist_frames

class VistBench : public DriverBench<HCD_VIST> {
  protected:
    /// The driver has network number 1 and is on the open line.
    explicit VistBench(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");

    /// The commands on the line so far, in a row, each with "|" for its carriage return.
    std::string sent() const;
    /// How often a command was sent.
    int sent_times(const std::string& command) const;

    VistPuppet meter;
};

/// The link by itself: the meter answers VER, VDC and MON G, and packets go to @intbuff.
class VistLinkBench : public VistBench {
  protected:
    VistLinkBench();

    bool ask(std::span<const VISTRequest> rows, int rec_count = VISTFunctions::NoPosition) {
        return link.do_request(rows, rec_count);
    }
    /// The first bytes of a named buffer.
    std::vector<int> buffer(int index, std::size_t count);

    VISTFunctions& link = driver->functions;
};

/// What a description asks for, put down in the puppet: version 102, one device, order of bytes big-endian.
class VistDescribedBench : public VistBench {
  protected:
    VistDescribedBench();

    void put_version(int version);
    void put_devices(int count) { meter.put_body("VDC", "VDC=" + std::to_string(count)); }
    /// The three texts of the meter, each with a zero behind it.
    void put_specials(const std::string& firmware, const std::string& model, const std::string& serial);
    /// The packet of MON G without values; version 102 has a clock in it, 2024-03-02 10:04:58.
    void put_byte_order(bool little, bool with_clock = true);
    /// The record of a virtual device as it stands in `record`.
    void put_record() { meter.put_packet("/SYS SPC 1", 31, record); }
    bool describe() { return driver->get_description(); }

    sim::ByteVector record = sim::ByteVector(151, 0);
    sim::ByteVector config = sim::ByteVector(26, 0);
};
