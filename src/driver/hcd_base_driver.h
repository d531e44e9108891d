#pragma once
// The common base of every meter driver: the settings of one meter on one port, the operations through which the
// process and the scheduler run a driver, and the two decisions that all drivers share: has a forced update been asked
// for, and is the update interval over.
//
// Drivers live as long as the process. A `*_base` driver owns the port and the drivers of its meters, which get its
// descriptor; a per-meter driver owns its logs and its archive state and opens no port.

#include <cstdint>
#include <ctime>
#include <string>

#include "archive/archive_holder.h"
#include "config/meter_settings.h"
#include "driver/exchange.h"

class UniScript {};

class HCDBaseDriver : public UniScript, public ArchiveHolder, protected MeterSettings {
  public:
    using BusyHook = void (*)(unsigned char flag, std::uintptr_t context);
    using DataHook = void (*)(const std::uint8_t* buffer, std::uintptr_t a, std::uintptr_t b, unsigned char flag,
                              std::uintptr_t context);

    HCDBaseDriver();
    ~HCDBaseDriver() override = default;

    /// Opens and sets the port, in the classes that own one.
    virtual void open_tty() {}
    virtual std::string get_log_name() { return driver_name; }
    virtual std::string get_driver_type() = 0;
    virtual int get_buffer_limit() { return 0; }
    virtual bool is_ready() { return true; }
    /// False while the meter's archives are behind its clock.
    virtual bool is_all_archives_ok() { return true; }
    /// One exchange by exchange_read_bytes. Always 1: the caller looks at the answer's length.
    virtual int send_receive(Bytes tx, ExchangeAnswer& rx, int rx_max, bool pause);
    /// The first serial number seen is taken for the life of the process; true when `serial` equals it.
    virtual bool check_serial(std::uint32_t serial);
    virtual bool is_offline() { return status == "offline"; }
    virtual void set_busy(int flag);
    virtual void data_notify(const std::uint8_t* buffer, std::uintptr_t a, std::uintptr_t b, unsigned char flag);
    virtual void on_tick(int /*value*/) {}
    /// The driver's one iteration; a multi-meter driver does not return from it.
    virtual void run_main() {}
    virtual void set_uuid(const std::string& meter) { uuid = meter; }
    virtual std::string get_uuid() { return uuid; }
    /// True once for each flag file that an outside program has made: kind 0 "/tmp/tvk_force_update_<uuid>", kind 1
    /// "/tmp/tvk_force_update_archives_<uuid>". The file is removed.
    virtual bool check_force_update(int kind);
    /// Seconds between two polls.
    virtual unsigned get_update_interval() { return 360; }
    /// Single-bus mode: the driver wants do_init and run_main.
    virtual bool need_init() { return false; }
    virtual void do_init() {}
    /// True, and the interval begins anew, when it is over or an update was forced.
    virtual bool is_update_due();

    void set_tty_send(ExchangeRoutine routine, std::uintptr_t context);
    void set_tty_fd(int fd) { tty_fd = fd; }
    /// The port's descriptor, -1 when closed.
    int get_tty_fd() const { return tty_fd; }
    /// Given before the port is opened, and unchanged from then on.
    void take_settings(const MeterSettings& settings) { static_cast<MeterSettings&>(*this) = settings; }
    const MeterSettings& settings() const { return *this; }
    /// Index 0 is system 1; an index above 5 is ignored.
    void set_system_type(unsigned index, const std::string& text);
    /// One exchange by exchange_read_all. Always 1.
    int send_receive_locked(Bytes tx, ExchangeAnswer& rx, int rx_max);

  protected:
    int tty_fd = -1;
    ExchangeRoutine tty_send = nullptr;  ///< goes with the driver's protocol; a record only
    BusyHook busy_hook = nullptr;
    DataHook data_hook = nullptr;
    std::uintptr_t hook_ctx = 0;
    std::string status = "offline";
    std::uint32_t seen_serial = 0xFFFFFFFF;  ///< all bits set: none yet
    std::string driver_name = "NO_DRIVER_NAME";
    std::time_t last_update_time = 0;
};

/// Reads the settings of the driver's meter from the configuration service and gives them to the driver; failures as
/// told in config_client.
void read_driver_config(HCDBaseDriver& driver);
