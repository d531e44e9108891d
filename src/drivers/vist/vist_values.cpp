// Current values: the integrator packet and the moment packet of each virtual device.

#include <span>

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int HeaderBytes = 7;
constexpr double SecondsOfHour = 3600.0;

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
    if (carried.virtdev_cnt == -1) {
        log_line(log.get(), "WARNING! VIST VDC is invalid, retriving data...");
        get_description();
        return false;
    }
    if (carried.sw_version < vist::LowestServedVersion) {
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
    const bool has_clock = carried.sw_version > vist::LowestServedVersion;
    return ask(has_clock ? vist::reqMomentTG : vist::reqMomentG, intbuff).done;
}

bool HCD_VIST::get_moment_current() {
    return can_ask("WARNING! VIST network number is invalid.") && ask(vist::reqMomentC, mombuff);
}

std::uint32_t HCD_VIST::flush_values(bool moment, Buffer buffer) {
    const PacketBuffer bytes = packet(buffer);
    const int size = u8_at(bytes, PacketSizeAt);
    log_line(log.get(), "flush_values PVISTpktheader hex dump");
    log->dump_packet(part_of(bytes, 0, HeaderBytes));
    log_line(log.get(), "flush_values PVISTpktheader FULL hex dump");
    log->dump_packet(part_of(bytes, 0, size + 4));
    log_line(log.get(), "Flushing values for buffer ", int{buffer});

    const vist::CurrentValues current = vist::decode_values(bytes, moment, carried.sw_version, carried.values);
    if (current.clock) {
        std::tm tm = *current.clock;
        log_line(log.get(), "VIST: current time: ", vist::clock_text(tm));
        log_line(log.get(), "VIST: current date: ", vist::day_text(tm));
        carried.mdatetime = make_time(tm);
        log_line(log.get(), " also local time is ", carried.mdatetime);
    }
    carried.fSwap = current.fSwap;
    log_line(log.get(), "fSwap = ", int{current.fSwap});
    log_line(log.get(), "ppkt->enumer = ", int{current.enumer});
    log_line(log.get(), "ppkt->enumer & 0x80 = ", current.enumer & 0x80);
    log_line(log.get(), "!(ppkt->enumer & 0x80) = ", int{current.fSwap});
    const auto& [first, second, third, fourth] = current.stored;
    log_line(log.get(), "Mask is ", format_cut(31, "%02x %02x %02x %02x", first, second, third, fourth));
    log_line(log.get(), "Mask after conversion is ", current.mask);

    carried.values = current.values;
    if (moment) {
        publish_item("EG", static_cast<unsigned long long>(current.EG));
        publish_item("ER", static_cast<int>(current.ER));
        publish_item("SC", current.SC ? 1 : 0);
    } else {
        for (unsigned long number = 0; size > 0 && number < 7; ++number) {
            const std::int32_t mask = static_cast<std::int32_t>(current.mask) >> number;
            log_line(log.get(), "Cycle ", number, ", mask ", mask & 1, ", full ", mask);
            log_line(log.get(), "Process integrator ", number, " with mask ", mask & 1, ", after conversion is ",
                     current.values[number]);
        }
        carried.values[0] *= SecondsOfHour;
    }
    if (current.left != 0) log_line(log.get(), "Warning: mask of binary request is not null after processing!");
    return current.published;
}

void HCD_VIST::FlushCurrentValues() {
    log_line(log.get(), "FlushCurrentValues");
    get_description();
    for (selected_subsystem = 0; selected_subsystem < carried.virtdev_cnt; ++selected_subsystem) {
        publish_item("_DriverStatus", int{StatusCurrentValues});
        if (get_moment_integrators() && get_moment_current()) publish_current_values();
    }
}

void HCD_VIST::publish_current_values() {
    publish_item("SerialNumber", carried.specials.dev_serial);
    publish_item("Firmware", carried.specials.firmware);
    publish_item("MeterModel", carried.specials.model);
    publish_item("ArchiveRecNum", long{carried.header.ArchiveRecNum});
    publish_item("ArchiveRecMax", long{carried.header.ArchiveRecMax});
    publish_item("ArchiveRecNew", long{carried.header.ArchiveRecNew});

    const auto publish_present = [this](std::span<const VISTItem> items, std::uint32_t mask) {
        for (const VISTItem& item : items) {
            if ((mask >> item.slot & 1) != 0) publish_item(item.name, carried.values[item.slot]);
        }
    };
    const std::uint32_t integrators = flush_values(false, intbuff);
    if (carried.sw_version > vist::LowestServedVersion) {
        publish_item("MDateTime", static_cast<long>(carried.mdatetime));
    }
    carried.last_mdatetime = carried.mdatetime;
    publish_present(IntegratorItems, integrators);
    publish_present(MomentItems, flush_values(true, mombuff));
}
