#pragma once
// The driver of one VIST meter in its text and binary dialect: a meter with up to six virtual devices (heat systems).
//
// Sources by kind of work: vist_functions (the link), vist_description (who the meter is), vist_values (current
// values), vist_archives (the walk through the meter's ring) and vist_records (its header and records), vist_cycle
// (when what is read).

#include <array>
#include <ctime>
#include <memory>
#include <string>

#include "archive/named_buffer.h"
#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/vist/vist_functions.h"
#include "drivers/vist/vist_packet.h"

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
    /// Decodes the integrator packet (`moment` false) or the moment packet in a named buffer into `values`. The
    /// presence mask, without the pressures that the meter marks as bad.
    std::uint32_t flush_values(bool moment, int buffer);

    bool need_update_archives(int subsystem);
    /// One pass over the archive of a virtual device; true when the files have reached the header's time.
    bool get_archives(int subsystem);
    bool flush_archive_header();
    /// Files the record in the buffer; false when the walk has to end. `error` becomes 1 for a bad check sum.
    bool flush_archive_data(int& error);
    /// Time of the oldest record the meter holds, 0 on failure.
    std::time_t get_oldest_timestamp();
    bool getDateFromArchiveBuff(std::time_t& out);
    bool get_archive_record_count();
    bool getTimestampByRecordNum(int position, std::time_t& out);

    // Seen by the link.
    std::unique_ptr<UniLog> log;
    NamedBuffer buffers;
    VISTFunctions functions;
    int selected_subsystem = 0;  ///< virtual device at work, from 0
    int virtdev_cnt = -1;        ///< virtual devices; -1: not known yet
    int sw_version = -1;         ///< -1: not known yet
    std::uint32_t stat_tx_bytes = 0;
    std::uint32_t stat_rx_bytes = 0;
    std::uint32_t stat_text_error_bytes = 0;
    std::uint32_t stat_binary_error_bytes = 0;
    std::uint32_t stat_vdn_error_bytes = 0;
    std::uint32_t stat_send_errors = 0;

    std::array<double, 15> values{};
    std::array<std::array<double, 2>, 3> channel_limits{};  ///< min and max of each channel
    std::string sub_name = "not_set";                       ///< of the last virtual device read, UTF-8
    bool fSwap = false;                                     ///< the current values are big-endian
    bool fSwapArch = false;                                 ///< the archive is big-endian
    std::uint32_t arch_mask = 0;                            ///< presence of the record fields
    std::array<std::uint8_t, 4> arch_precision{};
    int dev_serial = -1;
    std::string firmware;  ///< at most 63 bytes
    std::string model;     ///< at most 127 bytes, UTF-8
    std::array<bool, MaxVirtualDevices> archives_ok;
    std::time_t mdatetime = -1;      ///< the meter's clock, -1: not known
    std::time_t last_mdatetime = 0;  ///< the same, as last read
    std::array<std::time_t, MaxVirtualDevices> last_request_archive_header{};
    std::array<std::time_t, MaxVirtualDevices> last_request_archive_data{};
    std::array<std::time_t, MaxVirtualDevices> last_hour_update{};
    std::time_t last_archive_record = 0;
    int ArchiveRecNum = 0;
    int ArchiveRecMax = 0;
    int ArchiveRecNew = 0;

  private:
    template <typename Value>
    void publish_item(const std::string& item, const Value& value) {
        put_item(value, uuid, item, log.get(), selected_subsystem + 1);
    }
    PacketBuffer packet(int buffer) { return buffers.GetBuffer(buffer); }
    bool can_ask(const char* number_warning);
    bool take_device_specials();
    bool describe_virtual_device();
    void read_virtdev_specials(PacketBuffer body);
    void publish_channel(PacketBuffer body, int channel);
    void publish_formula(PacketBuffer body, bool weighted);
    void read_virtdev_config(PacketBuffer body);
    void publish_current_values();
    void take_packet_clock(PacketBuffer packet, std::size_t at);
    std::uint32_t take_status(PacketBuffer packet, std::size_t at, std::uint32_t mask);
    void resume_from_files();
    bool read_new_records();
    bool select_record(std::time_t oldest);
    bool walk_archive();
    bool has_reached_header();
    void store_record(PacketBuffer packet, const std::tm& record_tm);
    void vist_cycle();
    void compare_archive_times();
};
