#pragma once
// What the packets of the VIST meter tell: a packet in, a record out; no line, no clock, no log, no driver. Numbers are
// turned to the host's order where they stand, so a packet is decoded once.

#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "drivers/vist/vist_packet.h"

namespace vist {

constexpr int LowestServedVersion = 101;  // above it, integrators begin with the meter's clock

/// The answer to /SYS SPC 0.
struct DeviceSpecials {
    int dev_serial = -1;
    std::string firmware;  ///< at most 63 bytes
    std::string model;     ///< at most 127 bytes, UTF-8
};
DeviceSpecials decode_specials(Bytes packet);

struct ChannelLimits {
    std::uint8_t scale = 0;
    std::optional<std::array<double, 2>> range;  ///< min and max; none for a scale that is out of range
};

// Offsets in the body of a virtual device's record, besides those of `vds`.
constexpr int VdsRecordBytes = 151;
constexpr std::size_t VdsType = 12;
constexpr std::size_t VdsReserved = 131;  // "reserved", but its first two bytes are indices of the formulas
constexpr std::size_t VdsActiveErrors = 147;

/// The answer to /SYS SPC 1.
struct VirtualDevice {
    std::uint32_t type = 0;
    std::string sub_name;  ///< UTF-8
    int dT = 0;
    std::array<ChannelLimits, 3> channel_limits;
    std::string formula;  ///< empty: none
    bool weighted = false;
};
/// `fSwap` is the order of `dT` alone.
VirtualDevice decode_virtual_device(PacketBuffer body, bool fSwap);

/// DN1, DN2 and DN3 of the answer to /SYS CFG 1.
std::array<int, 3> decode_config(PacketBuffer body);

/// An integrator packet or a moment packet.
struct CurrentValues {
    std::optional<std::tm> clock;  ///< local time of the meter
    std::uint8_t enumer = 0;
    bool fSwap = false;                    ///< the packet is big-endian
    std::array<std::uint8_t, 4> stored{};  ///< the mask as it came
    std::uint32_t mask = 0;                ///< presence, bit 0 first
    std::int32_t left = 0;                 ///< of the mask, when all values are read
    std::array<double, 15> values{};       ///< IT in hours
    // Of a moment packet.
    std::uint32_t EG = 0;
    std::uint32_t ER = 0;
    bool SC = false;
    std::uint32_t published = 0;  ///< the mask without the pressures that the meter marks as bad
};
/// `values` are those that stand in the slots so far. They stay where the size has no room for them.
CurrentValues decode_values(PacketBuffer packet, bool moment, int sw_version, const std::array<double, 15>& values);

/// "%02d:%02d:%02d" of the time, and of day, month and year since 2000.
std::string clock_text(const std::tm& tm);
std::string day_text(const std::tm& tm);

struct ArchiveValue {
    std::string name;
    double value;
    bool good = true;

    bool operator==(const ArchiveValue&) const = default;
};

/// The answer to /ARC/DLD H. Of a packet with a wrong sum nothing but the order and the mask.
struct ArchiveHeader {
    bool good = false;
    bool fSwapArch = false;       ///< header and records are big-endian
    std::uint32_t arch_mask = 0;  ///< presence of the record fields
    std::array<std::uint8_t, 4> arch_precision{};
    int ArchiveRecNum = 0;
    int ArchiveRecMax = 0;
    int ArchiveRecNew = 0;
    std::tm time{};
    std::vector<ArchiveValue> totals;  ///< those of the mask, in the order of filing
};
ArchiveHeader decode_header(PacketBuffer packet);

/// The sum that a header or a record carries besides that of its packet, and what it should be.
struct InnerSum {
    std::uint8_t is;
    std::uint8_t should_be;

    bool holds() const { return is == should_be; }
};
InnerSum header_sum(Bytes packet);
InnerSum record_sum(Bytes packet);

/// The time of an archive record as it stands; none when its sum is wrong.
std::optional<std::tm> decode_record_time(Bytes packet);

/// The same, and it becomes a full hour, where it stands, too.
std::tm take_full_hour(PacketBuffer packet);

struct ArchiveRecord {
    std::vector<ArchiveValue> values;
    std::optional<int> A28;              ///< status word
    std::vector<ArchiveValue> measured;  ///< temperatures and pressures, with a quality of their own
};
ArchiveRecord decode_record(PacketBuffer packet, const ArchiveHeader& header);

}  // namespace vist
