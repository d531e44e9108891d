#pragma once
// The stand of the SA94 tests: a scene, a driver on an open line, a meter that says what is put down for it byte by
// byte, and short words for what they leave behind.

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "drivers/sa94/sa94.h"
#include "support/driver_stand.h"

/// A meter without sense on address 0x12345. It answers a connect with its status byte, a block with the bytes that
/// were put there (an erased one otherwise), a parameter with its four bytes (zeros otherwise), and nothing else.
class Sa94Puppet final : public sim::SimMeter {
  public:
    void put_block(unsigned segment, unsigned block, sim::ByteVector bytes);
    void put_parameter(unsigned code, std::array<std::uint8_t, 4> bytes) {
        parameters_[code] = {bytes.begin(), bytes.end()};
    }
    /// The firmware's block: the text stands behind its first byte.
    void put_firmware(const std::string& text);
    /// Codes of the pipes: DN, greatest flow, least flow.
    void put_tubes(std::array<std::uint8_t, 3> first, std::array<std::uint8_t, 3> second);

    /// Said to the next requests, whatever they are; nothing at all is silence.
    void say(const sim::ByteVector& bytes, int times = 1);
    void keep_silent(int times = 1) { say({}, times); }
    /// No answer to these requests any more ("C4 46 45").
    void be_deaf_to(const std::string& request) { deaf_to_.push_back(request); }

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    std::uint8_t status = 0;
    std::function<void(const std::string& request)> listener;  ///< called with each request before its answer
    std::vector<std::string> heard;                            ///< "C4 46 45"

  private:
    sim::ByteVector answer_to(std::span<const std::uint8_t> request) const;

    std::map<std::pair<unsigned, unsigned>, sim::ByteVector> blocks_;
    std::map<unsigned, sim::ByteVector> parameters_;
    std::deque<sim::ByteVector> first_;
    std::vector<std::string> deaf_to_;
};

/// The bytes of a record, of a block or of a reply.
class Sa94Bytes {
  public:
    explicit Sa94Bytes(std::size_t size, std::uint8_t filling = 0) : bytes_(size, filling) {}

    Sa94Bytes& put(std::size_t at, const sim::ByteVector& bytes);
    /// Bytes 1 to 3, in the hexadecimal digits that a meter shows: 0x02, 0x03, 0x24.
    Sa94Bytes& date(int day, int month, int year);
    Sa94Bytes& hour(int hour);
    /// Of an error: hour, minute, second.
    Sa94Bytes& clock(int hour, int minute, int second);
    Sa94Bytes& real(std::size_t at, float value);
    Sa94Bytes& word(std::size_t at, unsigned value);
    /// Puts a record at its place.
    Sa94Bytes& record(std::size_t position, const Sa94Bytes& record);

    const sim::ByteVector& bytes() const { return bytes_; }

  private:
    sim::ByteVector bytes_;
};

namespace sa94_bytes {

/// Two digits as a meter keeps them.
std::uint8_t bcd(int number);
/// The four bytes of a float: exponent, sign and mantissa.
sim::ByteVector real(float value);
/// A whole block of 0xFF.
Sa94Bytes erased_block();
/// A request whose reply is a block with these records, erased behind them.
SA94Request reply_of(const std::vector<Sa94Bytes>& records);

}  // namespace sa94_bytes

/// Restores what the drivers of a test have renamed for the whole process.
class Sa94NamesKept {
  public:
    Sa94NamesKept() = default;
    ~Sa94NamesKept() { CurrentParameters = before_; }
    Sa94NamesKept(const Sa94NamesKept&) = delete;
    Sa94NamesKept& operator=(const Sa94NamesKept&) = delete;

  private:
    std::array<SA94ParameterRow, 11> before_ = CurrentParameters;
};

class Sa94Stand : public DriverStand<SA94> {
  protected:
    static constexpr const char* Connect = "C4 46 45";
    static constexpr const char* Disconnect = "01";
    static constexpr const char* ReadFirmware = "A0 02";
    static constexpr const char* ReadTubes = "A0 00";

    /// `start` is local time in `zone`.
    explicit Sa94Stand(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");

    /// A new driver with its settings, on the open line.
    SA94& start_driver();
    /// The driver has learnt who its meter is, and nothing of that has left a trace: no item, no log, no time.
    void identify(int firmware_id, int status = 0x06);
    void clear_logs();
    /// A new driver whose files have told that its archives are read up to these times, and are gone since.
    void resume(std::time_t hourly, std::time_t daily = 0, std::time_t errors = 0);

    Texts items() const { return scene.list("/tmp/m1/1/tc_items"); }

    /// The requests on the line so far.
    const Texts& sent() const { return meter.heard; }
    int sent_times(const std::string& request) const;

    Sa94Puppet meter;

  private:
    Sa94NamesKept names_kept_;
};
