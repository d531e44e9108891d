// Current values: the integrator packet and the moment packet of each virtual device.

#include <algorithm>
#include <span>

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int LowestServedVersion = 101;
constexpr std::size_t HeaderBytes = 7;
constexpr std::size_t ClockBytes = 6;
constexpr std::uint8_t LittleEndianBit = 0x80;  // of `enumer`
constexpr double SecondsOfHour = 3600.0;
constexpr std::uint8_t BadPressureBits = 0xE0;
constexpr std::uint32_t ServiceBits = 0x4000 | 0x2 | 0x4 | 0x200 | 0x400 | 0x20000 | 0x40000;

/// A decoded slot, which is also its mask bit, and the item it is published as.
struct VISTItem {
    std::size_t slot;
    const char* name;
};

constexpr VISTItem IntegratorItems[] = {
    {0, "IT"}, {1, "IQ1"}, {2, "IQ2"}, {3, "IQ3"}, {4, "IM1"}, {5, "IM2"}, {6, "IM3"}, {7, "IE"},
};

constexpr VISTItem MomentItems[] = {
    {0, "Q1"}, {1, "Q2"}, {2, "Q3"}, {3, "M1"},  {4, "M2"},  {5, "M3"},
    {6, "T1"}, {7, "T2"}, {8, "T3"}, {10, "P1"}, {11, "P2"}, {12, "P3"},
};

}  // namespace

bool HCD_VIST::can_ask(const char* number_warning) {
    if (virtdev_cnt == -1) {
        log_line(log.get(), "WARNING! VIST VDC is invalid, retriving data...");
        get_description();
        return false;
    }
    if (sw_version < LowestServedVersion) {
        log_line(log.get(), "WARNING! Unsupported version!");
        return false;
    }
    if (tc_sernum == 0xFFFFFFFF || selected_subsystem == -1) {
        log_line(log.get(), number_warning);
        return false;
    }
    return true;
}

bool HCD_VIST::get_moment_integrators() {
    if (!can_ask("WARNING! VIST network number is invalid!")) return false;
    functions.current_buffer = functions.intbuff;
    return sw_version > LowestServedVersion ? functions.do_request(reqMomentTG) : functions.do_request(reqMomentG);
}

bool HCD_VIST::get_moment_current() {
    if (!can_ask("WARNING! VIST network number is invalid.")) return false;
    functions.current_buffer = functions.mombuff;
    return functions.do_request(reqMomentC);
}

void HCD_VIST::take_packet_clock(PacketBuffer buffer, std::size_t at) {
    std::tm tm = packet_time(buffer, at);
    log_line(log.get(), "VIST: current time: ", format_cut(31, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec));
    log_line(log.get(),
             "VIST: current date: ", format_cut(31, "%02d:%02d:%02d", tm.tm_mday, tm.tm_mon + 1, tm.tm_year - 100));
    mdatetime = make_time(tm);
    log_line(log.get(), " also local time is ", mdatetime);
}

std::uint32_t HCD_VIST::flush_values(bool moment, int buffer) {
    const PacketBuffer bytes = packet(buffer);
    const int size = u8_at(bytes, PacketSizeAt);
    log_line(log.get(), "flush_values PVISTpktheader hex dump");
    log->dump_packet(part_of(bytes, 0, HeaderBytes));
    log_line(log.get(), "flush_values PVISTpktheader FULL hex dump");
    log->dump_packet(part_of(bytes, 0, size + 4));
    functions.current_buffer = buffer;
    log_line(log.get(), "Flushing values for buffer ", buffer);

    std::size_t at = PacketBodyAt;
    if (!moment && sw_version > LowestServedVersion) {
        // The version alone decides, so the packet read for a description gives its first bytes for a clock, too.
        take_packet_clock(bytes, at);
        at += ClockBytes;
    }
    const std::uint8_t enumer = u8_at(bytes, at);
    fSwap = (enumer & LittleEndianBit) == 0;
    log_line(log.get(), "fSwap = ", int{fSwap});
    log_line(log.get(), "ppkt->enumer = ", int{enumer});
    log_line(log.get(), "ppkt->enumer & 0x80 = ", enumer & LittleEndianBit);
    log_line(log.get(), "!(ppkt->enumer & 0x80) = ", int{fSwap});

    ++at;
    log_line(log.get(), "Mask is ",
             format_cut(31, "%02x %02x %02x %02x", u8_at(bytes, at), u8_at(bytes, at + 1), u8_at(bytes, at + 2),
                        u8_at(bytes, at + 3)));
    if (fSwap) swap_bytes(bytes, at, 4);
    std::uint32_t result = le_u32(bytes, at);
    log_line(log.get(), "Mask after conversion is ", static_cast<unsigned>(result));
    at += 4;

    auto mask = static_cast<std::int32_t>(result);
    std::size_t slot = 0;
    const auto take = [&](std::size_t width) {
        process_value(mask, width, bytes, at, values[slot], fSwap);
        mask >>= 1;
    };
    const auto take_integrator = [&] {
        const auto number = static_cast<unsigned long>(slot);
        const std::int32_t bit = mask & 1;
        log_line(log.get(), "Cycle ", number, ", mask ", bit, ", full ", mask);
        take(4);
        log_line(log.get(), "Process integrator ", number, " with mask ", bit, ", after conversion is ", values[slot]);
    };
    // The meter's size byte bounds nothing once it is above the fixed part; a packet shorter than its mask promises is
    // read into whatever stands in the buffer.
    if (!moment) {
        for (slot = 0; size > 0 && slot < 7; ++slot) take_integrator();
        slot = 7;
        take(8);
        values[0] *= SecondsOfHour;
    } else {
        const bool has_values = size - static_cast<int>(HeaderBytes) > 0;
        for (slot = 0; has_values && slot < 6; ++slot) take(4);
        for (slot = 6; has_values && slot < 10; ++slot) take(2);
        for (slot = 10; has_values && slot < 13; ++slot) take(1);
        slot = 13;
        take(4);
        result = take_status(bytes, at, result);
    }
    if (mask != 0) log_line(log.get(), "Warning: mask of binary request is not null after processing!");
    return result;
}

std::uint32_t HCD_VIST::take_status(PacketBuffer bytes, std::size_t at, std::uint32_t mask) {
    std::array<std::uint8_t, 4> bits{};
    for (std::size_t i = 0; i < bits.size(); ++i) bits[i] = u8_at(bytes, at + i);
    if (fSwap) std::reverse(bits.begin(), bits.end());
    publish_item("EG", static_cast<unsigned long long>(le_u32(bits, 0)));
    for (std::size_t i = 0; i < 3; ++i) {
        if ((bits[i] & BadPressureBits) != 0) mask &= ~(1U << (10 + i));
    }
    const std::uint32_t errors = convert_errors(bits, false);
    publish_item("ER", static_cast<int>(errors));
    publish_item("SC", (errors & ServiceBits) != 0 ? 0 : 1);
    return mask;
}

void HCD_VIST::FlushCurrentValues() {
    log_line(log.get(), "FlushCurrentValues");
    get_description();
    for (selected_subsystem = 0; selected_subsystem < virtdev_cnt; ++selected_subsystem) {
        publish_item("_DriverStatus", int{StatusCurrentValues});
        if (get_moment_integrators() && get_moment_current()) publish_current_values();
    }
}

void HCD_VIST::publish_current_values() {
    publish_item("SerialNumber", dev_serial);
    publish_item("Firmware", firmware);
    publish_item("MeterModel", model);
    publish_item("ArchiveRecNum", long{ArchiveRecNum});
    publish_item("ArchiveRecMax", long{ArchiveRecMax});
    publish_item("ArchiveRecNew", long{ArchiveRecNew});

    const auto publish_present = [this](std::span<const VISTItem> items, std::uint32_t mask) {
        for (const VISTItem& item : items) {
            if ((mask >> item.slot & 1) != 0) publish_item(item.name, values[item.slot]);
        }
    };
    const std::uint32_t integrators = flush_values(false, functions.intbuff);
    if (sw_version > LowestServedVersion) publish_item("MDateTime", static_cast<long>(mdatetime));
    last_mdatetime = mdatetime;
    publish_present(IntegratorItems, integrators);
    publish_present(MomentItems, flush_values(true, functions.mombuff));
}
