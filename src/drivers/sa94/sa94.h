#pragma once
// The driver of one SA-94 heat meter. A pass identifies the meter anew, publishes its current values, reads what is new
// in its archives, and then waits for the next pass.
//
// Its parts: sa94_link (one request and its tries), sa94_decode (what replies mean), sa94_search (where in the meter's
// memory an archive goes on), sa94_progress (how far it has been read). The driver's own sources join them:
// sa94_description (firmware, tube settings, status), sa94_records (a block of memory into archive lines), sa94_cycle
// (when what is read).

#include <ctime>
#include <string>

#include "config/publisher.h"
#include "driver/hcd_base_driver.h"
#include "drivers/sa94/sa94_decode.h"
#include "drivers/sa94/sa94_progress.h"
#include "drivers/sa94/sa94_search.h"

class SA94 final : public HCDBaseDriver {
  public:
    static constexpr int Attempts = SA94Link::Attempts;

    explicit SA94(const std::string& meter);
    SA94(const std::string& meter, SA94Logs logs);

    void open_tty() override;
    std::string get_driver_type() override { return "SA94"; }
    int get_buffer_limit() override { return 768; }
    /// One whole pass.
    void run_main() override;

    // ---- description
    bool getDescription();
    /// Finds the meter's row in `Versions`.
    bool getFirmware();
    /// `model_name` has no effect.
    bool getTubesSettings(const std::string& model_name);
    bool getStatus();

    // ---- records
    /// Writes the new records of a block, from `position` on. False: stop reading this archive.
    bool parseBlock(int archive_type, const SA94Request& request, int& position, std::time_t& newest);
    bool ErrorArchiveParsing(const SA94Request& request, int position, std::time_t& newest);

    // ---- cycle
    void getCurrentParameters();
    bool getArchives(int archive_type);
    /// True when the archives are behind the meter's clock; asks the data service off the bus or lets it back.
    bool checkArchiveLag();
    void waitNextPass();

    // ---- the parts' own, for who has nothing but the driver
    void exchangeOnce(SA94Request& request) const { link.exchangeOnce(request); }
    bool Transact(SA94Request& request, int attempts) const { return link.Transact(request, attempts); }
    bool ReadArchiveRecord(SA94Request& request, int segment, std::uint32_t block) const {
        return link.ReadArchiveRecord(request, carried.extended, segment, block);
    }
    bool getFirstRecordInfo(int archive_type, std::time_t& tmp_timestamp, int& first_segment,
                            std::uint32_t& first_block) const {
        return search().getFirstRecordInfo(archive_type, tmp_timestamp, first_segment, first_block);
    }
    bool findArchiveEnd(int archive_type, int& end_segment, std::uint32_t& end_block, int& end_position) const {
        return search().findArchiveEnd(archive_type, end_segment, end_block, end_position);
    }
    bool getRecordByTimestamp(int archive_type, std::time_t timestamp, int& segment, std::uint32_t& block,
                              int& position) const {
        return search().getRecordByTimestamp(archive_type, timestamp, segment, block, position);
    }
    bool needUpdateArchives(int archive_type) { return stored.needUpdateArchives(archive_type); }
    const SA94Progress& progress() const { return stored; }

  private:
    /// What reaches from one pass into the next.
    struct Carried {
        // The row of the firmware that was known last: one that is not known leaves it, and ends its pass.
        std::string model;
        int firmware_id = 0;
        bool extended = false;
        /// The meter's clock when last read: one that shows no time leaves it, and the lag is that of the time before.
        std::time_t meter_time = 0;
        /// Its names, once changed by a status, stay so, for all meters of the process.
        decltype(CurrentParameters)& parameters = CurrentParameters;
    };

    std::int32_t address() const { return static_cast<std::int32_t>(tc_sernum); }
    /// A request to this meter.
    SA94Request new_request() const { return SA94Request(address()); }
    SA94Memory memory() const { return {carried.extended}; }
    SA94Search search() const { return {link, logs, memory(), address()}; }
    void write_record(int archive_type, const SA94Record& record);
    void write_archive_line(int archive_type, const std::string& name, double value, std::tm tm);
    bool find_start(int archive_type, std::time_t last, int& segment, std::uint32_t& block, int& position) const;
    bool walk(int archive_type, int segment, std::uint32_t block, int position, SA94Request& request,
              std::time_t& newest);

    template <typename Value>
    void publish_item(const char* item, const Value& value) {
        put_item(value, uuid, item, logs.log_messages.get(), 1);
    }

    const SA94Logs logs;
    const SA94Link link;
    SA94Progress stored;
    SA94Status meter_status;
    Carried carried;
};
