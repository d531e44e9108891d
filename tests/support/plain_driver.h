#pragma once
// A driver without a protocol, which shows what the base class keeps to itself.

#include <string>

#include "driver/hcd_base_driver.h"

class PlainDriver : public HCDBaseDriver {
  public:
    PlainDriver() = default;
    explicit PlainDriver(const std::string& meter) { set_uuid(meter); }

    std::string get_driver_type() override { return "plain"; }

    using ArchiveHolder::uuid;
    using ArchiveHolder::uuid_list;
    using HCDBaseDriver::busy_hook;
    using HCDBaseDriver::data_hook;
    using HCDBaseDriver::driver_name;
    using HCDBaseDriver::hook_ctx;
    using HCDBaseDriver::last_update_time;
    using HCDBaseDriver::seen_serial;
    using HCDBaseDriver::status;
    using HCDBaseDriver::tty_send;
};
