#pragma once
// The driver of one KM5-family heat meter: KM5-1 to 6, KM5-6i with up to three subsystems, AT-T.
//
// Sources by kind of work: km5_link (requests and retries), km5_description (who the meter is), km5_values (status and
// current values), km5_archives and km5_events (the meter's stored records), km5_cycle (when what is read).
//
// Logs: `debug_log` holds the line, byte by byte, and every conversion; `messages_log` the story of the passes;
// `general_log` their milestones.

#include <array>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/km5/km5_frame.h"
#include "drivers/km5/km5_ring.h"
#include "drivers/km5/km5_tables.h"

class KM5 final : public HCDBaseDriver {
  public:
    static constexpr int MaxSubsystems = 3;  // of a KM5-6i
    using PerSubsystem = std::array<std::time_t, MaxSubsystems>;

    /// `km56i`: read subsystems one by one. `isATT_mustbe`: serve only a meter that says it is an AT-T, and otherwise
    /// only one that does not.
    KM5(const std::string& meter, bool km56i, bool isATT_mustbe);

    std::string get_log_name() override { return driver_string; }
    std::string get_driver_type() override { return "KM5"; }
    int get_buffer_limit() override { return 768; }
    bool is_all_archives_ok() override;
    void on_tick(int /*value*/) override {}
    /// One polling of the meter, all its subsystems.
    void run_main() override;
    /// Takes the uuid and resumes the current subsystem from its archive files.
    void set_uuid(const std::string& meter) override;
    bool need_init() override { return !has_description; }
    void do_init() override;
    /// Keeps polls 360 seconds apart and away from the hour change of the meter's own clock.
    bool is_update_due() override;

    void set_tty(int fd);

    // ---- link
    /// The address bytes from the configured serial number and, for a KM5-6i, the subsystem. 1, or -1 for serial 0.
    int get_netaddr_from_config();
    /// One exchange, no retry.
    void send_request(KM5_request& req);
    bool check_control_sum(const KM5_request& req);
    /// One request with its retries: at most 21 exchanges. `publish`: let the item `Connected` follow the outcome.
    bool request(KM5_request& req, bool publish);
    /// A whole pack of requests; stops at the first that fails.
    bool do_request(KM5_pack& pack);
    /// Asks the meter itself for its address.
    bool get_netaddr();

    // ---- description
    bool getModel();
    bool get_version();
    /// The meter's description of all subsystems; true when it is known.
    bool get_description();
    bool read_EEPROM(int number, int length, float& out);

    // ---- current values
    bool get_status();
    void gen_pack_current(KM5_pack& pack);
    bool get_all_current_values();
    void flush_instant_data();
    std::string moment_name_for_opc(const std::string& name);

    // ---- archives
    bool need_update_archives(int type);
    int get_last_record_idx(int type);
    int get_first_record_idx(int type);
    int get_record_count(int type);
    /// The index of the record of a date, -1 when the meter does not tell.
    int get_string_by_date(int type, int day, int tm_mon, int tm_year, int hour);
    bool get_archives(int type);
    bool get_error_archives();
    std::string archive_name_for_opc(const std::string& name, int type);

    // ---- time checks and trails for debugging in the field
    bool need_update_error_archives();
    bool need_update_current();
    bool need_update_info();
    void km5log(const std::string& text);
    void km5trace(const std::string& text, int number);

    // What is known of the meter.
    int model = -1;
    float version = -1.0F;
    bool isATT = false;
    bool km56i_mode;
    bool has_description = false;
    bool Connected = false;  ///< outcome of the last pack; the item of that name is published apart
    int subsystem = 0;       ///< at work, 0..2
    std::array<std::uint8_t, 4> netaddr{};
    std::array<int, MaxSubsystems> TSMode{-1, -1, -1};
    std::time_t param_MDateTime = 0;  ///< the meter's clock when last read
    std::array<bool, MaxSubsystems> archives_ok{true, true, true};
    std::map<std::string, float> instant_values;  ///< the pass in progress, by driver name
    /// Date of the newest record already stored, 0 for none.
    PerSubsystem last_request_HOUR{}, last_request_DAY{}, last_request_MONTH{}, last_request_YEAR{},
        last_request_ERROR{};

  private:
    bool is_gvs() const;
    int served_subsystems();
    void enter_state(const char* text) const { driver_state(uuid, text); }
    template <typename Value>
    void publish_item(const char* item, const Value& value) {
        put_item(value, uuid, item, messages_log.get(), subsystem + 1);
    }
    void read_pass();
    void compare_archive_times();
    void take_page(const KM5_request& req);
    void take_meter_clock(const KM5_request& req);
    void publish_status();
    void publish_description(const std::string& serial, const std::array<float, 4>& limits);
    std::array<float, 4> read_flow_limits();
    std::time_t& last_request(int type);
    std::time_t& check_time(int type);
    int ask_bounds(int type, int position, const char* state, const char* begin_text, const char* result_text);
    void log_bounds(const KM5_ring& ring, int count, std::time_t last);
    bool read_indexed(KM5_request& req, std::uint8_t cmd, int type, int idx);
    bool is_from_the_future(int type, std::time_t rec_time) const;
    void store_record(const KM5_request& req, int type, std::tm record_tm);
    void store_event(const KM5_request& req, const std::tm& tm);
    void write_first_record_marker(std::uint8_t flags);
    bool time_check(double period, std::time_t& stamp, bool update);
    template <typename... Parts>
    void log_both(const Parts&... parts) {
        log_line(messages_log.get(), parts...);
        log_line(debug_log.get(), parts...);
    }

    std::string driver_string = "KM5";
    std::array<std::uint8_t, 8> Gstatus{};  ///< raw status block
    std::uint32_t Cstatus = 0;              ///< translated status bits
    int SC = 0;
    bool isATT_mustbe;
    std::array<std::uint8_t, 5> version_text{};
    std::array<std::uint8_t, 4> model_type{};
    std::time_t timeOfHourBorder = 0;  ///< when the meter's clock was last found near its hour change
    /// When need_update_archives last said yes.
    PerSubsystem check_time_HOUR{}, check_time_DAY{}, check_time_MONTH{}, check_time_YEAR{}, check_time_ERROR{};
    std::time_t check_time_current = 0;
    std::time_t check_time_info = 0;
    bool told_of_extra_systems = false;
    std::unique_ptr<UniLog> messages_log;
    std::unique_ptr<UniLog> debug_log;
    std::unique_ptr<UniLog> general_log;
};
