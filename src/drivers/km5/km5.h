#pragma once
// The driver of one KM5-family heat meter: KM5-1 to 6, KM5-6i with up to three subsystems, AT-T.
//
// Its parts: km5_link (one request with its tries), km5_decode (what answers mean), km5_progress (what has been read
// until when). Its own sources by kind of work: km5_description (who the meter is), km5_values (status and current
// values), km5_archives and km5_events (the meter's stored records), km5_cycle (when what is read).
//
// Logs: `debug_log` holds the line, byte by byte, and every conversion; `messages_log` the story of the passes;
// `general_log` their milestones.

#include <array>
#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "config/publisher.h"
#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/km5/km5_decode.h"
#include "drivers/km5/km5_frame.h"
#include "drivers/km5/km5_link.h"
#include "drivers/km5/km5_progress.h"
#include "drivers/km5/km5_ring.h"
#include "drivers/km5/km5_tables.h"

class KM5 final : public HCDBaseDriver {
  public:
    static constexpr int MaxSubsystems = 3;  // of a KM5-6i

    /// What one reading leaves for the next, and why it must.
    struct Carried {
        KM5_meter meter;                  ///< asked for once; a description that breaks off keeps what was known
        bool has_description = false;     ///< a meter that is refused later keeps the description that it has
        int subsystem = 0;                ///< at work, 0..2: between passes the probe goes to the one read last
        KM5_netaddr netaddr{};            ///< stays while getModel finds out whether it is the address of a KM5-6i
        std::time_t param_MDateTime = 0;  ///< the meter's clock when last read, by any subsystem: silence does not age
    };

    /// `km56i`: read subsystems one by one. `isATT_mustbe`: serve only a meter that says it is an AT-T, and otherwise
    /// only one that does not.
    KM5(const std::string& meter, bool km56i, bool isATT_mustbe);

    std::string get_log_name() override { return "KM5"; }
    std::string get_driver_type() override { return "KM5"; }
    int get_buffer_limit() override { return 768; }
    bool is_all_archives_ok() override;
    void on_tick(int /*value*/) override {}
    /// One polling of the meter, all its subsystems.
    void run_main() override;
    /// Takes the uuid and resumes the current subsystem from its archive files.
    void set_uuid(const std::string& meter) override;
    bool need_init() override { return !carried.has_description; }
    void do_init() override { get_description(); }
    /// Keeps polls 360 seconds apart and away from the hour change of the meter's own clock.
    bool is_update_due() override;

    void set_tty(int fd);
    const Carried& get_carried() const { return carried; }
    const KM5Progress& get_progress(int s) const { return progress.at(static_cast<std::size_t>(s)); }

    /// The address bytes from the configured serial number and, for a KM5-6i, the subsystem. 1, or -1 for serial 0.
    int get_netaddr_from_config();
    /// KM5Link::request at the meter's address; the item `Connected` follows the outcome if `publish` is set.
    bool request(KM5_request& req, bool publish) { return link.request(req, carried.netaddr, publish); }

    // ---- description
    bool getModel();
    bool get_version();
    /// The meter's description of all subsystems; true when it is known.
    bool get_description();
    bool read_EEPROM(int number, int length, float& out);

    // ---- current values
    /// Zeros when the meter does not tell.
    bool get_status(KM5_status& out);
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

    // ---- no pass calls these
    bool do_request(KM5_pack& pack) { return link.do_request(pack, carried.netaddr); }
    /// Asks the meter itself for its address.
    bool get_netaddr();
    bool need_update_error_archives();
    bool need_update_current();
    bool need_update_info();
    /// Trails for debugging in the field.
    void km5log(const std::string& text);
    void km5trace(const std::string& text, int number);

  private:
    bool is_hot_water() const;
    int served_subsystems();
    KM5Progress& progress_here() { return progress[static_cast<std::size_t>(carried.subsystem)]; }
    void enter_state(const char* text) const { driver_state(uuid, text); }
    template <typename Value>
    void publish_item(const char* item, const Value& value) {
        put_item(value, uuid, item, messages_log.get(), carried.subsystem + 1);
    }
    void read_pass();
    void compare_archive_times();
    void take_meter_clock(Bytes answer);
    void publish_description(const std::string& serial, const std::array<float, 4>& limits);
    std::array<float, 4> read_flow_limits();
    bool ask_bounds(int type, const char* state, const char* begin_text, KM5_bounds& out);
    KM5_ring begin_walk(int first_idx, int last_idx, int count, std::time_t last);
    bool read_indexed(KM5_request& req, std::uint8_t cmd, int type, int idx);
    void store_record(const KM5_record& record, int type);
    void store_event(const KM5_event& event);
    bool time_check(double period, std::time_t& stamp, bool update);
    template <typename... Parts>
    void log_both(const Parts&... parts) {
        log_line(messages_log.get(), parts...);
        log_line(debug_log.get(), parts...);
    }

    const bool isATT_mustbe;
    Carried carried;
    std::array<KM5Progress, MaxSubsystems> progress;
    std::map<std::string, float> instant_values;  ///< the pass in progress, by driver name
    std::time_t timeOfHourBorder = 0;             ///< when the meter's clock was last found near its hour change
    std::time_t check_time_current = 0;
    std::time_t check_time_info = 0;
    bool told_of_extra_systems = false;
    std::unique_ptr<UniLog> messages_log;
    std::unique_ptr<UniLog> debug_log;
    std::unique_ptr<UniLog> general_log;
    KM5Link link;
};
