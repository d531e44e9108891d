#include "driver/hcd_base_driver.h"

#include "config/config_client.h"
#include "core/files.h"
#include "core/gateway.h"
#include "core/text.h"

namespace {

constexpr int ExchangeTimeout = 10;  // not used by the routines
constexpr std::uint32_t NoSerial = 0xFFFFFFFF;
constexpr std::size_t FlagPathBytes = 256;

}  // namespace

HCDBaseDriver::HCDBaseDriver() {
    uuid = "na";
}

int HCDBaseDriver::send_receive(Bytes tx, ExchangeAnswer& rx, int rx_max, bool pause) {
    exchange_read_bytes(tty_fd, ExchangeTimeout, tx, rx, rx_max, pause);
    return 1;
}

int HCDBaseDriver::send_receive_locked(Bytes tx, ExchangeAnswer& rx, int rx_max) {
    exchange_read_all(tty_fd, ExchangeTimeout, tx, rx, rx_max, use_pause_flag);
    return 1;
}

bool HCDBaseDriver::check_serial(std::uint32_t serial) {
    if (seen_serial != NoSerial) return seen_serial == serial;
    seen_serial = serial;
    return true;
}

void HCDBaseDriver::set_busy(int flag) {
    if (busy_hook != nullptr) busy_hook(static_cast<unsigned char>(flag & 0xFF), hook_ctx);
}

void HCDBaseDriver::data_notify(const std::uint8_t* buffer, std::uintptr_t a, std::uintptr_t b, unsigned char flag) {
    if (data_hook != nullptr) data_hook(buffer, a, b, flag, hook_ctx);
}

bool HCDBaseDriver::check_force_update(int kind) {
    if (kind != 0 && kind != 1) return false;
    const char* const flag = kind == 0 ? "/tmp/tvk_force_update" : "/tmp/tvk_force_update_archives";
    const std::string path = format_cut(FlagPathBytes, "%s_%s", flag, uuid.c_str());
    if (!exists(path)) return false;
    remove_file(path);
    return true;
}

bool HCDBaseDriver::is_update_due() {
    const double elapsed = std::difftime(gateway().now(), last_update_time);
    if (elapsed < get_update_interval() && !check_force_update(0)) return false;
    last_update_time = gateway().now();
    return true;
}

void HCDBaseDriver::set_tty_send(ExchangeRoutine routine, std::uintptr_t context) {
    tty_send = routine;
    hook_ctx = context;
}

void read_driver_config(HCDBaseDriver& driver) {
    MeterSettings settings = driver.settings();
    read_driver_config(driver.get_uuid(), settings);
    driver.take_settings(settings);
}

void HCDBaseDriver::set_system_type(unsigned index, const std::string& text) {
    if (index < system_type.size()) system_type[index] = text;
}
