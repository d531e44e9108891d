#pragma once
// The driver of one VIST meter in its text and binary dialect: a meter with up to six virtual devices (heat systems).
//
// Its parts: vist_link (conversations), vist_packet and vist_decode (what packets tell), vist_progress (how far an
// archive has been read). The driver asks, logs and publishes, by kind of work: vist_description (who the meter is),
// vist_values (current values), vist_archives (the walk through the meter's ring), vist_cycle (when what is read).

#include <array>
#include <ctime>
#include <memory>
#include <string>

#include "archive/named_buffer.h"
#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/vist/vist_decode.h"
#include "drivers/vist/vist_link.h"
#include "drivers/vist/vist_progress.h"

class HCD_VIST final : public HCDBaseDriver {
  public:
    static constexpr int MaxVirtualDevices = 6;  // as many as there are item directories

    explicit HCD_VIST(const std::string& meter);

    std::string get_log_name() override;
    std::string get_driver_type() override { return "VISThydralink"; }
    bool is_all_archives_ok() override;
    /// One polling of the meter, all its virtual devices.
    void run_main() override;

    /// Who the meter is and how it is set up. Published for each virtual device.
    bool get_description();
    /// The whole pass over current values.
    void FlushCurrentValues();
    bool get_moment_integrators();
    bool get_moment_current();
    bool need_update_archives(int subsystem);
    /// One pass over the archive of a virtual device; true when the files have reached the header's time.
    bool get_archives(int subsystem);
    /// Time of the oldest record the meter holds, 0 on failure.
    std::time_t get_oldest_timestamp();

    // Nobody's at present.
    bool get_archive_record_count();
    bool getTimestampByRecordNum(int position, std::time_t& out);

  private:
    /// The named buffers, in the order of their making.
    enum Buffer : int { NoBuffer = -1, tempbuff, intbuff, mombuff, archheader };

    /// What stays from packet to packet, from device to device and from pass to pass.
    struct Carried {
        explicit Carried(UniLog* log);

        NamedBuffer buffers;               ///< a packet that is too short is read into what the one before it has left
        std::array<double, 15> values{};   ///< a packet without room for values gives those of the one before it
        bool fSwap = false;                ///< the record of a virtual device is in the order of the values read last
        int sw_version = -1;               ///< of the last description that told it; -1: not known yet
        int virtdev_cnt = -1;              ///< likewise
        vist::DeviceSpecials specials;     ///< likewise
        std::string sub_name = "not_set";  ///< of the virtual device described last: the driver's name in the log
        std::time_t mdatetime = -1;        ///< the meter's clock, which stays when a packet has none; -1: not known
        std::time_t last_mdatetime = 0;    ///< the same, of the last values published
        vist::ArchiveHeader header;        ///< read last, of whatever device: its counts go out with all values
    };

    template <typename Value>
    void publish_item(const std::string& item, const Value& value) {
        put_item(value, uuid, item, log.get(), selected_subsystem + 1);
    }
    PacketBuffer packet(Buffer buffer) { return carried.buffers.GetBuffer(buffer); }
    /// A conversation with the virtual device at work; packets go to `buffer`.
    VISTReply ask(std::span<const VISTRequest> rows, Buffer buffer = NoBuffer,
                  int rec_count = VISTParameters::NoPosition);
    VISTProgress& progress() { return devices[static_cast<std::size_t>(selected_subsystem)]; }

    bool take_device_specials();
    bool describe_virtual_device();
    void read_virtdev_specials(PacketBuffer body);
    void read_virtdev_config(PacketBuffer body);
    bool can_ask(const char* number_warning);
    /// Decodes the integrator packet (`moment` false) or the moment packet in a buffer into `values`. The presence
    /// mask, without the pressures that the meter marks as bad.
    std::uint32_t flush_values(bool moment, Buffer buffer);
    void publish_current_values();
    bool read_new_records();
    bool select_record(std::time_t oldest);
    bool walk_archive();
    bool has_reached_header();
    bool flush_archive_header();
    /// Files the record in the buffer; false when the walk has to end. `error` becomes 1 for a bad check sum.
    bool flush_archive_data(int& error);
    bool getDateFromArchiveBuff(std::time_t& out);
    void vist_cycle();
    void compare_archive_times();

    std::unique_ptr<UniLog> log;
    Carried carried;
    VISTFunctions functions;
    int selected_subsystem = 0;  ///< virtual device at work, from 0
    std::array<VISTProgress, MaxVirtualDevices> devices;
};
