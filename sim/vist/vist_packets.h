#pragma once
// The packets and text frames of a VIST meter, made from what the meter has; the layouts stand at each body.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim_meter.h"
#include "vist_memory.h"
#include "vist_types.h"

namespace sim {

enum VistPacketType : std::uint8_t {
    VistIntegrators = 10,
    VistMoments = 11,
    VistTimedIntegrators = 12,
    VistArchiveHeader = 20,
    VistArchiveRecord = 21,
    VistSpecials = 30,
    VistDeviceSpecials = 31,
    VistDeviceConfig = 33,
};

/// The plain sum of all bytes modulo 256, the only check of this wire.
std::uint8_t vist_sum(std::span<const std::uint8_t> bytes);

/// "HPT", the number of bytes that follow this byte, the sum of all that follows it, type, body. A body has at most 253
/// bytes; std::invalid_argument beyond.
ByteVector vist_packet(std::uint8_t type, std::span<const std::uint8_t> body);

/// "HL0[network:device]{body}>".
std::string vist_text_frame(int network, unsigned device, std::string_view body);

/// How the meter writes its numbers.
struct VistWriting {
    VistOrder order = VistOrder::Big;
    std::uint8_t enumer = 0;  ///< with bit 7 as the order says
};

/// For /MON G and /MON TG: [hour minute second day month year] enumer, mask (4), then each value that the mask names:
/// bits 0..6 in four bytes, bit 7 in eight, and a byte of scale behind each.
ByteVector vist_integrators_body(const VistWriting& writing, const VistMemory& memory, std::optional<VistDate> clock);

/// For /MON C: enumer, mask (4), values as above: bits 0..5 in four bytes, 6..9 in two, 10..12 in one, 13 in four;
/// then the status, four bytes as one number with e0 lowest.
ByteVector vist_moments_body(const VistWriting& writing, const VistMemory& memory);

/// For /SYS SPC 0: firmware, model and serial number, each with a zero behind it.
ByteVector vist_specials_body(const VistConfig& config);

/// For /SYS SPC 1: 151 bytes. 0 name (12), 12 type (4, big-endian), 16, 49 and 82 channels (33 each: 5 upper limit, 9
/// scale, 19 lower limit, both limits big-endian), 115 pt4, 116 dT (2), 118 qpoint, 119 formula selector, 120 iG1, 121
/// iT1, 122 iT2, 123 iG2, 124 iT3, 131 iG3, 132 iT4, 147 active errors (4). Others are 0.
ByteVector vist_device_body(const VistWriting& writing, const VistDevice& device);

/// For /SYS CFG 1: 26 bytes, 12, 14 and 16 the nominal diameters (2 each, big-endian). Others are 0.
ByteVector vist_config_body(const VistDevice& device);

/// For /ARC/DLD H: 62 bytes. 0 the number 1, 1 sum of all from 2 on, 2 and 3 the numbers 0 and 62, 4 enumer, 5 the
/// device, 6 mask (4), 10 RecNum, 12 RecNew, 14 RecMax (2 each), 16 hour minute second day month year, 22 to 49 seven
/// totals (4 each), 50 the eighth (8), 58 to 61 p0..p3.
ByteVector vist_header_body(const VistWriting& writing, const VistMemory& memory, const VistHeader& header,
                            unsigned device);

/// For /ARC/DLD +, - and =: 0 hour minute second day month year, 6 sum of all from 7 on, then each field that the mask
/// names, by bit:
///
///     bit      bytes  unit
///     0        1      0.01 h               worked in the hour
///     1..3     4      10 to the -p0..p2    volumes of channels 1..3
///     4..6     4      10 to the -p0..p2    masses
///     7..10    2      0.1 degrees          temperatures
///     11..13   1      0.1                  pressures
///     14       4      10 to the -p3        energy, signed; all others are unsigned
///     15       4                           status, one number with e0 lowest
///     16..19   1      0.01 h               shares of the hour
///     20..22   3 1 1                       nobody has named them
///
/// An erased record is all 0xFF.
ByteVector vist_record_body(const VistWriting& writing, std::uint32_t mask, const VistStoredRecord& record);

/// Makes the inner sum of an archive packet one too high and the outer one right for that; false for other packets.
bool vist_spoil_inner_sum(ByteVector& packet);
/// Puts the right sum into byte 4 of a packet.
void vist_renew_sum(ByteVector& packet);

}  // namespace sim
