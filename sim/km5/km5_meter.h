#pragma once
// A simulated heat meter of the KM5 family (KM5-1..6, KM5-6i, AT-T) as it stands on a serial line.
//
// In a test:
//
//     sim::Km5Meter meter({.serial = 12345678, .model = 2, .firmware = "2.15"});
//     gateway.connect("/dev/ttyS1", meter);                                  // or meter.hear(request, now) by hand
//     meter.set_value("T1", 71.25F);                                         // a present value, by name
//     meter.store_hourly({.at = "2024-03-02 11:00", .T1 = 71.25F, .IM1 = 120.5F});  // fields in the wire's order
//     meter.store_event("2024-03-02 10:37:20", 0x85);
//     meter.record_archives(true, "2024-03-02 00:00");                       // records by itself from then on
//     meter.misbehave_next(10, sim::km5_error(0xF0));                        // then ...
//     meter.misbehave_next(1, sim::km5_wrong_cs1().on(44, 5));               // ... page 5 of the values, once
//     meter.set_clock("2024-03-02 10:57:00", now);
//     EXPECT_EQ(meter.requests(65), 12);
//
// The last argument of most calls is the subsystem, counted from 0; only a KM5-6i has others than 0.
//
// The wire. The meter never speaks unasked. Every request is 16 bytes:
//
//     0..3   address        serial number as four packed BCD pairs, the lowest pair first: 12345678 is 78 56 34 12.
//                           In a KM5-6i the low nibble of byte 3 is the subsystem 0..2 in the place of the digit.
//     4      command
//     5..13  arguments, called data[0..8] below; what is not used is 0
//     14     CS1            exclusive or of bytes 0..12 (byte 13 stays out)
//     15     CS2            sum of bytes 0..13, modulo 256
//
// The meter answers nothing to another length, another address or wrong sums. An answer is
//
//     0..3   the address of the request
//     4      the command, or 0xEF, 0xF0, 0xF1, 0xFB for an error; this one says 0xEF to an unknown command and 0xF0 to
//            an argument that it has nothing for
//     5..    payload
//     n-2    CS1            exclusive or of bytes 0..n-3
//     n-1    CS2            sum of bytes 0..n-3, modulo 256
//
// There is no length field; an answer has ended when the line falls silent, and has at most 72 bytes. All numbers are
// little-endian; floats are IEEE 754 of four bytes. A date block has eight bytes: not used, day, month 1..12, year
// within the century, not used, hour, minute, second, all packed BCD and local time of the meter.
//
//     command      data                       answer (positions in the whole answer)                           length
//      0           -                          5..8 address, 9 model counted from 0                                 16
//      8           -                          5..11 status bits                                                    14
//      9           -                          5..8 firmware text, 11..14 type letters                              17
//     14           0 parameter, 1 length      5.. the parameter, `length` bytes                            7 + length
//     44  ','      0 page                     page 0: 5..12 the clock; others: floats, see km5_values.cpp      various
//     123 '{'      0                          floats from 5 to 68                                                  71
//     95  '_'      0                          floats from 5 to 40                                                  43
//     51  '3'      0 archive                  5 flag, 6..7 first index, 8..15 its date, 16..17 last index,         30
//                                             18..25 its date, 26..27 number of records
//     52  '4'      0 archive, 1 day, 2 month, 6..7 index of the record of that hour, or the first after it         10
//                  3 year, 4 hour, BCD
//     65  'A'      0 archive 0..3, 1..4 index 5..12 date block, 13..68 fourteen floats                             71
//     55  '7'      0 the number 4, 1..4 index 5 event code, 6..8 day month year, 10..12 hour minute second         15
//
// In the date of command 52 each digit counts for itself, so that 0x0A is 10 as 0x10 is: both mean October. A date
// beyond the newest record gives the newest index.
//
// Archives are rings, indexed from 0: 0 hourly, 1 daily, 2 monthly, 3 yearly, 4 errors. An empty ring says 0, 0, 0 and
// has bit 7 of the flag set; one that fills says 0, n-1, n; one that has turned says the oldest, the newest, capacity,
// with the oldest above the newest (but for the moment when the oldest is 0 again). The payload of an index that holds
// nothing is erased memory, all 0xFF.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "km5_faults.h"
#include "km5_memory.h"
#include "km5_types.h"
#include "meter_life.h"

namespace sim {

class Km5Meter final : public MeterLife<Km5Fault, Km5Heard, std::uint8_t> {
  public:
    explicit Km5Meter(Km5Config config = {});

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    // ---- present state

    /// Sets the value in all pages that carry `name` on this model: IE1 IM1 IM2 IT1 Q1 M1 P1 P2 T1 T2 Q2 M2 Q4 M4 T5 T4
    /// M5 T3 Ta P4 IE2 T6 Tp, and by model IM3 IM4 IM5 IE4 Vi IQ1 IQ2. Another name throws std::invalid_argument.
    void set_value(const std::string& name, float value, unsigned subsystem = 0);
    /// Sets one float of one page, over what its name says: {.command = 44, .page = 5, .position = 9}.
    void set_value_at(const Km5Place& place, float value, unsigned subsystem = 0);
    float value(const std::string& name, unsigned subsystem = 0) const;
    void set_eeprom(int number, float value, unsigned subsystem = 0);
    /// `position` is the answer position, 5..11.
    void set_status(std::size_t position, std::uint8_t value, unsigned subsystem = 0);

    // ---- clock

    /// What the meter's clock shows when a right clock shows `now`.
    std::time_t clock(std::time_t now) const;
    /// From `now` on the clock shows `shown`, and drifts from there. Records are neither made up nor taken back.
    void set_clock(const Km5When& shown, std::time_t now);

    // ---- archives

    void store_hourly(const Km5Record& record, unsigned subsystem = 0);
    void store_daily(const Km5Record& record, unsigned subsystem = 0);
    void store_monthly(const Km5Record& record, unsigned subsystem = 0);
    void store_yearly(const Km5Record& record, unsigned subsystem = 0);
    void store(Km5Archive archive, const Km5Record& record, unsigned subsystem = 0);
    void store_event(const Km5When& at, std::uint8_t code, unsigned subsystem = 0);

    /// With `on` the meter stores by itself, in every subsystem, an hourly record at each full hour and a daily one at
    /// each midnight of its own clock, the first one after `from`; values are those of recorded_value. It is done when
    /// the meter next hears anything (or on catch_up), so that a record is there whenever somebody can ask for it.
    /// Every hour that passes has its record: none is dated in the hour that spring leaves out, two are dated in the
    /// hour that autumn repeats.
    void record_archives(bool on, const Km5When& from = {});
    void catch_up(std::time_t now);

    /// The value of field k (0..13, see Km5FieldNames) in a record that a meter stored by itself. Totals grow with
    /// time; no two fields, subsystems or archives agree at one time. All values are exact in eighths or 64ths.
    static float recorded_value(std::uint32_t serial, unsigned subsystem, Km5Archive archive, std::time_t record_time,
                                std::size_t field);
    static Km5Floats recorded_values(std::uint32_t serial, unsigned subsystem, Km5Archive archive,
                                     std::time_t record_time);

    /// The next index of the ring passes without a record.
    void leave_gap(Km5Archive archive, unsigned subsystem = 0);
    /// What was stored at `index` reads as erased memory from now on. Throws std::out_of_range outside the ring.
    void erase_record(Km5Archive archive, std::size_t index, unsigned subsystem = 0);
    /// The ring is empty again and starts at 0; what was ever stored stays known to records() and events().
    void erase_archive(Km5Archive archive, unsigned subsystem = 0);
    /// The meter claims these bounds, whatever the ring holds; without bounds the true ones again.
    void claim_bounds(Km5Archive archive, std::optional<Km5Bounds> bounds, unsigned subsystem = 0);

    // ---- another meter

    /// The meter is taken off the line and another one is put there, with a memory of its own. What was heard, the
    /// misbehaviour and a running record_archives go on.
    void swap_for(Km5Config config);
    void set_serial(std::uint32_t serial);
    void set_model(int model);
    void set_type(bool att, bool km56i, unsigned subsystems = 1);
    void set_firmware(const std::string& text);

    // ---- what a test looks at

    const Km5Config& config() const { return config_; }
    /// The address of a subsystem as on the wire.
    std::array<std::uint8_t, 4> address(unsigned subsystem = 0) const;
    /// All that was ever stored, oldest first, overwritten or not. Throws std::invalid_argument for Errors.
    const std::vector<Km5StoredRecord>& records(Km5Archive archive, unsigned subsystem = 0) const;
    const std::vector<Km5StoredEvent>& events(unsigned subsystem = 0) const;
    Km5Bounds bounds(Km5Archive archive, unsigned subsystem = 0) const;

    std::size_t requests() const;
    std::size_t requests(std::uint8_t command) const;
    /// Requests of 16 bytes to this meter that had wrong sums.
    std::size_t refused() const { return refused_; }
    void forget_requests();

  private:
    Km5Memory& memory(unsigned subsystem);
    const Km5Memory& memory(unsigned subsystem) const;
    std::optional<unsigned> addressed(std::span<const std::uint8_t> request) const;
    void record_at(Km5Archive archive, std::time_t time);
    void change(Km5Config config);

    // Payloads of km5_answers.cpp; nothing stands for an argument that the meter has nothing for.
    using Payload = std::optional<ByteVector>;
    static bool knows(std::uint8_t command);
    ByteVector answer_frame(const Km5Heard& heard) const;
    Payload payload(const Km5Heard& heard) const;
    Payload identity(const Km5Heard& heard) const;
    Payload version() const;
    Payload parameter(const Km5Heard& heard) const;
    Payload page(const Km5Heard& heard) const;
    Payload ring_bounds(const Km5Heard& heard) const;
    Payload index_by_date(const Km5Heard& heard) const;
    Payload record(const Km5Heard& heard) const;
    Payload event(const Km5Heard& heard) const;

    Km5Config config_;
    std::vector<Km5Memory> memories_;  // always three; a meter of another type uses the first
    Km5Random garbage_{1};

    RecordTimes hours_;
    RecordTimes days_;
    std::size_t refused_ = 0;
};

}  // namespace sim
