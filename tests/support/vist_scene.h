#pragma once
// The stand of the VIST link and description tests: a scene, a line, a driver on it, a meter that says what it is told,
// and short words for what they leave behind.

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "drivers/vist/hcd_vist.h"
#include "support/driver_stand.h"
#include "support/plain_driver.h"

/// A meter without sense: it answers each command with what is put down for it, unless something else is to be said
/// first. Outside of that it keeps silent.
class VistPuppet final : public sim::SimMeter {
  public:
    VistPuppet();

    /// What a command (with its numbers, without carriage return) is answered with from now on.
    void put(const std::string& command, const sim::ByteVector& bytes) { answers_[command] = bytes; }
    /// The same for the next time only.
    void put_once(const std::string& command, const sim::ByteVector& bytes) { once_[command] = bytes; }
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
    std::map<std::string, sim::ByteVector> once_;
    std::deque<sim::ByteVector> first_;
};

namespace vist_frames {

/// "HL0[1:device]{body}>"
sim::ByteVector text(const std::string& body, int device = 0);
/// "HPT", size, sum, type, body.
sim::ByteVector packet(int type, const sim::ByteVector& body);
sim::ByteVector raw(const std::string& bytes);

}  // namespace vist_frames

/// A driver for network number 1 on the open line, and the puppet at its other end.
template <typename Driver>
class VistStand : public DriverStand<Driver> {
  protected:
    VistStand() {
        this->machine.connect(Stand::Port, meter);
        // The driver prints its address at start; that is nobody's business here.
        Stand::quietly([this] { this->driver = std::make_unique<Driver>(Stand::Uuid); });
        const MeterSettings settings = Stand::settings_for(1);
        this->driver->take_settings(settings);
        this->driver->set_tty_fd(open_line(Stand::Port, LineOfVist, settings.tc_baud, settings.tc_parity));
    }

    /// The commands on the line so far, in a row, each with "|" for its carriage return.
    std::string sent() const {
        std::string all;
        for (const std::string& command : meter.heard) all += command;
        std::replace(all.begin(), all.end(), '\r', '|');
        return all;
    }
    /// How often a command was sent.
    int sent_times(const std::string& command) const {
        return static_cast<int>(std::count(meter.heard.begin(), meter.heard.end(), command + "\r"));
    }

    VistPuppet meter;
};

/// The link by itself: the meter answers VER, VDC and MON G.
class VistLinkStand : public VistStand<PlainDriver> {
  protected:
    VistLinkStand();

    bool ask(std::span<const VISTRequest> rows, int rec_count = VISTParameters::NoPosition);
    /// The first bytes that a conversation has left.
    std::vector<int> buffer(std::size_t count) const {
        return {area.begin(), area.begin() + static_cast<std::ptrdiff_t>(count)};
    }
    const VISTTraffic& traffic() const { return link->traffic(); }

    std::array<std::uint8_t, 300> area{};
    VISTParameters parameters{.device_num = 1, .current_buffer = area};
    VISTReply reply;
    std::vector<int> busy_flags;
    std::unique_ptr<UniLog> link_log = open_meter_log(Uuid, "txt");
    std::unique_ptr<VISTFunctions> link;
};

/// What a description asks for, put down in the puppet: version 102, one device, order of bytes big-endian.
class VistDescribedStand : public VistStand<HCD_VIST> {
  protected:
    VistDescribedStand();

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
