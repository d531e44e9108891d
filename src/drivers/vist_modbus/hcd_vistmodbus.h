#pragma once
// The driver of one VIST meter that is asked over Modbus RTU: a meter with up to three heat systems.
//
// Sources by kind of work: modbus_frame and modbus_link (the line), vist_modbus_tables (what is asked),
// vist_modbus_requests (one row with its tries, a whole table), vist_modbus_values (register blocks into items),
// vist_modbus_archives and vist_modbus_records (the meter's archive files), vist_modbus_cycle (when what is read).

#include <array>
#include <ctime>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/vist_modbus/vist_modbus_tables.h"

class HCD_VISTmodbus final : public HCDBaseDriver {
  public:
    static constexpr int HeatSystems = 3;
    static constexpr int VISTMaxErrors = 30;  ///< tries of one row; the driver of the text dialect has its own number
    static constexpr std::size_t AnswerBytes = 512;
    using PerSystem = std::array<std::time_t, HeatSystems>;

    explicit HCD_VISTmodbus(const std::string& meter);

    std::string get_log_name() override;
    std::string get_driver_type() override { return "VISTmodbus"; }
    bool is_all_archives_ok() override;
    void on_tick(int /*value*/) override {}
    /// One polling of the meter, all its heat systems.
    void run_main() override;
    void set_uuid(const std::string& meter) override;

    void set_tty(int fd);

    // ---- requests
    /// One row for a heat system, with its tries. `range`: the second number of the question is the last register,
    /// otherwise the row's count as it stands. The length of the answer, or -1.
    int send_modbus_request(int fd, const ModbusRequest& row, std::span<std::uint8_t> answer, int system, bool range);
    /// All rows for a heat system; nothing is decoded unless every row came.
    bool request_batch(int fd, std::span<const ModbusRequest> rows, int system, bool range);

    // ---- decoders of blocks
    void process_main_config(Bytes data, const ModbusRequest& row);
    void process_tc_specs(Bytes data, const ModbusRequest& row);
    void process_datetime(Bytes data, const ModbusRequest& row);
    void process_array16(Bytes data, const ModbusRequest& row);
    void process_array32(Bytes data, const ModbusRequest& row);
    void process_archive_specs(Bytes data, const ModbusRequest& row);
    void process_archive_header(Bytes data, const ModbusRequest& row);
    void process_archive_record(Bytes data, const ModbusRequest& row);

    // ---- archives
    bool need_update_archives(int system);
    /// One pass over the archive of the selected heat system; true when the files have reached the header's time.
    bool get_archive();
    /// Time of the last line of an archive file of the first heat system.
    std::time_t last_stored_value(const std::string& name) const;

    std::unique_ptr<UniLog> log;
    int slave = 0;                                               ///< Modbus address
    int request_system = 0;                                      ///< heat system of the request in work, from 0
    int answer_length = 0;                                       ///< of the last answer; -1 for none
    std::vector<std::array<std::uint8_t, AnswerBytes>> answers;  ///< one for each row of the running table

    // Values that wait for the end of a batch.
    std::vector<std::pair<std::string, double>> pending_values;
    std::vector<std::pair<std::string, long>> pending_longs;

    std::array<std::uint16_t, 4> pointsGP{};  ///< decimal exponents of flow and power
    std::array<std::uint16_t, 4> pointsMV{};  ///< decimal exponents of volume, mass, energy
    std::array<int, 3> dV{};
    std::array<int, 3> dM{};
    int dEnergy = 0;
    std::time_t mdatetime = -1;  ///< the meter's clock, -1: not known
    std::string sub_name = "not_set";
    int virtdev_count = HeatSystems;
    int dev_serial = 0;
    // Sensors that the meter says it has; a record only.
    std::array<bool, 4> found_T{};
    std::array<bool, 4> found_P{};

    int selected_subsystem = 0;  ///< heat system in work, from 0
    // What the meter's archive files hold.
    std::array<bool, 3> hasV{};
    std::array<bool, 3> hasM{};
    bool hasC = false;
    bool hasE = false;
    std::uint32_t arch_mask = 0;  ///< presence of the record fields
    std::uint16_t recs_count = 0;
    std::uint16_t next_rec_index = 0;
    std::uint16_t max_records = 0;
    std::array<std::uint8_t, 4> arch_precision{};
    std::tm header_tm{};
    std::tm record_tm{};  ///< of the record being read: a record carries no time of its own
    bool record_ok = false;
    bool arch_continue = false;
    PerSystem last_request_date{};         ///< newest record in the files
    PerSystem last_request_date_header{};  ///< newest header in the files
    PerSystem last_hour_update{};
    std::array<bool, HeatSystems> archives_ok;

  private:
    /// Where a walk begins: the number of a record and its time.
    struct ArchiveStart {
        int index;
        std::time_t time;
    };

    template <typename Value>
    void publish_item(const std::string& item, const Value& value) {
        put_item(value, uuid, item, log.get(), selected_subsystem + 1);
    }
    void log_answer(Bytes answer);
    void publish_tubes(Bytes data);
    void publish_formula(Bytes data, bool weighted);
    void take_flow_limits(Bytes data);
    void find_sensors(std::uint32_t parameters);
    void read_system(int system);
    void publish_pending();
    void read_archive_if_due(int system);
    void compare_archive_times();
    void resume_from_files();
    std::time_t newest_of(std::span<const char* const> names, int system);
    std::time_t record_time() const;
    ArchiveStart place_start(std::time_t header_date);
    bool walk_archive(ArchiveStart start);
    void add_record_values(Bytes record);
    void store_record();

    std::string default_folder;  ///< "<uuid>/default"
};

// Plain functions of the decoders.

/// Divides by 10.0 `times` times.
double scale_down(double value, unsigned times);

/// Length of an archive record with these fields.
int archive_record_size(std::uint32_t mask);

/// The meter's status word as the system's. The top byte differs from that of the text dialect: not the same table.
std::uint32_t convert_status(std::uint32_t word);
