#pragma once
// The driver of one SA-94 heat meter. A pass identifies the meter anew, publishes its current values, reads what is new
// in its archives, and then waits for the next pass.
//
// Sources by kind of work: sa94_link (the port, one request and its tries), sa94_description (firmware, tube settings,
// status), sa94_search (where in the meter's memory an archive goes on), sa94_records (a block of memory into archive
// lines), sa94_cycle (when what is read).
//
// Logs: `log_messages` has the outline of a pass, `log_debug` every exchange and every step of a search, `log_general`
// the port and the walk over blocks.

#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/sa94/sa94_archive.h"
#include "drivers/sa94/sa94_request.h"
#include "drivers/sa94/sa94_tables.h"

class SA94 final : public HCDBaseDriver {
  public:
    static constexpr int Attempts = 24;  ///< of every request

    explicit SA94(const std::string& meter);

    void open_tty() override;
    std::string get_driver_type() override { return "SA94"; }
    int get_buffer_limit() override { return 768; }
    /// One whole pass.
    void run_main() override;

    // ---- link
    /// One write and one read.
    void exchangeOnce(SA94Request& request);
    /// A request until it is answered; any answer of any length will do. The item `Connected` follows the outcome.
    bool Transact(SA94Request& request, int attempts);
    /// Reads one block of memory.
    bool ReadArchiveRecord(SA94Request& request, int segment, std::uint32_t block);

    // ---- description
    bool getDescription();
    /// Finds the meter's row in `Versions`.
    bool getFirmware();
    /// `model_name` has no effect.
    bool getTubesSettings(const std::string& model_name);
    bool getStatus();

    // ---- archive search, inside a conversation that the caller has opened; false when a read failed
    std::uint32_t blocksPerSegment() const { return extended ? 512 : 128; }
    std::size_t blockSize() const { return BlockBytes; }
    /// Bytes; 0 for an archive that is none.
    std::size_t recordSize(int archive_type) const;
    int recordsPerBlock(int archive_type) const;
    bool isNullRecord(int archive_type, Bytes record) const;
    /// The older of the two places where the ring may begin, and the time of its record.
    bool getFirstRecordInfo(int archive_type, std::time_t& tmp_timestamp, int& first_segment,
                            std::uint32_t& first_block);
    /// The block that was written last; -1 in all three when none is found.
    bool findArchiveEnd(int archive_type, int& end_segment, std::uint32_t& end_block, int& end_position);
    /// The record of exactly this time, -1 in all three when there is none; for a time before the whole archive its
    /// oldest record.
    bool getRecordByTimestamp(int archive_type, std::time_t timestamp, int& segment, std::uint32_t& block,
                              int& position);

    // ---- records
    /// Writes the new records of a block, from `position` on. False: stop reading this archive.
    bool parseBlock(int archive_type, const SA94Request& request, int& position, std::time_t& newest);
    bool ErrorArchiveParsing(const SA94Request& request, int position, std::time_t& newest);
    /// A total of zero gives way to the last one that was not.
    static void carryEnergy(double& value, double& previous);
    void savePrevEnergy(int archive_type, double value) const;
    double loadPrevEnergy(int archive_type) const;

    // ---- cycle
    void getCurrentParameters();
    bool getArchives(int archive_type);
    bool needUpdateArchives(int archive_type);
    /// True when the archives are behind the meter's clock; asks the data service off the bus or lets it back.
    bool checkArchiveLag();
    void waitNextPass();

    std::time_t last_update_hourly = 0;  ///< when the hourly and error archives were last due
    std::time_t last_update_daily = 0;
    // Times of the newest stored records.
    std::time_t LastTimestampHourly = 0;
    std::time_t LastTimestampDaily = 0;
    std::time_t LastTimestampError = 0;
    int subsystem_type = 2;                       ///< 0 or 1 once the status is known
    std::map<std::string, float> current_values;  ///< the pass in progress, by item
    std::string FirmwareText;
    int firmware_id = 0;         ///< the row of the tables
    std::time_t meter_time = 0;  ///< the meter's clock when last read
    std::string model;
    std::uint8_t status_byte = 0;  ///< without its top bit
    bool extended = false;
    int sc_flag = 0;
    bool support_t3 = true;  ///< the meter measures a third temperature
    // The last totals that were not zero.
    double dPrevE = 0.0;
    double hPrevE = 0.0;
    std::unique_ptr<UniLog> log_messages;
    std::unique_ptr<UniLog> log_debug;
    std::unique_ptr<UniLog> log_general;

  private:
    /// A request to this meter.
    SA94Request new_request() const { return SA94Request(static_cast<std::int32_t>(tc_sernum)); }
    bool connect(SA94Request& request);
    void disconnect(SA94Request& request);
    /// The time up to which an archive is stored.
    std::time_t& last_timestamp(int archive_type);
    Bytes record_at(int archive_type, const SA94Request& request, int position) const;

    void take_version(const SA94Version& version);
    void log_tube_codes(const SA94Request& request);

    bool bisect_null_block(int archive_type, int segment, SA94Request& request, std::uint32_t& high_block);
    void scan_end_position(int archive_type, const SA94Request& request, int& end_position) const;
    bool narrow_to_block(int archive_type, std::time_t timestamp, int segment, SA94Request& request,
                         std::uint32_t& last_block);
    int position_of_time(int archive_type, const SA94Request& request, std::time_t timestamp) const;

    /// False: the record's date is impossible.
    bool collect_columns(int archive_type, const SA94Layout& layout, Bytes record, std::tm& tm);
    void collect_word(const SA94Column& column, Bytes bytes);
    void write_record(int archive_type, std::tm tm);
    void write_archive_line(int archive_type, const std::string& name, double value, std::tm tm);

    std::time_t recover_last_time(std::span<const char* const> names, std::time_t shift);
    void take_parameter(const SA94CurrentParameter& parameter, const SA94Request& request, std::tm& clock);
    bool find_start(int archive_type, std::time_t last, int& segment, std::uint32_t& block, int& position);
    bool walk(int archive_type, int segment, std::uint32_t block, int position, SA94Request& request,
              std::time_t& newest);

    template <typename Value>
    void publish_item(const char* item, const Value& value) {
        put_item(value, uuid, item, log_messages.get(), 1);
    }
    template <typename... Parts>
    void log_both(const Parts&... parts) {
        log_line(log_messages.get(), parts...);
        log_line(log_debug.get(), parts...);
    }
};
