#pragma once
// The driver of one VIST meter that is asked over Modbus RTU: a meter with up to three heat systems, counted from 0.
//
// Its parts: vist_modbus_link (a question with its tries; below it modbus_exchange and modbus_frame),
// vist_modbus_tables (what is asked), vist_modbus_decode (answers into values), vist_modbus_progress (what has been
// read until when). vist_modbus_cycle joins them; vist_modbus_values tells and publishes what a block says,
// vist_modbus_archives walks through the meter's archive files.

#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/vist_modbus/vist_modbus_decode.h"
#include "drivers/vist_modbus/vist_modbus_link.h"
#include "drivers/vist_modbus/vist_modbus_progress.h"

class HCD_VISTmodbus final : public HCDBaseDriver {
  public:
    explicit HCD_VISTmodbus(const std::string& meter);

    std::string get_log_name() override;
    std::string get_driver_type() override { return "VISTmodbus"; }
    bool is_all_archives_ok() override;
    void on_tick(int /*value*/) override {}
    /// One polling of the meter, all its heat systems.
    void run_main() override;
    void set_uuid(const std::string& meter) override;
    void set_tty(int fd);

    bool need_update_archives(int system);
    /// One pass over the archive of a heat system; true when the files have reached the header's time.
    bool get_archive(int system);

    // Without a caller.
    /// Time of the last line of an archive file of the first heat system.
    std::time_t last_stored_value(const std::string& name) const;

  private:
    /// What goes on from one heat system, and from one polling, to the next.
    struct Carried {
        vist_modbus::ArchiveSetup setup;   ///< a system whose setup does not come is read by those of the one before it
        std::time_t mdatetime = -1;        ///< the meter's clock; where it does not come, the last one counts
        std::string sub_name = "not_set";  ///< the log is named after the system that came last
        int virtdev_count = vist_modbus::HeatSystems;  ///< between pollings: whose archives have to be up to date
    };
    /// What one heat system has shown and is not published yet.
    struct Pending {
        vist_modbus::Words pointsGP{};  ///< decimal exponents of flow, for the blocks behind theirs
        vist_modbus::Values pending_values;
        std::vector<std::pair<std::string, long>> pending_longs;
    };
    /// Where a walk begins: the number of a record and its time.
    struct ArchiveStart {
        int index;
        std::time_t time;
    };

    template <typename Value>
    void publish_item(const std::string& item, const Value& value, int system) {
        put_item(value, uuid, item, log.get(), system + 1);
    }
    ModbusLine line() const;
    void read_system(int system);
    void process(const ModbusRequest& row, Bytes data, int system, Pending& pending);
    void publish(const Pending& pending, int system);
    void read_archive_if_due(int system);
    void compare_archive_times(int system);

    void process_main_config(Bytes data, int system);
    void process_tc_specs(Bytes data, int system, Pending& pending);
    void process_archive_specs(Bytes data, int system);
    void process_datetime(Bytes data, int system, Pending& pending);
    void process_array16(Bytes data, char kind, Pending& pending);
    void process_array32(Bytes data, char kind, Pending& pending);

    /// False: an old header, behind which no record is asked for.
    bool process_archive_header(const vist_modbus::ArchiveHeader& header, int system);
    ArchiveStart place_start(const vist_modbus::ArchiveHeader& header, std::time_t header_date, std::time_t last);
    bool walk_archive(const vist_modbus::ArchiveHeader& header, ArchiveStart start, int system);
    /// False: the walk has caught up with the header, and the record is not filed.
    bool process_archive_record(const vist_modbus::ArchiveRecord& record, const vist_modbus::ArchiveHeader& header,
                                const std::tm& record_tm, int system);

    std::unique_ptr<UniLog> log;
    VistModbusLink link;
    std::string default_folder;  ///< "<uuid>/default"
    vist_modbus::Progress progress;
    Carried carried;
};
