#pragma once
// A simulated VIST heat meter with the text and packet dialect, as it stands on a serial line.
//
// In a test:
//
//     sim::VistMeter meter({.network = 7, .serial = 40123, .version = 102});
//     gateway.connect("/dev/ttyS1", meter);                                // or meter.hear(request, now) by hand
//     meter.set_value("T1", {.number = 7125, .scale = 2});                 // 71.25
//     meter.store_hourly({.at = "2024-03-02 11:00", .IM1 = 120.5, .T1 = 71.2});  // fields in the wire's order
//     meter.record_archives(true, "2024-03-02 00:00");                     // records by itself from then on
//     meter.spoil_record("2024-03-02 11:00", 2);                           // a wrong inner sum, twice
//     meter.misbehave_next(5, sim::vist_error("E:PWD").on("VER"));
//     meter.misbehave_next(1, sim::vist_halved().on("/MON C", 1));         // once, in virtual device 1
//     EXPECT_EQ(meter.requests("/ARC/DLD SET"), 1U);
//     for (const auto& line : meter.record_files(meter.records().back())) ...  // what ought to be in the archive files
//
// The last argument of most calls is the virtual device, counted from 0.
//
// The wire. The meter never speaks unasked. A request is one line of text, words with a blank between them, ended with
// a carriage return. The meter takes the last line of a burst and leaves out what stands before it and is no text. It
// answers with a text frame or a packet; neither has a line end, and the line's silence ends both.
//
//     text frame   HL0[network:device]{BODY}>
//     packet       0..2 "HPT", 3 size: bytes that follow this byte, 4 sum of all bytes from 5 on, modulo 256, 5 type,
//                  6.. body
//
// A dialog. Many meters hang on one line, each with its network number.
//
//     command         answer                        what it does
//     CALL n          {NAME=...}                    opens the dialog with meter n, in virtual device 0; anew if it is
//                                                   open. A meter with another number says nothing, and closes its own
//     VDN n           {NAME=...}                    selects virtual device n: the frame head names it from now on
//     END             nothing, or {OK}              closes the dialog
//     .               {OK}
//     VER             {VER=102}                     version of the software
//     VDC             {VDC=2}                       number of virtual devices
//     /ARC/DLD RC     {RC=1536}                     hourly records of the selected device
//     /ARC/DLD SET n  {OK}                          the n-th record counted back from the newest; 1 is the newest
//     /ARC/DLD OLD    {OK}                          the oldest record
//     /ARC/DLD H      packet 20, archive header
//     /ARC/DLD =      packet 21, archive record     the record where the meter stands
//     /ARC/DLD +      packet 21                     the next newer one
//     /ARC/DLD -      packet 21                     the next older one
//     /SYS SPC 0      packet 30, specials           firmware, model, serial number
//     /SYS SPC 1      packet 31, device specials    name, type, limits, formula
//     /SYS CFG 1      packet 33, configuration      nominal diameters
//     /MON G          packet 10, integrators        running totals
//     /MON TG         packet 12                     the clock, then the same; from version 102 on
//     /MON C          packet 11, moment values
//
// The bodies of the packets stand in vist_packets.h. Numbers are in the meter's byte order (bit 7 of `enumer`: set is
// little-endian), but for those that are big-endian in every meter.
//
// What goes wrong is said by an error word in a text frame, also where a packet is due: E:CMD for an unknown command,
// E:NPAR for a wrong number of words, E:PARAM for a word that the meter has nothing for, E:PWD from a meter that wants
// a password (this one never does of itself). Outside a dialog there is no answer at all.
//
// The archive. Each virtual device has a ring of hourly records, each dated at the end of its hour. Where the meter
// stands in it belongs to the dialog: CALL and VDN put it at the newest record, + and - move it and read, and it stays
// at its record while newer ones come in. + at the newest record, - at the oldest, and any reading of an empty ring are
// E:PARAM and move nothing. SET 0 is E:PARAM. SET beyond the oldest record goes to the oldest, unless the configuration
// says otherwise. The header is dated at the last full hour of the meter's clock, whether that has a record or not.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "meter_life.h"
#include "vist_faults.h"
#include "vist_memory.h"
#include "vist_packets.h"
#include "vist_types.h"

namespace sim {

class VistMeter final : public MeterLife<VistFault, VistHeard, std::string> {
  public:
    explicit VistMeter(VistConfig config = {});

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    // ---- present state

    /// Names as in VistDevice::values. Another name, or a number too wide for its field, throws std::invalid_argument.
    void set_value(const std::string& name, VistValue value, unsigned device = 0);
    VistValue value(const std::string& name, unsigned device = 0) const;
    void set_status(const std::array<std::uint8_t, 4>& status, unsigned device = 0);
    /// The device as it is set up now, to be changed at will: masks, formula, limits, name, precisions. What is stored
    /// keeps its numbers. Values are better set by set_value, which looks at them.
    VistDevice& device(unsigned device = 0);

    // ---- clock

    /// What the meter's clock shows when a right clock shows `now`.
    std::time_t clock(std::time_t now) const;
    /// From `now` on the clock shows `shown`, and drifts from there. Records are neither made up nor taken back.
    void set_clock(const VistWhen& shown, std::time_t now);

    // ---- archive

    void store_hourly(const VistRecord& record, unsigned device = 0);

    /// With `on` the meter stores by itself, in every device, a record at each full hour of its own clock, the first
    /// one after `from`; numbers are those of recorded_number. It is done when the meter next hears anything (or on
    /// catch_up), so that a record is there whenever somebody can ask for it. Every hour that passes has its record:
    /// none is dated in the hour that spring leaves out, two are dated in the hour that autumn repeats.
    void record_archives(bool on, const VistWhen& from = {});
    void catch_up(std::time_t now);
    /// The record of that hour will not be made, in no device: a hole.
    void miss_hour(const VistWhen& at);

    /// The number of field k (mask bit) in a record that a meter stored by itself. Devices differ at any one time.
    /// T3 is 600.0 (broken) in every 24th hour, P2 is 0 in another, the status says something in a third.
    static std::int64_t recorded_number(std::uint32_t serial, unsigned device, std::time_t record_time,
                                        std::size_t field);
    /// Total k of an archive header of that time, in the wire's order, when set_totals has not said otherwise. Totals
    /// grow with time; the last one takes more than 32 bits.
    static std::int64_t recorded_total(std::uint32_t serial, unsigned device, std::time_t header_time,
                                       std::size_t total);

    /// Each names the newest record of that date; std::out_of_range when there is none.
    void spoil_record(const VistWhen& at, std::size_t readings = VistForever, unsigned device = 0);  ///< inner sum
    void erase_record(const VistWhen& at, unsigned device = 0);   ///< reads as 0xFF from now on
    void remove_record(const VistWhen& at, unsigned device = 0);  ///< leaves a hole, and one record less
    void erase_archive(unsigned device = 0);

    void spoil_header(std::size_t readings = VistForever, unsigned device = 0);
    /// The header tells these from now on; std::nullopt ends it. A total that is too wide throws std::invalid_argument.
    void claim_counts(std::optional<VistCounts> counts, unsigned device = 0);
    void set_header_time(std::optional<VistWhen> time, unsigned device = 0);
    void set_totals(std::optional<std::array<std::int64_t, VistTotals>> totals, unsigned device = 0);

    // ---- another meter

    /// Another meter hangs in this one's place, with its own clock and nothing stored; no dialog is open. Misbehaviour
    /// and what was heard stay.
    void swap_for(VistConfig config);
    /// The same, told only by its serial number.
    void set_serial(std::uint32_t serial);

    // ---- what a test looks at

    const VistConfig& config() const { return config_; }  ///< as it came; devices may have changed since
    /// The records held, oldest first.
    const std::deque<VistStoredRecord>& records(unsigned device = 0) const;
    VistHeader header(std::time_t now, unsigned device = 0) const;

    /// What a reader of the archive ought to file, by this meter's own tables.
    std::vector<VistFileValue> record_files(const VistStoredRecord& record, unsigned device = 0) const;
    std::vector<VistFileValue> header_files(std::time_t now, unsigned device = 0) const;

    bool in_dialog() const { return dialog_.has_value(); }
    std::optional<unsigned> selected() const;  ///< virtual device; nothing outside a dialog

    /// Commands that the meter took for its own: `command` is a whole one or its first words, "" is all.
    std::size_t requests(std::string_view command = "") const;

  private:
    using Words = std::vector<std::string_view>;
    struct Dialog {
        unsigned device = 0;
        VistRing::Sequence place = 0;
        bool just_set = false;  // no record was read since SET or OLD
    };
    struct Command;
    static const Command Commands[];

    VistMemory& memory(unsigned device);
    const VistMemory& memory(unsigned device) const;
    unsigned remembering_device() const;  // the selected one, or the one that it repeats
    VistMemory& selected_memory();
    VistWriting writing() const;
    unsigned answering_devices() const;
    void open(unsigned device);
    void record_at(std::time_t time);

    // What the meter says; vist_dialog.cpp. Nothing: it keeps silent.
    using Reply = std::optional<VistReply>;
    Reply obey(const Words& words, std::time_t now);
    VistReply text(std::string body) const;
    VistReply packet(std::uint8_t type, const ByteVector& body) const;
    VistReply name() const;
    Reply call(const Words& words, std::time_t now);
    Reply vdn(const Words& words, std::time_t now);
    Reply end(const Words& words, std::time_t now);
    Reply dot(const Words& words, std::time_t now);
    Reply ver(const Words& words, std::time_t now);
    Reply vdc(const Words& words, std::time_t now);
    Reply sys(const Words& words, std::time_t now);
    Reply mon(const Words& words, std::time_t now);
    Reply arc(const Words& words, std::time_t now);
    VistReply archive_header(std::time_t now);
    VistReply archive_set(std::string_view position);
    VistReply archive_old();
    VistReply archive_step(std::string_view step);

    VistConfig config_;
    std::vector<VistMemory> memories_;
    std::optional<Dialog> dialog_;

    RecordTimes hours_;
};

}  // namespace sim
